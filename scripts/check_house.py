#!/usr/bin/env python3
"""The rules of the house that a compiler does not know.

check_house.py [ROOT]: prints each breach as "file:line: what" and exits with 1 if there is one. Which room may
include which is read from the table in docs/architecture.md, so that the page and the check are one. Each rule
has its case in tests/scripts/check_house_test.py.
"""
import pathlib
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]')
DEFINE = re.compile(r"^\s*#\s*define\b")
ROOM_ROW = re.compile(r"^\| `([^`]+/)` \|.*\|\s*([^|]*?)\s*\|$")
LEFTOVER = re.compile(r"std::(?:cout|cerr|clog)\b|^\s*#\s*if 0\b|\b(?:TODO|FIXME|XXX)\b|__builtin_trap|\bDISABLED_")
# Lines of one format are limited together, so a format that is all argument lets one line's flood hide another.
# Start-up's failures come once.
NO_FORMAT = re.compile(r'\bslogf(?:_always)?\(\s*[\w:]+,\s*[\w:]+,\s*"(?:%s[:"]|kalix: %s:)')
FORMATS_IN, FORMATS_BUT = ("driver/", "platform/"), "driver/startup.cpp"
FILE_LINES_MAX = 700

# The assertion, the lock annotations, and how the vector library builds a file for each instruction set.
MACRO_HEADERS = {"base/lock.h", "driver/state/assert.h"}
VECTOR_GUARD = re.compile(r"\bdefine KALIX_\w+_INL\b")

# Headers that do not come with the C++ language, by the start of their name, and the rooms that may use them.
FOREIGN = [
    ("CLI/", ("tools/command_line",)),
    ("fmt/", ("tools/", "device/")),
    ("nlohmann/", ("tools/ctl/", "tests/")),
    ("png.h", ("tools/picture/", "tests/")),
    ("SDL", ("tools/view/",)),
    ("rfb/", ("tools/view/",)),
    ("hwy/", ("device/raster/",)),
    ("gtest/", ("tests/",)),
    ("gmock/", ("tests/",)),
    ("benchmark/", ("bench/",)),
    # C's own headers serve the faces that C programs include.
    *[(name, ("include/kalix/", "svga/", "tests/", "client/", "examples/"))
      for name in ("assert.h", "stddef.h", "stdint.h", "stdio.h", "stdlib.h", "string.h")],
    ("pthread.h", ("platform/", "client/", "device/", "tests/")),  # the device names its threads and blocks signals
    # All others are the host's: the driver and the raster core work without them.
    ("", ("base/", "platform/", "client/", "device/state/", "include/kalix/", "tools/", "tests/")),
]
NO_FOREIGN = re.compile(r"^[a-z_0-9]+$")  # the language's own headers have neither folder nor suffix


class House:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=root, check=True,
                                capture_output=True, text=True).stdout.split("\n")
        self.files = {name for name in listed if name and (self.root / name).is_file()}
        self.sources = sorted(name for name in self.files if name.endswith((".h", ".hpp", ".cpp", ".c")))
        self.text = {name: (self.root / name).read_text(encoding="utf-8").splitlines() for name in self.sources}
        self.arrows = self.read_arrows()

    def read_arrows(self):
        page = (self.root / "docs/architecture.md").read_text(encoding="utf-8").splitlines()
        rows = (ROOM_ROW.match(line) for line in page)
        return {row.group(1): re.findall(r"`([^`]+)`", row.group(2)) for row in rows if row}

    def room_of(self, name):
        fitting = [room for room in self.arrows if name.startswith(room)]
        return max(fitting, key=len, default=None)

    def breaches(self):
        for name in self.sources:
            for number, line in enumerate(self.text[name], 1):
                for problem in self.breaches_of_line(name, line):
                    yield f"{name}:{number}: {problem}"
            if len(self.text[name]) > FILE_LINES_MAX:
                yield f"{name}:{FILE_LINES_MAX}: a file of more than {FILE_LINES_MAX} lines"
            shared = NO_FORMAT.search("\n".join(self.text[name]))
            if shared and name.startswith(FORMATS_IN) and name != FORMATS_BUT:
                line = shared.string.count("\n", 0, shared.start()) + 1
                yield f"{name}:{line}: a log line without a format of its own"
        yield from self.dead_files()

    def breaches_of_line(self, name, line):
        if DEFINE.match(line) and name not in MACRO_HEADERS and not VECTOR_GUARD.search(line):
            yield "a macro"
        if LEFTOVER.search(line) and not name.startswith("tools/"):
            yield f"left over: {LEFTOVER.search(line).group(0).strip()}"
        found = INCLUDE.match(line)
        if not found:
            return
        quoted, target = found.group(1) == '"', found.group(2)
        if target.startswith("kalix/"):
            target = "include/" + target
            yield from self.arrow(name, target)
        elif quoted and "/" in target and ".." not in target:
            yield from self.arrow(name, target)
        elif quoted and not name.startswith("svga/"):  # the C face's headers stand beside each other
            yield f"{target} is included by a relative path"
        elif not quoted and not NO_FOREIGN.match(target):
            rooms = next(rooms for start, rooms in FOREIGN if target.startswith(start))
            if not name.startswith(rooms):
                yield f"<{target}> does not belong into this room"

    def arrow(self, name, target):
        own, other = self.room_of(name), self.room_of(target)
        if own is None:
            yield "lies in no room of docs/architecture.md"
        elif other is None or (other != own and not {other, target, "any"} & set(self.arrows[own])):
            yield f"{target} is not this room's to include"

    def dead_files(self):
        lists = {name: (self.root / name).read_text(encoding="utf-8") for name in self.files
                 if name.endswith("CMakeLists.txt")}
        included = {match.group(2) for lines in self.text.values() for match in map(INCLUDE.match, lines) if match}
        for name in self.sources:
            path = pathlib.PurePosixPath(name)
            if path.suffix in (".cpp", ".c"):
                known = any(self.is_listed(path, folder, lists) for folder in path.parents)
            else:
                known = bool({name, name.removeprefix("include/"), path.name} & included)
            if not known:
                yield f"{name}:1: nothing builds or includes it"

    @staticmethod
    def is_listed(path, folder, lists):
        text = lists.get(str(folder / "CMakeLists.txt").removeprefix("./"), "")
        below = str(path.relative_to(folder))
        # A test may be named without its ending, and through a list of such names.
        names = {below, below.removesuffix(path.suffix), below.removesuffix("_test" + path.suffix)}
        return bool(names & set(re.findall(r"[\w./-]+", text)))


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent
    found = list(House(root).breaches())
    print("\n".join(found) or "house: rooms, arrows and macros are as docs/architecture.md says")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
