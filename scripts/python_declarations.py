#!/usr/bin/env python3
"""Writes python/kalix/declarations.py: every constant, record and function of include/kalix/client.h and of the
headers that it includes, as ctypes has them.

python_declarations.py           writes the file anew: after every change of these headers
python_declarations.py --check   exits with 1 when the file is not what the headers say

The compiler's preprocessor ($CC, else cc) takes comments and conditions away; what is left of the public headers is
plain enough to be read word by word: enumerations, records, constants and prototypes. What is not understood ends the
script. tests/scripts/python_declarations_test.py compares the file with what a C program finds.
"""
import dataclasses
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
TARGET = ROOT / "python/kalix/declarations.py"
LINE_MAX = 120

SCALARS = {"char": "char", "float": "float", "int": "int", "int32_t": "int32", "size_t": "size_t", "uint8_t": "uint8",
           "uint16_t": "uint16", "uint32_t": "uint32", "uint64_t": "uint64"}
MARKER = re.compile(r'#\s*(?:line\s+)?\d+\s+"([^"]*)"')
WORD = re.compile(r'"[^"]*"|\w+|<<|[^\s\w]')
DECLARATOR = re.compile(r"(?P<stars>(?:\* )*)(?P<name>\w+)(?: \[ (?P<count>.+) \])?")

PREAMBLE = '''\
"""The constants, records and prototypes of libkalix, under their names in C.

Written by scripts/python_declarations.py from include/kalix/client.h and what it includes; not to be edited. What each
name means stands in these headers. A record takes its fields in order or by name, and nested ones as tuples:
svga3d_image(sid), svga3d_light(type=SVGA3D_LIGHTTYPE_POINT, diffuse=(1, 1, 1, 1)).
"""
# pylint: disable=invalid-name,too-many-lines
import ctypes as _c


class Record(_c.Structure):
    """A record of the C interface, which shows its fields."""

    def __repr__(self) -> str:
        values = ((name, getattr(self, name)) for name, *_ in self._fields_)
        shown = (f"{name}={value[:] if isinstance(value, _c.Array) else value!r}" for name, value in values)
        return f"{type(self).__name__}({', '.join(shown)})"

'''


@dataclasses.dataclass
class Declarations:
    """What the headers declare, in their order; types are the text of ctypes expressions."""
    enumerations: list[tuple[str, list[tuple[str, str]]]]
    constants: list[tuple[str, str]]
    records: list[tuple[str, list[tuple[str, str]]]]
    functions: list[tuple[str, str, list[tuple[str, str]]]]


def preprocessed() -> str:
    """The public headers' own lines, without comments and directives."""
    command = [os.environ.get("CC", "cc"), "-E", "-std=c11", f"-I{ROOT}/include", "-"]
    done = subprocess.run(command, input="#include <kalix/client.h>\n", check=True, capture_output=True, text=True)
    ours, kept = False, []
    for line in done.stdout.splitlines():
        if marker := MARKER.match(line):
            ours = "/include/kalix/" in marker.group(1)
        elif ours and not line.startswith("#"):
            kept.append(line)
    return "\n".join(kept)


def statements(text: str):
    """Each statement at the outermost level as its words, joined by single spaces, the semicolon left out."""
    depth, words = 0, []
    for word in WORD.findall(text):
        depth += {"{": 1, "(": 1, "[": 1, "}": -1, ")": -1, "]": -1}.get(word, 0)
        if word == ";" and depth == 0:
            yield " ".join(words)
            words = []
        else:
            words.append(word)


def number(text: str) -> str:
    """A constant expression, which is Python's as well but for its suffixes."""
    return re.sub(r"\b(0x[0-9A-Fa-f]+|\d+)[uU]\b", r"\1", text)


def typed(base: str, stars: int, count: str | None = None) -> str:
    """The ctypes expression of a type; an array has a count, of elements."""
    words = [word for word in base.split() if word not in ("const", "struct")]
    if words == ["void"]:
        stars, kind = stars - 1, "_c.c_void_p"
    elif words == ["char"] and stars == 1:
        stars, kind = 0, "_c.c_char_p"
    else:
        kind = f"_c.c_{SCALARS[words[0]]}" if words[0] in SCALARS else words[0]
    for _ in range(stars):
        kind = f"_c.POINTER({kind})"
    return f"{kind} * {count}" if count else kind


