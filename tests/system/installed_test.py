#!/usr/bin/env python3
"""What is installed beside programs: manual pages, completions and units, each asked of who will read it.

installed_test.py BUILD_DIR CMAKE
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BUILD, CMAKE = sys.argv[1:3]
TOOLS = ("kalixctl", "kalix-run", "kalix-demo", "kalix-view", "kalix-bench")


def run(*words, **options):
    options = {"check": True, "capture_output": True, "text": True, "timeout": 60} | options
    return subprocess.run([str(word) for word in words], **options)


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.prefix = pathlib.Path(cls.folder.name)
        for part in ("server", "library", "development", "tools"):
            run(CMAKE, "--install", BUILD, "--prefix", cls.prefix, "--component", part)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def words_of(self, tool):
        """The options and commands in the help of a program and of its commands."""
        helps = [run(self.prefix / "bin" / tool, "--help").stdout]
        listed = helps[0].partition("Subcommands:")[2].partition("\n\n")[0]
        commands = re.findall(r"^  ([a-z]+) +\S", listed, re.MULTILINE)
        helps += [run(self.prefix / "bin" / tool, command, "--help").stdout for command in commands]
        return set(commands) | set(re.findall(r"^ +(?:-h,)?(--[a-z-]+)", "\n".join(helps), re.MULTILINE))

    def completed(self, tool, *words):
        """What bash offers for the last word."""
        script = self.prefix / "share/bash-completion/completions" / tool
        line = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); compopt() { :; }; '
        name = "_" + tool.replace("-", "_")
        return run("bash", "-c", line + name + '; printf "%s\\n" "${COMPREPLY[@]}"', "bash", script, tool,
                   *words).stdout.split()

    def test_every_word_stands_in_page_and_completions(self):
        places = "share/man/man1/{}.1", "share/bash-completion/completions/{}", "share/zsh/site-functions/_{}", \
                 "share/fish/vendor_completions.d/{}.fish"
        for tool in TOOLS:
            words = self.words_of(tool)
            self.assertIn("--help", words)
            for place in places:
                text = (self.prefix / place.format(tool)).read_text("utf-8").replace("\\-", "-")
                for word in words:
                    as_fish = f"-l {word[2:]} " if place.endswith(".fish") and word.startswith("--") else word
                    self.assertIn(as_fish, text, place.format(tool))
        self.assertLess({"dump", "--raw", "--json", "--stride"}, self.words_of("kalixctl"))

    def test_pages_are_formatted_without_a_warning(self):
        pages = sorted((self.prefix / "share/man").rglob("*.[18]"))
        self.assertEqual(len(pages), len(TOOLS) + 1)
        for page in pages:
            told = run("man", "--warnings", "-l", page, env=os.environ | {"LC_ALL": "C.UTF-8", "MANWIDTH": "80"})
            self.assertEqual(told.stderr, "", page)
            self.assertIn("SEE ALSO", told.stdout)

    def test_bash_completes(self):
        self.assertEqual(self.completed("kalixctl", "li"), ["list"])
        self.assertEqual(self.completed("kalixctl", "--json", "screenshot", "--no"), ["--no-cursor"])
        self.assertEqual(self.completed("kalixctl", "bytes", "7", "--raw"), [])
        self.assertIn("/etc/passwd", self.completed("kalixctl", "dump", "7", "/etc/passw"))
        self.assertEqual(self.completed("kalix-demo", "--size", "64x64", "mes"), ["mesh"])
        for line in ("--run-dir", "/us"), ("--run-dir", "=", "/us"):
            self.assertEqual(self.completed("kalix-run", *line), ["/usr"])
        self.assertIn("readelf", self.completed("kalix-run", "--", "readel"))

    def test_other_shells_take_theirs(self):
        fish = self.prefix / "share/fish/vendor_completions.d/kalixctl.fish"
        told = run("fish", "--no-config", "-c", f'source {fish}; complete -C "kalixctl dump --ra"').stdout
        self.assertTrue(told.startswith("--raw\t"), told)
        for tool in TOOLS:
            run("zsh", "-f", "-n", self.prefix / "share/zsh/site-functions" / f"_{tool}")

    def test_units_are_sound(self):
        units = self.prefix / "lib/systemd/system"
        names = [str(units / name) for name in ("kalix.service", "kalix.socket", "kalix@.service", "kalix@.socket")]
        self.assertEqual(sorted(map(str, units.iterdir())), sorted(names))
        told = run("systemd-analyze", "verify", "--man=no", *names, check=False)
        self.assertEqual((told.returncode, told.stderr), (0, ""))
        # Tenths of systemd's scale, where 10 is no sandbox at all.
        run("systemd-analyze", "security", "--offline=true", "--no-pager", "--threshold=10", names[0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
