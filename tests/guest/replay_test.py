#!/usr/bin/python3
"""What portprobe records of a board, a replayed board sends again, and padtune prints the same lines of it."""

import pathlib
import re
import signal
import struct
import tempfile
import unittest

from guest import RUN_TIMEOUT, GuestTestCase, build_folder
from player import VirtualPlayer

DATA = pathlib.Path(__file__).resolve().parents[1] / "data"
BUTTONS = ("--button", "2-3", "--output-diagnostics", "x")


def printed_samples(run):
    """The diagnostic lines of a run, without their times."""
    return [line.split(":", 1)[1] for line in run.stderr.decode().replace("\r", "").split("\n") if ": BT" in line]


def recorded_samples(text):
    """The diagnostic lines that padtune makes of the reports behind the first setup of a recording."""
    samples, has_setup = [], False
    for report in re.findall(r"^E: \S+ 117 (02.*)$", text, re.MULTILINE):
        touches, *groups = struct.unpack("<29I", bytes.fromhex(report)[1:])
        if touches == 0xFFFF:
            has_setup = True
            continue
        for word, value1, value2, value3 in zip(*[iter(groups)] * 4):
            button, value4 = word & 0xFF, word >> 8 & 0xFF
            if has_setup and button:
                star = "*" if touches >> (button - 1) & 1 else " "
                samples.append(f" BT{button}: {value1:5} {value2:5} {value4:5} {value3:5} {star}")
    return samples


class RoundTrip(unittest.TestCase):
    def record_run(self, player, *arguments):
        """padtune's run, recorded: the run, and the recording."""
        recorder = player.start(["portprobe", "record", "TouchBoard-0-LED"])
        self.assertTrue(player.wait_for(lambda: b"recording\n" in recorder.stderr, RUN_TIMEOUT), recorder.stderr)
        run = player.start(["padtune", *BUTTONS, *arguments])
        run.close_input()
        return run, recorder

    def end(self, run, recorder):
        self.assertIn(run.wait(RUN_TIMEOUT), (0, 128 + signal.SIGTERM), run.stderr)
        recorder.kill()
        self.assertEqual(recorder.wait(RUN_TIMEOUT), 0, recorder.stderr)
        return recorder.stdout.decode()

    def test_padtune_prints_the_recorded_lines(self):
        with VirtualPlayer(boards=("KP120",), build=build_folder()) as player:
            run, recorder = self.record_run(player, "--timeout", "4", "--finger-threshold", "2,77")
            for line, star in (("touch 2", b"\\*"), ("release 2", b" ")):
                printed = len(run.stderr)
                player.boards[0].send(line)
                sample = re.compile(b"BT2:[ \\d]*" + star + b"\r?\n")
                self.assertTrue(player.wait_for(lambda: sample.search(run.stderr, printed), 30), run.stderr)
            recording = self.end(run, recorder)
        samples = printed_samples(run)
        infos = re.findall(rb"INFO.*", run.stderr)
        self.assertIn(b"INFO: Button Threshold 02 = 77", infos)
        self.assertGreater(len(samples), 20)

        with tempfile.NamedTemporaryFile("w", suffix=".hid") as file:
            file.write(recording)
            file.flush()
            with VirtualPlayer(boards=(f"replay:{file.name}",), build=build_folder()) as player:
                # Other thresholds than those of the recording: the board does not care.
                again, recorder = self.record_run(player, "--timeout", "60", "--finger-threshold", "2,20")
                player.boards[0].wait_for_record(" replay ends", RUN_TIMEOUT)
                self.assertTrue(player.wait_for(lambda: len(printed_samples(again)) >= len(samples), RUN_TIMEOUT))
                again.kill(signal.SIGTERM)
                copy = self.end(again, recorder)
        # What came after padtune's end was not printed, and the recording has no more of it than a report or two.
        self.assertEqual(printed_samples(again)[:len(samples)], samples)
        self.assertEqual(re.findall(rb"INFO.*", again.stderr), infos)
        self.assertEqual(copy.split("E:")[0], recording.split("E:")[0])


class Recordings(GuestTestCase):
    BOARDS = (f"replay:{DATA}/touches.hid", f"replay:{DATA}/lights.hid")

    def test_cable_and_refusals_take_only_what_comes_meanwhile(self):
        board = self.player.boards[0]
        expected = recorded_samples((DATA / "touches.hid").read_text())
        run = self.start_padtune("--timeout", "60", *BUTTONS)

        def wait_for_samples(count):
            self.assertTrue(self.player.wait_for(lambda: len(printed_samples(run)) >= count, RUN_TIMEOUT), run.stderr)

        wait_for_samples(20)
        board.unplug()
        board.plug()
        wait_for_samples(40)
        board.send("stall")
        wait_for_samples(60)
        board.send("unstall")
        board.wait_for_record(" replay ends", RUN_TIMEOUT)
        run.kill(signal.SIGTERM)
        run.wait(RUN_TIMEOUT)
        printed = printed_samples(run)
        self.assertInOrder(printed, expected)
        self.assertEqual(printed[:20], expected[:20])
        self.assertEqual(printed[-20:], expected[-20:])
        # The unplugged board stands still: what was on the bus, or dropped while the node was opened, is lost.
        self.assertGreater(len(printed), len(expected) - 10)

    def test_another_kind_of_board(self):
        name, lights = "LightController-0-DIAGNOSTICS", self.player.boards[1]
        lights.send("loop on\nspeed 2")
        watch = self.player.start(["portprobe", "watch", name])
        changes = [f"{name} value {index} 0x{value:08X}\n".encode() for index, value in
                   ((0, 100), (1, 0xFFFFFFFF), (0, 200), (7, 12), (0, 0), (1, 0), (7, 0), (0, 100))]
        # From the first change that it saw on, through the end and the beginning.
        pattern = re.compile(b"(?s)" + b".*".join(map(re.escape, changes)))
        self.assertTrue(self.player.wait_for(lambda: pattern.search(watch.stdout), RUN_TIMEOUT), watch.stdout)
        watch.kill()
        self.assertEqual(watch.wait(RUN_TIMEOUT), 0)
        listed = self.player.shell("portprobe list")
        self.assertRegex(listed, r"\nLightController-0-CONTROL +8 +0100 .*/dev/usb/hiddev1 ")
        self.assertRegex(listed, r"\nTouchBoard-0-LED +11 +0100 +hardware=KP480;header=no;revision=A;rheader=90 ")
        lights.send("speed 0")
        self.assertTrue(self.player.wait_for(lambda: "not a speed from 0.01 to 1000: 0" in lights.refusals.values(), 30))


if __name__ == "__main__":
    unittest.main()
