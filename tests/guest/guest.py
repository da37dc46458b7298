"""What guest tests stand on: a virtual player for each class, padtune as its user runs it, the records, the screen.

    class CompleteRun(GuestTestCase):
        BOARDS = ("KP480S",)

        def test_resets_the_board_at_the_end(self):
            run = self.padtune("--timeout", "0")
            self.assertEqual(run.status, 0)
            self.assertEqual(self.events()[-1], "reset")

The programs come from the build folder in PADTUNE_BUILD, by default that of the arm64 preset.
"""

import os
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "virtual_player"))

from player import DEFAULT_BUILD, VirtualPlayer  # noqa: E402

RUN_TIMEOUT = 90

# DirectFB keeps some memory to the end of the process, which is not padtune's leak, and the search takes long in the
# guest. The tests on this machine search.
SANITIZER_OPTIONS = {"ASAN_OPTIONS": "detect_leaks=0", "UBSAN_OPTIONS": "print_stacktrace=1"}


def build_folder():
    return pathlib.Path(os.environ.get("PADTUNE_BUILD", DEFAULT_BUILD)).absolute()


class GuestTestCase(unittest.TestCase):
    """Tests that share one guest, one after the other; what they need of it is said in the class."""

    BOARDS = ("KP480",)
    GPIO = False
    DEVICE_TREE = None
    SCREEN = (1280, 720)
    VIDEO_MODE = "1280x720x60p"
    PACKAGES = ()  # files of Debian packages to run, rather than what is in the build folder
    FILES = {}  # more files to take along: {path in the guest: path below the build folder}

    @classmethod
    def setUpClass(cls):
        build = build_folder()
        files = {target: build / source for target, source in cls.FILES.items()}
        cls.player = cls.enterClassContext(VirtualPlayer(screen=cls.SCREEN, video_mode=cls.VIDEO_MODE,
                                                         boards=cls.BOARDS, gpio=cls.GPIO, device_tree=cls.DEVICE_TREE,
                                                         build=build, packages=cls.PACKAGES,
                                                         files=files))

    @classmethod
    def tearDownClass(cls):
        if "PADTUNE_COVERAGE" in os.environ:
            # In the guest the build folder holds nothing but the counters, at the same paths as here.
            archive = cls.player.run(["tar", "-c", "-C", "/", str(build_folder().relative_to("/"))]).stdout
            subprocess.run(["tar", "-x", "-C", "/"], input=archive, check=True)

    def setUp(self):
        self.player.clear_screen()
        self._earlier_records = [len(board.records) for board in self.player.boards]

    def start_padtune(self, *arguments, environment=None):
        """padtune, started; it is killed at the end of the test if it still runs."""
        command = self.player.start(["padtune", *arguments], environment={**SANITIZER_OPTIONS, **(environment or {})})
        command.close_input()
        self.addCleanup(self._end, command)
        return command

    def padtune(self, *arguments, environment=None):
        """padtune, run to its end: `status`, `stdout` and `stderr` tell how it went."""
        command = self.start_padtune(*arguments, environment=environment)
        command.wait(RUN_TIMEOUT)
        return command

    def events(self, board=0):
        """The board's records since the test began, without their times."""
        records = self.player.boards[board].records[self._earlier_records[board]:]
        return [record.split(" ", 1)[1] for record in records if record[0].isdigit()]

    def wait_for_event(self, text, board=0):
        """Waits for a record of this test that contains `text`."""
        self.player.boards[board].wait_for_record(text, start=self._earlier_records[board])

    def picture(self):
        """What the screen shows now."""
        return self.player.screen()

    def assertInOrder(self, expected, events):
        """Every one of `expected` occurs in `events`, in this order, whatever stands between them."""
        remaining = iter(events)
        for event in expected:
            self.assertIn(event, remaining, f"missing, or out of order, in {events}")

    @staticmethod
    def _end(command):
        if command.status is None:
            command.kill(9)
            command.wait(10)
