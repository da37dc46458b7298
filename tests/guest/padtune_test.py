#!/usr/bin/python3
"""padtune on the virtual player, run as its user runs it."""

import hashlib
import re
import signal
import time
import unittest

from guest import RUN_TIMEOUT, GuestTestCase

BACKGROUND = (0, 0, 17)
BLACK = (0, 0, 0)
GREEN = (0, 255, 0)
RED = (255, 0, 0)
ORANGE = (255, 127, 0)
BLUE = (0, 119, 255)
VIOLET = (238, 130, 238)

# Where things are on a page of 1280x720: the line below the title, and the strip at the bottom.
PAGE_TOP, STRIP_TOP = 166, 630

DEMO = ("--timeout", "8", "--button", "1-11", "--output-diagnostics", "demo", "--finger-threshold", "1-11,40",
        "--led-mask", "1,0,0x1", "--led-mask", "2-4,3,0x3")


def commands(words):
    return [f"command 0x{word:08X}" for word in words]


def seconds(record):
    return float(record.split()[0])


class PadtuneTestCase(GuestTestCase):
    def colours(self, **area):
        return self.picture().colours(**area)

    @staticmethod
    def lines(run):
        """What padtune printed on standard error, without what DirectFB says about the guest's display."""
        return [line for line in run.stderr.decode().splitlines() if not line.lstrip().startswith("(!")]

    def assertMessage(self, colour, top):
        """The page ends in a black area from `top` down, with a text in `colour` and nothing else."""
        area = self.colours(top=top)
        self.assertGreater(area[BLACK], sum(area.values()) * 0.9)
        self.assertIn(colour, area)
        self.assertNotIn(BACKGROUND, area)

    def wait_for_state(self, text):
        """Waits until the board's state contains `text`."""
        for _ in range(50):
            seen = len(self.player.boards[0].records)
            self.player.boards[0].send("state")
            number = self.player.boards[0].wait_for_record(" state ", start=seen)
            if text in self.player.boards[0].records[number]:
                return
            time.sleep(0.1)
        self.fail(f"no '{text}' in {self.player.boards[0].records[number]}")

    def replug(self, *lines):
        board = self.player.boards[0]
        board.unplug()
        for line in lines:
            board.send(line)
        board.plug()


class CompleteRun(PadtuneTestCase):
    def test_commands_lines_and_pages_of_a_run(self):
        start = len(self.player.boards[0].records)
        run = self.start_padtune(*DEMO)
        self.wait_for_event("setup-request")
        self.player.boards[0].send("touch 3")
        self.player.boards[0].send("touch 9")
        self.wait_for_event("led 4 ")
        page = self.picture()
        self.assertEqual(run.wait(RUN_TIMEOUT), 0)
        final = self.picture()

        # The first thing that the board is asked is which model it is.
        expected = commands([0xAC])
        expected += commands([0xC2 | button << 8 for button in range(1, 12)])
        expected += commands([0xA5 | button << 8 | 40 << 16 for button in range(1, 12)])
        expected += ["led 1 0x00000001", "setup-request", "led 2 0x00000003", "led 3 0x00000003",
                     "led 4 0x00000003", "reset"]
        records = [record for record in self.player.boards[0].records[start:]
                   if re.search(r" (command|led|setup-request|reset|button-mask|led-mask)", record)]
        events = [record.split(" ", 1)[1] for record in records]
        named = [event for event in events if event not in commands([0x000100C1, 0x000000C0])]
        self.assertEqual(named, expected)
        for earlier, later in zip(records, records[1:]):
            if earlier.split()[1:] != later.split()[1:] and "request" not in later and "reset" not in later:
                self.assertGreater(seconds(later) - seconds(earlier), 0.05, f"{earlier} -> {later}")

        lines = self.lines(run)
        self.assertInOrder(["INFO: Button Threshold 01 = 40", "INFO: Button Threshold 11 = 40",
                            "UNKNOWN param 173 0"], lines)
        self.assertInOrder(["SetButtonMask: START: BT1: 1", "SetButtonMask:    3: BT2: 3",
                            "SetButtonMask:    3: BT4: 3"], lines)
        samples = [line for line in lines if re.fullmatch(r" \d\.\d{3}: BT\d+:( +-?\d+){4} [* ]", line)]
        self.assertTrue(any("BT3:" in line and line.endswith("*") for line in samples), lines)
        self.assertTrue(any("BT1:" in line and line.endswith(" ") for line in samples), lines)
        self.assertEqual(run.stdout, b"")

        # A selected button's values and the block of one that no report carries, both in the model colour; the
        # values of the others in green.
        area = page.colours(top=PAGE_TOP, bottom=STRIP_TOP)
        self.assertIn(VIOLET, area)
        self.assertGreater(area[GREEN], 300)
        self.assertGreater(area[RED], 5000)
        self.assertNotIn(BLUE, page.colours())
        self.assertIn((255, 255, 255), page.colours(top=STRIP_TOP, right=600))
        # The final message replaces the strip only.
        strip = final.colours(top=STRIP_TOP + 10)
        self.assertIn(BLUE, strip)
        self.assertGreater(strip[BLACK], sum(strip.values()) * 0.9)
        self.assertIn(RED, final.colours(top=PAGE_TOP, bottom=STRIP_TOP))


