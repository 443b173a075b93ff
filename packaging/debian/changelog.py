#!/usr/bin/env python3
"""CHANGELOG.md in the form that Debian reads, compressed.

changelog.py SOURCE_DIR VERSION MAINTAINER OUTPUT

Each "## NAME" becomes an entry; what is unreleased belongs to the version that is packaged. The date is
SOURCE_DATE_EPOCH, else that of the last commit to the file, else that of the file, so that one source gives the same
bytes.
"""
import email.utils
import gzip
import os
import pathlib
import re
import subprocess
import sys
import textwrap


def date_of(file):
    if given := os.environ.get("SOURCE_DATE_EPOCH"):
        return int(given)
    commit = subprocess.run(["git", "log", "-1", "--format=%ct", "--", file.name], cwd=file.parent, check=False,
                            capture_output=True, text=True)
    return int(commit.stdout) if commit.returncode == 0 and commit.stdout.strip() else int(file.stat().st_mtime)


def points_of(file, packaged):
    """The points of each version, the latest first."""
    versions = {packaged: []}
    parts = re.split(r"^## (.+)$", file.read_text(encoding="utf-8"), flags=re.MULTILINE)[1:]
    for name, text in zip(parts[::2], parts[1::2]):
        version = packaged if name == "Unreleased" else name.split()[0]
        versions.setdefault(version, []).extend(re.split(r"^- ", text, flags=re.MULTILINE)[1:])
    return versions


def entry(version, points, maintainer, date):
    lines = [textwrap.fill(" ".join(point.split()), 78, initial_indent="  * ", subsequent_indent="    ",
                           break_long_words=False, break_on_hyphens=False) for point in points]
    return "\n".join([f"kalix ({version}) unstable; urgency=medium\n", *lines, f"\n -- {maintainer}  {date}\n"])


def main(source, version, maintainer, output):
    file = pathlib.Path(source) / "CHANGELOG.md"
    upstream, _, revision = version.partition("-")
    date = email.utils.formatdate(date_of(file))
    entries = [entry(f"{name}-{revision}", points, maintainer, date)
               for name, points in points_of(file, upstream).items()]
    output = pathlib.Path(output)
    output.parent.mkdir(parents=True, exist_ok=True)
    output.write_bytes(gzip.compress("\n".join(entries).encode(), 9, mtime=0))


if __name__ == "__main__":
    main(*sys.argv[1:])
