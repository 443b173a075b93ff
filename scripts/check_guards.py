#!/usr/bin/env python3
"""Takes each hold of a lock out of the sources, one at a time, and asks whether clang complains.

check_guards.py BUILD [FILE ...]: BUILD, a folder two below the sources' root, has clang's compile_commands.json. A hold that can go without a complaint
guards nothing that the compiler knows of: state without KALIX_GUARDED_BY, a function without KALIX_REQUIRES, or a
lock that nobody needs. Prints each such line and exits with 1 if there is one.
"""
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

HOLD = re.compile(r"^\s*(?:const )?(?:\w+_)?hold\s+\w+(?:\{.*\})?;")


def without(lines, number):
    return "".join("\n" if each == number else line for each, line in enumerate(lines))


def is_noticed(build, command, source, text):
    """Whether clang refuses the source with this text because of its locks."""
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", delete=False) as copy:
        copy.write(text)
    try:
        words = [copy.name if word == str(source) else word for word in shlex.split(command)]
        words = words[words.index(next(word for word in words if "clang" in word)):]
        ran = subprocess.run([*words, "-fsyntax-only", "-Wno-unused"], cwd=build, capture_output=True, text=True,
                             check=False)
        return "-Wthread-safety" in ran.stderr
    finally:
        os.unlink(copy.name)


def main():
    build, wanted = pathlib.Path(sys.argv[1]).resolve(), set(sys.argv[2:])
    rows = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    tries = []
    for row in rows:
        source = pathlib.Path(row["file"])
        name = str(source.relative_to(build.parent.parent))
        if name.startswith("tests/") or (wanted and name not in wanted):
            continue
        lines = source.read_text(encoding="utf-8").splitlines(keepends=True)
        tries += [(name, number, row["command"], source, lines) for number, line in enumerate(lines) if HOLD.match(line)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        noticed = list(pool.map(lambda one: is_noticed(build, one[2], one[3], without(one[4], one[1])), tries))
    missed = [f"{name}:{number + 1}: clang does not miss this hold" for (name, number, *_), seen in zip(tries, noticed)
              if not seen]
    print("\n".join(missed) or f"guards: clang misses each of {len(tries)} holds when it is taken out")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
