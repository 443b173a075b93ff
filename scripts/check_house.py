#!/usr/bin/env python3
"""Checks that includes follow the arrows between rooms, that macros stay in their two headers, and that every log
line has a format of its own (lines of one format are limited together)."""
import re
import subprocess
import sys

DEVICE_LIBRARY = "hardware/gpu/vmware_svga/lib/"
DRIVER = "hardware/gpu/vmware_svga/gpu/kalix/"
FACE = [DEVICE_LIBRARY + name for name in ("svga.h", "svga3d.h", "svga_regs.h")]

# Room by path prefix (the first that fits), and the prefixes that it may include besides itself and base/.
ROOMS = [
    (DRIVER, ["platform/", *FACE, "kalix/protocol.h", "kalix/svga3d_types.h", "kalix/svga3d_formats.h",
              "kalix/status.h", "kalix/rundir.h"]),
    (DEVICE_LIBRARY + "guest/", [*FACE, DEVICE_LIBRARY + "bus/", "kalix/svga3d_types.h"]),
    (DEVICE_LIBRARY + "device/", [DEVICE_LIBRARY + "bus/", DEVICE_LIBRARY + "svga_regs.h", "kalix/svga3d_types.h",
                                  "kalix/screen.h", "kalix/rundir.h"]),
    (DEVICE_LIBRARY + "bus/", [DEVICE_LIBRARY + "svga_regs.h"]),
    (DEVICE_LIBRARY, [*FACE, "kalix/svga3d_types.h"]),
    ("platform/", ["kalix/protocol.h", "kalix/rundir.h"]),
    ("client/", ["kalix/"]),
    ("tools/ctl/", ["tools/", "kalix/", "platform/store/store.h"]), # the zoom lies in the store
    ("tools/", ["kalix/"]),
    ("include/kalix/", ["kalix/"]),
    ("base/", []),
]
MACRO_HEADERS = {"base/lock.h", DRIVER + "assert.h"}
VECTOR_MACRO = re.compile(r"\bdefine KALIX_\w+_INL\b")  # how the vector library builds for each set
INCLUDE = re.compile(r'^\s*#\s*include\s+["<]([^">]+)[">]')
NO_FORMAT = re.compile(r'\bslogf(?:_always)?\(\s*[\w:]+,\s*[\w:]+,\s*"(?:%s[:"]|kalix: %s:)')
OURS = ("hardware/", "platform/", "client/", "tools/", "base/", "kalix/")


def problems_of(path, room, allowed):
    with open(path, encoding="utf-8") as source:
        # Start-up's failures come once.
        if path.startswith((DRIVER, "platform/")) and path != DRIVER + "startup.cpp" and NO_FORMAT.search(source.read()):
            yield f"{path}: a log line without a format of its own"
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            if re.match(r"\s*#\s*define\b", line) and path not in MACRO_HEADERS and not VECTOR_MACRO.search(line):
                yield f"{path}:{number}: a macro"
            found = INCLUDE.match(line)
            name = found.group(1) if found else ""
            if name.startswith(OURS) and not name.startswith((room, "base/", *allowed)):
                yield f"{path}:{number}: {name} is not this room's to include"


def main():
    files = subprocess.run(["git", "ls-files", "*.h", "*.hpp", "*.cpp", "*.c"], check=True, capture_output=True,
                           text=True).stdout.split()
    problems = []
    for path in files:
        for room, allowed in ROOMS:
            if path.startswith(room):
                problems += problems_of(path, room, allowed)
                break
    print("\n".join(problems) or "lint: every include follows the arrows", file=sys.stderr if problems else sys.stdout)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
