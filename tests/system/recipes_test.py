#!/usr/bin/env python3
"""What docs/recipes.md shows is run as it stands there, with the programs of this build.

recipes_test.py SOURCE_DIR BIN_DIR
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, BIN = pathlib.Path(sys.argv[1]), sys.argv[2]
PAGE = (SOURCE / "docs/recipes.md").read_text(encoding="utf-8")


def block(heading):
    """The indented lines below a heading."""
    section = PAGE.split(f"\n## {heading}\n")[1].split("\n## ")[0]
    return "\n".join(line[4:] for line in section.splitlines() if line.startswith("    "))


class Recipes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name)
        self.environment = os.environ | {"PATH": BIN + ":" + os.environ["PATH"], "TMPDIR": folder.name}

    def run_text(self, text, **settings):
        return subprocess.run(["sh", "-e", "-c", text], cwd=self.path, env=self.environment | settings,
                              capture_output=True, text=True, timeout=200)

    def expect_success(self, text):
        got = self.run_text(text)
        self.assertEqual(got.returncode, 0, got.stderr)
        return got.stdout

    def is_picture(self, name):
        return (self.path / name).read_bytes().startswith(b"\x89PNG")

    def test_one_line(self):
        self.expect_success(block("In one line"))
        self.assertTrue(self.is_picture("screen.png"))
        self.assertIn("kalix: starting", (self.path / "server.log").read_text(encoding="utf-8"))

    def test_workflow(self):
        draw, compare = re.findall(r"run: (.*)", block("As a workflow"))
        self.expect_success(draw)
        (self.path / "expected").mkdir()
        (self.path / "triangle.png").rename(self.path / "expected/triangle.png")
        self.expect_success(draw)
        self.expect_success(compare)
        (self.path / "expected/triangle.png").write_bytes(b"another")
        self.assertEqual(self.run_text(compare).returncode, 1)

    def test_a_server_for_many_commands(self):
        text = block("A server for many commands")
        operations = (SOURCE / "docs/operations.md").read_text(encoding="utf-8")
        self.assertIn("recipes.md#a-server-for-many-commands", operations)
        self.assertIn("round trip us", self.expect_success(text))
        self.assertEqual(list(self.path.iterdir()), [])
        got = self.run_text(text, GRAPHICS_ROOT="/nowhere")
        self.assertEqual(got.returncode, 1)
        self.assertIn("/nowhere/libvmwsvga_g.so", got.stdout)

    def test_other_namespaces(self):
        if subprocess.run(["unshare", "--mount", "true"], capture_output=True).returncode != 0:
            self.skipTest("this user may not make namespaces")
        text = block("From other namespaces")
        self.expect_success(text)
        self.assertTrue(self.is_picture("triangle.png"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