def declared(text: str) -> list[tuple[str, str]]:
    """The names and types of 'type declarator, declarator'."""
    base, first = re.match(r"((?:const |struct )*\w+) (.*)", text).groups()
    found = []
    for part in first.split(" , "):
        match = DECLARATOR.fullmatch(part)
        found.append((match["name"], typed(base, match["stars"].count("*"), match["count"])))
    return found


def parameters(text: str) -> list[tuple[str, str]]:
    """The names and types of a prototype's parameters; an array parameter is a pointer."""
    if text == "void":
        return []
    return [declared(re.sub(r"^(.*?)(\w+) \[ \w+ \]$", r"\1* \2", part))[0] for part in text.split(" , ")]


def parsed(text: str) -> Declarations:
    """What the headers' text declares; anything else than is known here is an error."""
    found = Declarations([], [], [], [])
    for statement in statements(text):
        if match := re.fullmatch(r"enum (\w+ )?{ (.*?)(?: ,)? }", statement):
            found.enumerations.append(((match[1] or "").strip(), enumerators(match[2])))
        elif match := re.fullmatch(r"static const uint32_t (\w+) = (.*)", statement):
            found.constants.append((match[1], number(match[2])))
        elif match := re.fullmatch(r"struct (\w+) { (.*) ; }", statement):
            found.records.append((match[1], [field for part in match[2].split(" ; ") for field in declared(part)]))
        elif match := re.fullmatch(r"typedef struct (\w+) \1", statement):
            found.records.append((match[1], []))
        elif match := re.fullmatch(r"((?:const )?\w+) ((?:\* )?)(kalix_\w+) \( (.*) \)", statement):
            result = "None" if match[1] == "void" and not match[2] else typed(match[1], match[2].count("*"))
            found.functions.append((match[3], result, parameters(match[4])))
        elif not statement.startswith("_Static_assert"):
            sys.exit(f"python_declarations.py: not understood: {statement}")
    return found


def enumerators(text: str) -> list[tuple[str, str]]:
    """The names and values of an enumeration; one without a value follows the one before it."""
    found: list[tuple[str, str]] = []
    for part in text.split(" , "):
        name, _, value = part.partition(" = ")
        found.append((name, number(value) or (f"{found[-1][0]} + 1" if found else "0")))
    return found


def wrapped(start: str, parts: list[str], end: str) -> str:
    """start, the parts and end, on one line or, where that is too long, filled behind an indent."""
    one = start + ", ".join(parts) + end
    if len(one) <= LINE_MAX:
        return one
    indent = " " * (len(start) - len(start.lstrip()) + 4)
    lines = [indent]
    for part in parts:
        if len(lines[-1]) + len(part) + len(end) > LINE_MAX:
            lines[-1] = lines[-1].rstrip()
            lines.append(indent)
        lines[-1] += part + ", "
    return "\n".join([start, *lines[:-1], lines[-1].rstrip(", ") + end])


def rendered(found: Declarations) -> str:
    """The module's text."""
    out = [PREAMBLE]
    out += [f"{name} = {value}" for name, value in found.constants]
    for name, members in found.enumerations:
        out += ["", f"# enum {name}" if name else "# no type of their own"]
        out += [f"{member} = {value}" for member, value in members]
    for name, fields in found.records:
        parts = [f'("{field}", {kind})' for field, kind in fields]
        ending = ",)" if len(parts) == 1 else ")"
        # Opaque to a caller: a type to point at, without fields.
        out += ["", "", f"class {name}(Record):", wrapped("    _fields_ = (", parts, ending if parts else ")")]
    out += ["", "", "# Each function's result, and its parameters' names and types.", "FUNCTIONS = {"]
    for name, result, given in found.functions:
        parts = [f'("{parameter}", {kind})' for parameter, kind in given]
        out.append(wrapped(f'    "{name}": ({result}, [', parts, "]),"))
    return "\n".join([*out, "}", ""])


def main() -> int:
    """Writes the file, or tells whether it is as it should be."""
    text = rendered(parsed(preprocessed()))
    if sys.argv[1:] == ["--check"]:
        if TARGET.read_text(encoding="utf-8") == text:
            return 0
        print(f"{TARGET.relative_to(ROOT)} is not what the headers say: run scripts/python_declarations.py")
        return 1
    TARGET.write_text(text, encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
