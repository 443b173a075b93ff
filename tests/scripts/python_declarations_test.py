#!/usr/bin/env python3
"""The Python module declares what the C headers do: every name, every value, size and offset, as a C program that is
compiled against the headers finds them."""
import ctypes
import importlib.util
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# client.h and what it includes.
HEADERS = "\n".join((ROOT / "include/kalix" / name).read_text(encoding="utf-8")
                    for name in ("client.h", "protocol.h", "svga3d_types.h"))
CODE = re.sub(r"/\*.*?\*/", "", HEADERS, flags=re.DOTALL)


def loaded(path):
    """The module of a file, which needs no library."""
    spec = importlib.util.spec_from_file_location(path.stem, path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


MODULE = loaded(ROOT / "python/kalix/declarations.py")
CONSTANTS = {name for name, value in vars(MODULE).items() if name.isupper() and isinstance(value, int)}
RECORDS = {name: kind for name, kind in vars(MODULE).items()
           if isinstance(kind, type) and issubclass(kind, MODULE.Record) and kind is not MODULE.Record}


def found_by_compiler():
    """Each expression and its value: constants, and size, offset and field size of records."""
    asked = sorted(CONSTANTS)
    for name, kind in RECORDS.items():
        if kind._fields_:
            asked.append(f"sizeof(struct {name})")
        for field, *_ in kind._fields_:
            asked += [f"offsetof(struct {name}, {field})", f"sizeof(((struct {name} *)0)->{field})"]
    lines = "\n".join(f'printf("%s=%lld\\n", "{each}", (long long)({each}));' for each in asked)
    with tempfile.TemporaryDirectory() as folder:
        program = pathlib.Path(folder) / "probe"
        subprocess.run([os.environ.get("CC", "cc"), "-std=c11", f"-I{ROOT}/include", "-xc", "-", "-o", program],
                       input=f"#include <kalix/client.h>\n#include <stdio.h>\nint main(void) {{ {lines} }}", text=True,
                       check=True)
        printed = subprocess.run([program], capture_output=True, text=True, check=True).stdout
    return {name: int(value) for name, value in (line.rsplit("=", 1) for line in printed.splitlines())}


class Declarations(unittest.TestCase):
    def test_the_file_is_what_the_headers_say(self):
        subprocess.run([ROOT / "scripts/python_declarations.py", "--check"], check=True)

    def test_no_name_is_missing_and_none_too_many(self):
        functions = set(re.findall(r"\b(kalix_\w+)\(", CODE))
        self.assertEqual(set(MODULE.FUNCTIONS), functions)
        records = set(re.findall(r"struct (\w+) \{", CODE)) | {"kalix_connection"}
        self.assertEqual(set(RECORDS), records)
        members = re.findall(r"\benum \w*\s*\{(.*?)\}", CODE, flags=re.DOTALL)
        constants = {name for each in members for name in re.findall(r"\b([A-Z]\w+)\s*(?:=|,|$)", each)}
        constants |= set(re.findall(r"static const uint32_t (\w+)", CODE))
        self.assertEqual(CONSTANTS, constants)

    def test_values_sizes_and_offsets_are_the_compilers(self):
        found = found_by_compiler()
        ours = {name: getattr(MODULE, name) for name in CONSTANTS}
        for name, kind in RECORDS.items():
            if kind._fields_:
                ours[f"sizeof(struct {name})"] = ctypes.sizeof(kind)
            for field, *_ in kind._fields_:
                ours[f"offsetof(struct {name}, {field})"] = getattr(kind, field).offset
                ours[f"sizeof(((struct {name} *)0)->{field})"] = getattr(kind, field).size
        self.assertGreater(len(found), 600)
        self.assertEqual(ours, found)

    def test_prototypes_are_as_written(self):
        # The types of the generator, against the words of the header: how many parameters, which are pointers.
        for name, written in re.findall(r"\b(kalix_\w+)\(([^)]*)\);", CODE):
            with self.subTest(name):
                words = [] if written == "void" else written.split(",")
                kinds = [kind for _, kind in MODULE.FUNCTIONS[name][1]]
                pointers = [kind in (ctypes.c_void_p, ctypes.c_char_p) or hasattr(kind, "contents") for kind in kinds]
                self.assertEqual(pointers, ["*" in word or "[" in word for word in words])


if __name__ == "__main__":
    unittest.main()