class Runs(PadtuneTestCase):
    def test_timeout_zero_resets_at_once(self):
        run = self.padtune("--timeout", "0", "--pause", "0", "--disable-button", "3", "--enable-button", "3",
                           "--enable-button", "5", "--disable-button", "32", "--disable-button", "40",
                           "--enable-led", "1")
        self.assertEqual(run.status, 0)
        # Buttons 1 to 4 without being asked for. A mask of 0 is what the board has already.
        self.assertInOrder(commands([0x1C2, 0x2C2, 0x3C2, 0x4C2]) + ["button-mask 0x80000004", "setup-request",
                                                                    "reset"], self.events())
        self.assertFalse([event for event in self.events() if event.startswith("led-mask")])
        self.assertIn(BLUE, self.colours(top=STRIP_TOP))

    def test_values_above_a_byte_spill_over(self):
        self.padtune("--timeout", "0", "--noise-threshold", "300")
        self.assertIn("command 0x012C00A6", self.events())

    def test_usage(self):
        run = self.padtune("--timeout")
        self.assertEqual(run.status, 2)
        self.assertEqual(len(run.stdout), 1378 - len("%s") + len("padtune"))
        self.assertTrue(run.stdout.startswith(b"Usage: padtune\n\n    --timeout <"))
        # The whole text: scripts in the field read it.
        self.assertEqual(hashlib.sha256(run.stdout).hexdigest(),
                         "226dba4c102d7ae48fa0018bffa3193a115bde53624aa4cdb1d34c0f5224db1e")
        self.assertEqual(run.stderr, b"")

    def test_a_setup_that_is_strange_or_does_not_come(self):
        for oddity, line in (("setup silent", []), ("setup count=4", ["Strange button count 4"]),
                             ("setup marker=0xA4", ["Invalid button format"])):
            with self.subTest(oddity):
                self.player.boards[0].send(oddity)
                run = self.padtune("--pause", "0")
                self.assertEqual((run.status, self.lines(run)), (0, line))
                self.assertMessage(RED, PAGE_TOP)
                self.assertNotIn("reset", self.events())
        self.player.boards[0].send("setup normal")

    def test_a_port_that_is_missing(self):
        messages = []
        for port in ("DIAGNOSTICS", "GPIO", "LED-SETUP", "LED"):
            with self.subTest(port):
                self.replug(f"without {port}")
                earlier = len(self.events())
                run = self.padtune("--timeout", "0", "--led-mask", "1,0,1")
                self.assertEqual((run.status, run.stderr.count(b"INFO")), (0, 17 if port == "LED" else 0))
                events = self.events()[earlier:]
                if port == "LED":
                    # The run goes on without it.
                    self.assertIn("reset", events)
                else:
                    self.assertMessage(RED, PAGE_TOP)
                    self.assertNotIn("reset", events)
                    # Each port has a message of its own.
                    self.assertNotIn(self.colours(top=PAGE_TOP), messages)
                    messages.append(self.colours(top=PAGE_TOP))
                self.assertEqual("led 1 0x00000001" in events, port == "LED-SETUP")
        self.replug("without nothing")

    def test_no_board_shows_the_bare_title(self):
        self.player.boards[0].unplug()
        run = self.padtune()
        self.player.boards[0].plug()
        self.assertEqual((run.status, run.stdout, self.lines(run)), (0, b"", []))
        self.assertIn((255, 255, 255), self.colours(bottom=PAGE_TOP))
        self.assertEqual(set(self.colours(top=PAGE_TOP)), {BACKGROUND})

    def test_a_board_that_comes_and_goes_many_times(self):
        board = self.player.boards[0]
        run = self.start_padtune("--timeout", "1000", "--output-diagnostics", "x", "--led-mask", "2,0,0x15",
                                 "--button", "5", "--disable-button", "7")
        self.wait_for_event("setup-request")
        self.assertTrue(self.player.wait_for(lambda: b" 1." in run.stderr, RUN_TIMEOUT))
        process = self.player.shell("pidof padtune").strip()
        count = f"ls /proc/{process}/fd | wc -l"
        before = self.player.shell(count)
        for cycle in range(5):
            board.unplug()
            board.plug()
            printed = len(run.stderr)
            self.assertTrue(self.player.wait_for(lambda: b"BT5:" in run.stderr[printed:], RUN_TIMEOUT), cycle)
        # The last of the board's ports may still be on its way back.
        self.wait_for_state("button-mask=0x00000040 led-mask=0x00000000 leds=0x00000000,0x00000015,")
        for _ in range(50):
            descriptors = self.player.shell(count)
            if descriptors == before:
                break
            time.sleep(0.1)
        self.assertEqual(descriptors, before)
        run.kill(signal.SIGTERM)
        self.assertEqual(run.wait(RUN_TIMEOUT), 128 + signal.SIGTERM)
        self.assertIn("reset", self.events())

    def test_commands_while_the_board_is_away_reach_it_when_it_returns(self):
        board = self.player.boards[0]
        run = self.start_padtune("--timeout", "9", "--led-mask", "3,4,0x7", "--led-mask", "4,4,0x7")
        self.wait_for_event("setup-request")
        self.assertTrue(self.player.wait_for(lambda: b"UNKNOWN" in run.stderr, RUN_TIMEOUT))
        board.unplug()
        self.assertTrue(self.player.wait_for(lambda: run.stderr.count(b"SubmitUsage: ") == 2, RUN_TIMEOUT), run.stderr)
        board.plug()
        self.assertEqual(run.wait(RUN_TIMEOUT), 0)
        self.assertInOrder(["plugged", "led 3 0x00000007", "led 4 0x00000007", "reset"], self.events())

    def test_a_failed_assertion_is_in_the_kernel_log(self):
        for argument, lead in (("", b""), ("glibc", b"GLIBC assert\r\n")):
            run = self.player.run(["sh", "-c", f"assertion-probe {argument}"])
            self.assertEqual((run.status, run.stdout), (128 + 6, lead))
        log = self.player.shell("dmesg")
        self.assertRegex(log, r"User space assert from process \d+: argc == 0\n.*"
                              r"ASSERT Executing lib/platform/poll_thread.cpp:214:"
                              r"void PollThread::Attach\(Pollable\*, short int\)\n")
        self.assertRegex(log, r"ASSERT Executing tests/assertion_probe.cpp:\d+:int main\(int, char\*\*\)\n")

    FILES = {"/usr/local/bin/assertion-probe": "tests/assertion_probe"}

    def test_a_failing_display_call_names_itself(self):
        self.player.shell("mv /storage/sys/default-font.ttf /storage/sys/away")
        run = self.padtune()
        self.player.shell("mv /storage/sys/away /storage/sys/default-font.ttf")
        self.assertNotEqual(run.status, 0)
        self.assertRegex(run.stderr.decode(), r"apps/padtune/padtune <\d+>:\n\t.*"
                                              r"dfb->CreateFont\( dfb, fontfile, &fdsc, &font_small \)")


