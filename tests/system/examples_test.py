#!/usr/bin/env python3
"""The examples as an author meets them: kalix installed into a prefix, the examples built outside of the tree by
pkg-config and by CMake, or run by Python, with the installed programs, and their pictures looked at.

examples_test.py SOURCE_DIR BUILD_DIR CMAKE
"""
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

from picture import Picture, expect_triangle

SOURCE, BUILD, CMAKE = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
EXAMPLES = SOURCE / "examples"


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, timeout=240, **options).stdout


class Examples(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.prefix = pathlib.Path(cls.folder.name) / "elsewhere"
        run(CMAKE, "--install", BUILD, "--prefix", cls.prefix)
        cls.package = next(cls.prefix.rglob("libkalix.pc")).parent
        cls.libraries = cls.package.parent
        cls.python = next(cls.prefix.rglob("kalix/__init__.py")).parents[1]
        cls.built = pathlib.Path(cls.folder.name) / "built"
        cls.built.mkdir()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def screen_after(self, *program):
        """What the program prints, and the screen that it leaves, with a server of its own."""
        picture = self.built / "screen.png"
        shell = f'{shlex.join(map(str, program))} && "{self.prefix}/bin/kalixctl" screenshot "{picture}" >&2'
        printed = run(self.prefix / "bin/kalix-run", "--", "sh", "-c", shell,
                      env=os.environ | {"LD_LIBRARY_PATH": str(self.libraries), "PYTHONPATH": str(self.python)})
        return printed.decode(), Picture(picture.read_bytes())

    def compile(self, *compiler, source):
        flags = run("pkg-config", "--cflags", "--libs", "libkalix",
                    env=os.environ | {"PKG_CONFIG_PATH": str(self.package)}).decode().split()
        program = self.built / source
        run(*compiler, "-Wall", "-Wextra", "-Wpedantic", "-Werror", EXAMPLES / source, "-o", program, *flags)
        return program

    def expect_triangle(self, *program):
        """The program's screen, in which the triangle was found."""
        _, screen = self.screen_after(*program)
        expect_triangle(self, screen)
        return screen

    def test_the_triangle_is_the_same_in_each_language(self):
        screens = [self.expect_triangle(self.compile("cc", "-std=c11", source="triangle.c")),
                   self.expect_triangle(self.compile("c++", "-std=c++20", source="triangle.cpp")),
                   self.expect_triangle(sys.executable, EXAMPLES / "triangle.py")]
        for other in screens[1:]:
            self.assertEqual(other.rows, screens[0].rows)

    def test_a_first_program_is_short(self):
        for name in ("triangle.c", "triangle.cpp", "triangle.py"):
            lines = [line for line in (EXAMPLES / name).read_text(encoding="utf-8").splitlines() if line]
            self.assertLess(len(lines), 50, name)

    def test_all_by_cmake(self):
        folder = self.built / "cmake"
        run(CMAKE, "-S", EXAMPLES, "-B", folder, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run(CMAKE, "--build", folder)
        self.expect_triangle(folder / "triangle_c")
        printed, screen = self.screen_after(folder / "tour")
        self.assertEqual(printed, "the middle is %02x%02x%02x%02x\n" % (255, *screen.pixel(400, 300)))
        # The near half of each triangle shows, whichever was drawn last; and the board in a corner.
        for (x, y), near, far in [((180, 460), 0, 2), ((350, 330), 0, 2), ((690, 190), 2, 0), ((450, 330), 2, 0)]:
            colour = screen.pixel(x, y)
            self.assertGreater(colour[near], colour[far], (x, y))
        self.assertEqual({screen.pixel(22 + 8 * i, 22) for i in range(2)}, {(0xE0,) * 3, (0x40, 0x50, 0x60)})

    def test_the_guide_shows_what_is_run(self):
        guide = (SOURCE / "docs/client.md").read_text(encoding="utf-8").splitlines()
        for name, mark in {"tour.cpp": ";", "triangle.py": ")"}.items():
            code = (EXAMPLES / name).read_text(encoding="utf-8")
            shown = [line.strip() for line in guide if line.startswith("    ") and line.endswith(mark)
                     and "pkg-config" not in line]
            self.assertGreater(len(shown), 3)
            for line in shown:
                self.assertIn(line, code)

    def test_what_the_guide_says_is_told_is_told(self):
        guide = (SOURCE / "docs/client.md").read_text(encoding="utf-8")
        told = (SOURCE / "client/draw_check.cpp").read_text(encoding="utf-8")
        shown = re.findall(r'`KALIX_DEBUG`: "([^"]+)"', guide)
        self.assertGreater(len(shown), 5)
        for text in shown:
            self.assertIn(text, told)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
