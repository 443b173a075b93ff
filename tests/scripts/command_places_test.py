#!/usr/bin/env python3
"""A 3D command has three places: its id and body, what the verifier asks of it, and the file of its kind in the
device, which holds its row and its handler. Whoever adds one touches these and nothing else."""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TYPES = ROOT / "include/kalix/svga3d_types.h"
VERIFIER = ROOT / "driver/objects/verifier.cpp"
NOT_ONE_COMMAND = {"SVGA_3D_CMD_BASE", "SVGA_3D_CMD_LAST"}


class CommandPlaces(unittest.TestCase):
    def test_each_command_has_its_three_places_and_no_other(self):
        ids = set(re.findall(r"\bSVGA_3D_CMD_\w+(?= *=)", TYPES.read_text(encoding="utf-8"))) - NOT_ONE_COMMAND
        self.assertGreater(len(ids), 20)
        verifier = VERIFIER.read_text(encoding="utf-8")
        device = {path.relative_to(ROOT): path.read_text(encoding="utf-8")
                  for path in sorted((ROOT / "device").rglob("*")) if path.suffix in (".h", ".cpp")}
        for command in sorted(ids):
            with self.subTest(command):
                named = re.compile(rf"\b{command}\b")
                self.assertRegex(verifier, named, "the verifier has no row for it and refuses it")
                places = [str(path) for path, text in device.items() if named.search(text)]
                self.assertEqual(len(places), 1, f"the device names it in {places}")
                self.assertTrue(places[0].startswith("device/commands/"), places)


if __name__ == "__main__":
    unittest.main()