class Models(PadtuneTestCase):
    BOARDS = ("KP480S", "KP120")
    SCREEN = (1920, 1080)

    def test_each_model_has_its_colours_and_the_first_board_is_the_one(self):
        run = self.start_padtune("--timeout", "4", "--button", "2")
        self.wait_for_event("setup-request")
        self.player.boards[0].send("touch 2")
        self.player.boards[1].send("touch 1")
        self.assertEqual(run.wait(RUN_TIMEOUT), 0)
        area = self.colours(top=240, bottom=940)
        self.assertIn(BLUE, area)
        self.assertNotIn(RED, area)
        self.assertNotIn("setup-request", self.events(board=1))

        self.player.boards[0].unplug()
        run = self.start_padtune("--timeout", "4", "--button", "2")
        self.wait_for_event("setup-request", board=1)
        self.player.boards[1].send("gpio 0 0")
        self.assertEqual(run.wait(RUN_TIMEOUT), 0)
        # The four-button board: violet, no header in red; button 1 touched at a low level, on the right.
        area = self.colours(top=240, bottom=940)
        self.assertIn(VIOLET, area)
        self.assertGreater(self.colours(left=1400, top=240, bottom=940)[ORANGE], 5000)
        self.assertNotIn(BLUE, area)
        identity = self.colours(right=640, top=240, bottom=320)
        self.assertIn(RED, identity)
        self.assertNotIn(GREEN, identity)
        self.player.boards[0].plug()


class InvalidVideoMode(PadtuneTestCase):
    VIDEO_MODE = "bogus"
    BOARDS = ()

    def test_ends_the_process_before_the_title(self):
        run = self.padtune()
        self.assertEqual(run.status, 128 + 6)
        self.assertIn(b"Invalid video mode: 'bogus' ", run.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
