#!/usr/bin/env python3
"""Each rule of scripts/check_house.py: a small house that keeps them all, then broken in one place."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts/check_house.py"

HOUSE = {
    "docs/architecture.md": "| room | for | may include |\n|---|---|---|\n"
                            "| `base/` | locks | |\n"
                            "| `svga/` | the device's face | |\n"
                            "| `driver/` | serves | `svga/`, `base/`, `include/kalix/protocol.h` |\n"
                            "| `device/` | draws | `svga/` |\n"
                            "| `include/kalix/` | public | |\n"
                            "| `tests/` | tests | `any` |\n",
    "base/lock.h": "#define KALIX_GUARDED_BY(x)\n",
    "svga/svga.h": '#include <stdint.h>\n',
    "include/kalix/protocol.h": "",
    "include/kalix/screen.h": "",
    "driver/CMakeLists.txt": "add_library(driver main.cpp)\n",
    "driver/main.cpp": '#include "base/lock.h"\n#include "svga/svga.h"\n#include <kalix/protocol.h>\n#include <span>\n',
    "device/CMakeLists.txt": "add_library(device draw.cpp)\n",
    "device/draw.cpp": '#include "device/draw.h"\n',
    "device/draw.h": '#include "svga/svga.h"\n',
    "tests/CMakeLists.txt": "foreach(name draw)\nendforeach()\n",
    "tests/draw_test.cpp": '#include "device/draw.h"\n#include <gtest/gtest.h>\n#include <kalix/screen.h>\n',
}

BROKEN = [  # name, file, what is added to it, what is said
    ("an arrow against the table", "driver/main.cpp", '#include "device/draw.h"\n', "device/draw.h is not this room's"),
    ("a public header of others", "driver/main.cpp", "#include <kalix/screen.h>\n", "screen.h is not this room's"),
    ("product that includes tests", "device/draw.cpp", '#include "tests/support.h"\n', "tests/support.h is not this"),
    ("a room that nobody knows", "cellar/wine.h", '#include "base/lock.h"\n', "lies in no room"),
    ("a path without a room", "device/draw.cpp", '#include "draw.h"\n', "draw.h is included by a relative path"),
    ("a path that climbs", "device/draw.cpp", '#include "../svga/svga.h"\n', "included by a relative path"),
    ("the host in the driver", "driver/main.cpp", "#include <sys/mman.h>\n", "<sys/mman.h> does not belong"),
    ("a library elsewhere", "device/draw.cpp", "#include <png.h>\n", "<png.h> does not belong"),
    ("a test library in the product", "device/draw.cpp", "#include <gtest/gtest.h>\n", "does not belong"),
    ("a macro in the product", "device/draw.h", "#define DRAW 1\n", "a macro"),
    ("a macro in a test", "tests/draw_test.cpp", "#define CASE(x) x\n", "a macro"),
    ("what a debugger left", "device/draw.cpp", 'void f() { std::cerr << "here"; }\n', "left over: std::cerr"),
    ("code switched off", "device/draw.cpp", "#if 0\n#endif\n", "left over: #if 0"),
    ("a source that nothing builds", "device/old.cpp", "int x;\n", "nothing builds or includes it"),
    ("a header that nothing includes", "device/old.h", "int x;\n", "nothing builds or includes it"),
    ("lines that share a format", "driver/main.cpp", 'void f() { slogf(code, error,\n    "%s", why); }\n', "without a format"),
    ("a file without end", "device/draw.cpp", "int f();\n" * 700, "a file of more than 700 lines"),
]


class CheckHouse(unittest.TestCase):
    def check(self, added=None):
        with tempfile.TemporaryDirectory() as root:
            house = dict(HOUSE)
            for name, text in (added or {}).items():
                house[name] = house.get(name, "") + text
            for name, text in house.items():
                path = pathlib.Path(root, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text, encoding="utf-8")
            subprocess.run(["git", "init", "-q", root], check=True)
            ran = subprocess.run([sys.executable, CHECK, root], capture_output=True, text=True, check=False)
            return ran.returncode, ran.stdout + ran.stderr

    def test_a_house_in_order(self):
        status, said = self.check()
        self.assertEqual((status, said.count("\n")), (0, 1), said)

    def test_a_house_broken_in_one_place(self):
        for name, file, text, expected in BROKEN:
            with self.subTest(name):
                status, said = self.check({file: text})
                self.assertEqual(status, 1, said)
                self.assertIn(expected, said)
                self.assertTrue(all(line.startswith(file + ":") for line in said.splitlines()), said)


if __name__ == "__main__":
    unittest.main()
