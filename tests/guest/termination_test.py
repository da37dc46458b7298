#!/usr/bin/python3
"""padtune, ended by a signal: the same signal must be its end, and the board and the page be left in order."""

import os
import random
import re
import signal
import time
import unittest

from guest import RUN_TIMEOUT
from padtune_test import BLUE, STRIP_TOP, PadtuneTestCase


SETUP_TIMEOUT = 10  # seconds


class Termination(PadtuneTestCase):
    RUNS = 20

    def start_run(self, *arguments):
        return self.start_padtune("--timeout", "1000", "--output-diagnostics", "x", *arguments)

    @staticmethod
    def is_live(run):
        """Whether the live page has begun: samples are stamped 0.000 before."""
        return re.search(rb"^ *(?!0\.000)\d+\.\d{3}: BT", run.stderr, re.MULTILINE) is not None

    def end_at_random_moments(self, number):
        seed = int(os.environ.get("PADTUNE_SEED", time.time_ns()))
        print(f"PADTUNE_SEED={seed}", flush=True)
        chance = random.Random(seed)
        board = self.player.boards[0]
        began = time.monotonic()
        run = self.start_run()
        self.assertTrue(self.player.wait_for(lambda: self.is_live(run), RUN_TIMEOUT), run.stderr)
        longest = 1.5 * (time.monotonic() - began)
        self.player.shell("killall -9 padtune")

        ends = {True: 0, False: 0}
        for moment in (chance.uniform(0, longest) for _ in range(self.RUNS)):
            with self.subTest(moment=moment):
                start = len(board.records)
                run = self.start_run("--pause", "50", "--led-mask", "1,1,1")
                time.sleep(moment)
                run.kill(number)
                self.assertEqual(run.wait(RUN_TIMEOUT), 128 + number, run.stderr)
                for failure in (b"Sanitizer", b"Caught signal", b"assert"):
                    self.assertNotIn(failure, run.stderr)
                was_live = self.is_live(run)
                if was_live:
                    board.wait_for_record(" reset", start=start)
                    self.assertIn(BLUE, self.colours(top=STRIP_TOP))
                elif not any(" setup-request" in record for record in board.records[start:]):
                    self.assertFalse([record for record in board.records[start:] if " reset" in record])
                ends[was_live] += 1
        self.assertTrue(all(ends.values()), ends)
        self.assertEqual(self.padtune("--timeout", "0").status, 0)

    def test_sigint_at_any_moment(self):
        self.end_at_random_moments(signal.SIGINT)

    def test_sigterm_at_any_moment(self):
        self.end_at_random_moments(signal.SIGTERM)

    def test_sighup_at_any_moment(self):
        self.end_at_random_moments(signal.SIGHUP)

    def test_a_long_pause_is_cut_short(self):
        run = self.start_run("--pause", "1000000")
        self.wait_for_event("command 0x000001C2")
        run.kill(signal.SIGHUP)
        self.assertEqual(run.wait(RUN_TIMEOUT), 128 + signal.SIGHUP)
        self.assertNotIn("command 0x000002C2", self.events())

    def test_the_wait_for_the_setup_is_cut_short(self):
        self.addCleanup(self.player.boards[0].send, "setup normal")
        self.player.boards[0].send("setup silent")
        run = self.start_run()
        self.wait_for_event("setup-request")
        requested = time.monotonic()
        run.kill(signal.SIGTERM)
        self.assertEqual(run.wait(RUN_TIMEOUT), 128 + signal.SIGTERM)
        self.assertLess(time.monotonic() - requested, 0.7 * SETUP_TIMEOUT)


if __name__ == "__main__":
    unittest.main(verbosity=2)
