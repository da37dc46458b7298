#!/usr/bin/python3
"""What the launcher refuses: every mistake is told before anything boots, in words that say what would be right."""

import os
import pathlib
import subprocess
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[1]
OWN_FAILURE = 125

REFUSED = (
    ((), "there is no command; the first one to try: virtual-player padtune --timeout 3"),
    (("--bogus", "true"), "unrecognized arguments: --bogus"),
    (("--screen", "0x0", "true"), "no size of a screen such as 1280x720"),
    (("--screen", "99999x99999", "true"), "from 160 to 4096"),
    (("--boards", "-1", "true"), "from 1 to 8; for none: --no-board"),
    (("--boards", "9", "true"), "from 1 to 8"),
    (("--board", "KP480", "--board", "KP120", "--boards", "5", "true"), "10 boards; the player's bus has ports for 8"),
    (("--no-board", "--board", "KP480", "true"), "--no-board goes with neither --board nor --boards"),
    (("--picture", "@3", "true"), "no file and seconds such as page.png@6"),
    (("--picture", "page.png@nan", "true"), "no file and seconds such as page.png@6"),
    (("--picture", "missing/page.png@3", "true"), "'missing/page.png' cannot be written"),
    (("--record", "missing/record", "true"), "'missing/record' cannot be written"),
    (("--record", "folder", "true"), "'folder' cannot be written"),
    (("--env", "NAME", "true"), "no variable such as NAME=value"),
    (("--scenario", "missing", "true"), "missing: "),
    (("--scenario", "not-utf-8", "true"), "not-utf-8: "),
    (("--scenario", "nan", "true"), "line 2 is not a step of a scenario, such as \"2.5 touch 3\": nan touch 3"),
    (("--scenario", "picture", "true"), "'missing/page.png' cannot be written"),
    (("--device-tree", "not-utf-8", "true"), "not-utf-8: "),
    (("--device-tree", "large", "true"), "property revision of the device tree: not texts, not numbers from 0 to "),
    (("--device-tree", "relative", "true"), "'player' is no path of a node"),
)

FILES = {
    "not-utf-8": b"\xff\n",
    "nan": b"# a comment\nnan touch 3\n",
    "picture": b"1 picture missing/page.png\n",
    "large": b'{"/player": {"revision": 4294967296}}',
    "relative": b'{"player": {"revision": 3}}',
}


class Refusals(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        pathlib.Path(self.folder, "folder").mkdir()
        for name, content in FILES.items():
            pathlib.Path(self.folder, name).write_bytes(content)

    def run_in_folder(self, program, arguments, **environment):
        return subprocess.run([TOP / program, *arguments], cwd=self.folder, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, env={**os.environ, **environment})

    def test_a_mistake_is_told_before_anything_boots(self):
        for arguments, words in REFUSED:
            with self.subTest(arguments):
                run = self.run_in_folder("virtual_player/virtual-player", arguments)
                self.assertEqual(run.returncode, OWN_FAILURE, run.stderr)
                self.assertIn(words, run.stderr)
                self.assertNotIn("Traceback", run.stderr)
                self.assertNotIn("booting", run.stderr)

    def test_missing_programs_and_packages_say_what_installs_them(self):
        python = pathlib.Path(self.folder, "python3")
        python.symlink_to("/usr/bin/python3")
        launcher = str(TOP / "virtual_player/virtual-player")
        for environment, words in (({"PATH": self.folder}, "not installed: qemu-system-aarch64, "),
                                   ({"PADTUNE_CACHE": self.folder}, "is missing: run scripts/setup")):
            with self.subTest(words):
                run = subprocess.run([python, launcher, "true"], capture_output=True, text=True,
                                     env={**os.environ, **environment})
                self.assertEqual(run.returncode, OWN_FAILURE)
                self.assertIn(words, run.stderr)
                self.assertIn("run scripts/setup", run.stderr)
                self.assertNotIn("Traceback", run.stderr)


if __name__ == "__main__":
    unittest.main()
