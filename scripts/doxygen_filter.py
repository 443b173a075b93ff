#!/usr/bin/env python3
"""Reads a public header as a reader does: doxygen_filter.py FILE prints it with its comments marked as doxygen's.

  - The first comment is the file's. One that stands before a line of code is that line's, one behind code is that of
    what stands before it; a section's rule and a comment before an empty line are nobody's.
  - One behind a field is that of every name on its line; one behind "struct name {" is the record's.
  - A name that means the same wherever it stands is explained once, in a comment of its header, as
    " *   name, name  what"; a field without a comment of its own takes it from there.
  - A function of client.hpp without a comment says which call of client.h it makes.

Lines keep their numbers, so that a warning names the header's own.
"""
import pathlib
import re
import sys

EXPLAINED = re.compile(r"^ \*   (\w+(?:, \w+)*)  +(\S.*)$", re.MULTILINE)
FIELD = re.compile(r"(?P<type>(?:const |struct )*\w+) (?P<names>\**\w+(?:\[[^]]+\])*(?:, \**\w+(?:\[[^]]+\])*)*);")
RECORD = re.compile(r"\s*(?:struct|enum)(?: \w+)? \{")
FUNCTION = re.compile(r"(?:    )?(?!private|public|namespace|return|else|switch|case|default)[a-z~].*\(")
SPECIAL = {
    re.compile(r"\s+~\w+\(\)"): "Gives back what it owns.",
    re.compile(r"\s+(\w+)\(\1&& other\)"): "Takes over what the other owns, which then owns nothing.",
    re.compile(r"\s+\w+& operator=\(\w+&& other\)"): "Takes over what the other owns, and leaves it its own.",
}


def fields(code: str, comment: str, names: dict[str, str]) -> str:
    """Each field of the code alone, with the comment or the explanation of its name."""
    def apart(match: re.Match) -> str:
        parts = []
        for name in match["names"].split(", "):
            text = comment or names.get(re.match(r"\**(\w+)", name)[1], "")
            parts.append(f"{match['type']} {name};" + (f" /**< {text} */" if text else ""))
        return " ".join(parts)
    return FIELD.sub(apart, code)


def c_header(lines: list[str]) -> list[str]:
    """A header of C."""
    out: list[str] = []
    names = {name: what.removesuffix(" */") for listed, what in EXPLAINED.findall("\n".join(lines))
             for name in listed.split(", ")}
    in_record = False
    while len(out) < len(lines):
        at = len(out)
        code, opened, comment = lines[at].partition("/*")
        block = [comment]
        while opened and "*/" not in block[-1]:
            block.append(lines[at + len(block)])
        end = at + len(block)
        text = " ".join(" ".join(block).partition("*/")[0].replace("\n", " ").split())
        if not opened or code.strip():
            if RECORD.match(code):
                in_record, start = "}" not in code, f"/** {text} */ " if text else ""
                inner = code if code.startswith("enum") else fields(code, "", names)
                out.append(start + inner)
            elif in_record and FIELD.search(code):
                out.append(fields(code, text, names))
            else:
                out.append(code + (f"/**< {text} */" if text else ""))
            in_record = in_record and not code.startswith("}")
            out += [""] * (end - len(out))
            continue
        if at == 0:
            block[-1] = block[-1].replace("*/", "@file */")
        owned = at == 0 or (end < len(lines) and lines[end].strip() and not text.startswith("----"))
        out += [code + ("/**" if owned else "/*") + block[0], *block[1:]]
    return out


def body(lines: list[str], at: int) -> str:
    """A function's text: its one line, or all to the brace that closes it."""
    if lines[at].endswith(("}", ";")):
        return lines[at]
    closing = re.match(" *", lines[at])[0] + "}"
    return "".join(lines[at:lines.index(closing, at)])


def derived(lines: list[str], at: int) -> str:
    """What a function without a comment says of itself."""
    for special, text in SPECIAL.items():
        if special.match(lines[at]):
            return f"/** {text} */ "
    calls = dict.fromkeys(re.findall(r"\b(kalix_\w+)\(", body(lines, at)))
    return f"/** Calls {' and '.join(f'{call}()' for call in calls)}. */ " if calls else ""


def cpp_header(lines: list[str]) -> list[str]:
    """A header of C++, whose comments are //."""
    out: list[str] = []
    for at, line in enumerate(lines):
        before = lines[at - 1].strip() if at else ""
        code, opened, text = line.partition("// ")
        if opened and not code.strip():
            below = next(each for each in lines[at:] if not each.lstrip().startswith("//"))
            is_file = all(each.startswith("//") for each in lines[:at])
            owned = is_file or (below.strip() and not text.startswith("----"))
            ends = is_file and not lines[at + 1].startswith("//")
            out.append(code + ("/// " if owned else "// ") + text + (" @file" if ends else ""))
        elif opened and code.rstrip().endswith((";", ",", "}")):
            out.append(f"{code}///< {text}")
        elif FUNCTION.match(line) and not before.startswith("//") and not before.startswith("template"):
            out.append(derived(lines, at) + line)
        else:
            out.append(line)
    return out


def main() -> None:
    """Prints the file of the command line."""
    path = pathlib.Path(sys.argv[1])
    lines = path.read_text(encoding="utf-8").split("\n")
    print("\n".join((cpp_header if path.suffix == ".hpp" else c_header)(lines)), end="")


if __name__ == "__main__":
    main()
