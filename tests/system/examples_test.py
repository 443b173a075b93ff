#!/usr/bin/env python3
"""The examples as an author meets them: kalix installed into a prefix, the examples built outside of the tree by
pkg-config and by CMake, run with the installed programs, and their pictures looked at.

examples_test.py SOURCE_DIR BUILD_DIR CMAKE
"""
import os
import pathlib
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
        cls.built = pathlib.Path(cls.folder.name) / "built"
        cls.built.mkdir()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def screen_after(self, program):
        """What the program prints, and the screen that it leaves, with a server of its own."""
        picture = self.built / "screen.png"
        shell = f'"{program}" && "{self.prefix}/bin/kalixctl" screenshot "{picture}" >&2'
        printed = run(self.prefix / "bin/kalix-run", "--", "sh", "-c", shell,
                      env=os.environ | {"LD_LIBRARY_PATH": str(self.libraries)})
        return printed.decode(), Picture(picture.read_bytes())

    def compile(self, *compiler, source):
        flags = run("pkg-config", "--cflags", "--libs", "libkalix",
                    env=os.environ | {"PKG_CONFIG_PATH": str(self.package)}).decode().split()
        program = self.built / source
        run(*compiler, "-Wall", "-Wextra", "-Wpedantic", "-Werror", EXAMPLES / source, "-o", program, *flags)
        return program

    def expect_triangle(self, program):
        _, screen = self.screen_after(program)
        expect_triangle(self, screen)

    def test_triangles_by_pkg_config(self):
        self.expect_triangle(self.compile("cc", "-std=c11", source="triangle.c"))
        self.expect_triangle(self.compile("c++", "-std=c++20", source="triangle.cpp"))

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
        code = (EXAMPLES / "tour.cpp").read_text(encoding="utf-8")
        guide = (SOURCE / "docs/client.md").read_text(encoding="utf-8")
        shown = [line.strip() for line in guide.splitlines() if line.startswith("    ") and line.endswith(";")]
        self.assertGreater(len(shown), 5)
        for line in shown:
            self.assertIn(line, code)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
