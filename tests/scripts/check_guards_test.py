#!/usr/bin/env python3
"""scripts/check_guards.py sees a hold that guards nothing, and says nothing of one that does. Needs clang."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCE = """#include "base/lock.h"
kalix::mutex lock;
int guarded KALIX_GUARDED_BY(lock);
int forgotten;
using kalix::hold;
void f()
{
    hold held{lock};
    guarded = 1;
}
void g()
{
    hold held{lock};
    forgotten = 1;
}
"""


class CheckGuards(unittest.TestCase):
    def test_only_the_hold_that_guards_nothing_is_named(self):
        with tempfile.TemporaryDirectory() as root:
            build, source = pathlib.Path(root, "build/clang"), pathlib.Path(root, "two.cpp")
            build.mkdir(parents=True)
            source.write_text(SOURCE, encoding="utf-8")
            command = f"clang++ -std=c++20 -Wthread-safety -Werror -I{ROOT} -c {source}"
            (build / "compile_commands.json").write_text(
                json.dumps([{"directory": str(build), "file": str(source), "command": command}]), encoding="utf-8")
            ran = subprocess.run([sys.executable, ROOT / "scripts/check_guards.py", build], capture_output=True,
                                 text=True, check=False)
            line = SOURCE.splitlines().index("    forgotten = 1;")  # the one before it, counted from 1
            self.assertEqual((ran.returncode, ran.stdout), (1, f"two.cpp:{line}: clang does not miss this hold\n"))


if __name__ == "__main__":
    unittest.main()
