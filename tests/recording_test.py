#!/usr/bin/python3
"""The reader of recordings: what it takes, and with which line's number it refuses what cannot be played."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TOP / "virtual_player"))

import recording  # noqa: E402

HEAD = "R: 3 06 77 ff\nN: maker board\nP: usb-1/input0\nI: 3 084f 0480\n"


class Reader(unittest.TestCase):
    def setUp(self):
        self.path = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()), "board.hid")

    def read(self, text):
        self.path.write_bytes(text if isinstance(text, bytes) else text.encode())
        return recording.read(self.path)

    def test_lines_of_other_recorders_are_taken(self):
        found = self.read("# maker board\n" + HEAD.replace("\n", "\r\n") + "\n# missed 4\nD: 0\n"
                          "E: 000001.500000 2  01 Ff\nE: 000001.500000 1 02\nE: 3.000001 1 03\n")
        self.assertEqual((found.descriptor, found.name, found.vendor, found.product),
                         (b"\x06\x77\xff", "maker board", 0x84F, 0x480))
        self.assertEqual(found.reports, [(1_500_000, b"\x01\xff"), (1_500_000, b"\x02"), (3_000_001, b"\x03")])
        # Times count from the first report.
        self.assertEqual(found.pack(), b"\x4f\x08\x80\x04\x0b\0maker board\3\0\x06\x77\xff"
                         b"\0\0\0\0\0\0\0\0\2\0\x01\xff" b"\0\0\0\0\0\0\0\0\1\0\x02"
                         b"\x61\xe3\x16\0\0\0\0\0\1\0\x03")

    def test_what_cannot_be_played_is_refused_with_its_line(self):
        report = "E: 000000.000000 1 01\n"
        for text, where, why in (
                ("", 1, "there is no R: line"),
                (HEAD, 5, "there is no E: line"),
                (HEAD.replace("I:", "#I:") + report, 6, "there is no I: line"),
                (HEAD + "X: 1\n", 5, "not a line of a recording"),
                (HEAD + "hello\n", 5, "not a line of a recording"),
                (b"\x1f\x8b\x08\0\xff\n", 1, "not a line of a recording"),
                (HEAD + "R: 1 06\n", 5, "a second R: line"),
                ("R: 4 06 77 ff\n", 1, "4 bytes are announced, 3 follow"),
                ("R: 0\n", 1, "a length of 0 is not from 1 to 4096"),
                ("R: 1 6\n", 1, "not a length and bytes in hexadecimal"),
                ("I: 3 84f\n", 1, "not bus, vendor and product in hexadecimal"),
                ("I: 3 10000 1\n", 1, "not bus, vendor and product in hexadecimal"),
                ("D: 1\n", 1, "a recording of several devices"),
                (HEAD + report + "E: 000000.000001 2 01\n", 6, "2 bytes are announced, 1 follow"),
                (HEAD + report + "E: 000000.000001 1 01 0", 6,
                 "not seconds with six decimals, a length and bytes in hexadecimal"),
                (HEAD + "E: 1.5 1 01\n", 5, "not seconds with six decimals, a length and bytes in hexadecimal"),
                (HEAD + "E: 000001.000000 1 01\n" + report, 6, "its time is before that of the report above")):
            with self.subTest(text), self.assertRaises(recording.RecordingError) as caught:
                self.read(text)
            self.assertEqual(str(caught.exception), f"{self.path}:{where}: {why}")

    def test_launcher_refuses_before_anything_boots(self):
        self.path.write_text(HEAD + "E: 000000.000000 2 01\n")
        for arguments, why in (
                (["--board", f"replay:{self.path}"], f"virtual-player: {self.path}:5: 2 bytes are announced, 1 follow"),
                (["--board", "replay:none"], "virtual-player: none: No such file or directory"),
                (["--replay-speed", "0"],
                 "virtual-player: argument --replay-speed: 0 is not from 0.01 to 1000; virtual-player --help tells more")):
            launcher = subprocess.run(["/usr/bin/python3", TOP / "virtual_player/virtual-player", *arguments, "--",
                                       "true"], cwd=self.path.parent, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                      text=True)
            self.assertEqual((launcher.returncode, launcher.stdout, launcher.stderr.splitlines()[-1]), (125, "", why))
            self.assertNotIn("booting", launcher.stderr)


if __name__ == "__main__":
    unittest.main()
