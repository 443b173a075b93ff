#!/usr/bin/env python3
"""What the public headers promise: each compiles alone, the C headers as C11 and as C++20, client.hpp as C++20; and
what client.h can, client.hpp and the Python module can as well."""
import pathlib
import re
import shutil
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PUBLIC = sorted((ROOT / "include/kalix").glob("*.h*"))
STRICT = ["-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only"]
COMPILERS = {".h": [["gcc", "-std=c11"], ["clang", "-std=c11"], ["g++", "-std=c++20"], ["clang++", "-std=c++20"]],
             ".hpp": [["g++", "-std=c++20"], ["clang++", "-std=c++20"]]}

# What has no counterpart in client.hpp and the Python module, and why: these calls are made through client.h, or
# kalix.c, with the handle and the list that the objects give.
LEFT_TO_C = {
    "kalix_version": "a function of the library, not of an object",
    "kalix_request": "any request at all, for tests and tools",
    "kalix_execbuf": "submit() is this request; the delay and part of a list are for tests",
    "kalix_software_mode": "0 on every server that serves",
    "kalix_fence_unref": "a fence holds nothing",
    "kalix_dmabuf_unmap": "the buffer's end does it",
    "kalix_cmd_update": "announces what was written to the framebuffer, which clients do not write",
    "kalix_cmd_surface_define": "surfaces made by command belong to no session",
    "kalix_cmd_surface_destroy": "as surface_define",
    "kalix_cmd_context_define": "contexts made by command belong to no session",
    "kalix_cmd_context_destroy": "as context_define",
    "kalix_cmd_shader_define": "shaders are not run",
    "kalix_cmd_shader_destroy": "as shader_define",
    "kalix_cmd_set_shader": "as shader_define",
    "kalix_cmd_set_shader_const": "as shader_define",
    "kalix_cmd_present_readback": "readback of surfaces needs no copy of the screen",
}


def text_of(*names):
    return "\n".join((ROOT / name).read_text(encoding="utf-8") for name in names)


class PublicHeaders(unittest.TestCase):
    def test_each_compiles_alone(self):
        self.assertGreater(len(PUBLIC), 7)
        compilers = {suffix: [each for each in listed if shutil.which(each[0])] for suffix, listed in COMPILERS.items()}
        for header in PUBLIC:
            for compiler in compilers[header.suffix]:
                with self.subTest(header.name, compiler=compiler[0]):
                    language = "c" if "c11" in compiler[1] else "c++"
                    done = subprocess.run([*compiler, *STRICT, f"-I{ROOT}/include", "-x", language, "-"], text=True,
                                          input=f"#include <kalix/{header.name}>\n", capture_output=True, check=False)
                    self.assertEqual(done.returncode, 0, done.stderr)

    def test_each_says_what_it_wants(self):
        for header in PUBLIC:
            with self.subTest(header.name):
                wanted = "Wants C++20" if header.suffix == ".hpp" else "Wants C11 or C++20"
                self.assertIn(wanted, header.read_text(encoding="utf-8").split("#pragma once")[0])

    def test_each_is_installed(self):
        listed = text_of("client/CMakeLists.txt")
        for header in PUBLIC:
            self.assertIn(f"include/kalix/{header.name}", listed)

    def test_each_call_has_a_counterpart_or_a_reason(self):
        calls = set(re.findall(r"^[\w ]+[ *](kalix_\w+)\(", text_of("include/kalix/client.h"), flags=re.MULTILINE))
        self.assertGreater(len(calls), 70)
        faces = {"client.hpp": text_of("include/kalix/client.hpp"),
                 "python/kalix": text_of(*(f"python/kalix/{name}.py" for name in ("connection", "memory", "drawing")))}
        self.assertLessEqual(set(LEFT_TO_C), calls)
        for face, text in faces.items():
            missing = calls - set(re.findall(r"\bkalix_\w+", text))
            with self.subTest(face):
                self.assertEqual(missing - set(LEFT_TO_C), set())
        both = {call for call in LEFT_TO_C if all(re.search(rf"\b{call}\b", text) for text in faces.values())}
        self.assertEqual(both, set(), "no longer left to C")


if __name__ == "__main__":
    unittest.main()
