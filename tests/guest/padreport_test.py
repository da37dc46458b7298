#!/usr/bin/python3
"""From a calibration run on the virtual player to a decision: padtune there, padreport on this machine.

Skipped, with status 77, where this machine's padreport has not been built (PADREPORT, or the host preset's).
"""

import json
import os
import re
import shlex
import subprocess
import sys
import unittest

from guest import RUN_TIMEOUT, GuestTestCase, build_folder

SKIPPED = 77
PADREPORT = os.environ.get("PADREPORT", build_folder().parent / "host" / "padreport")
SAMPLES = 20  # of each touch, and of the rest after it


class Decision(GuestTestCase):
    def run_with_touches(self, touches, *arguments):
        """The log of a run in which the buttons of `touches` are touched one after the other."""
        run = self.start_padtune("--timeout", "25", "--button", "1-4", "--output-diagnostics", "x", *arguments)
        # Lines from before the live page, whose time is 0, tell of no touch.
        self.assertTrue(self.player.wait_for(lambda: b"\n 1." in run.stderr, 60), run.stderr)
        for button in touches:
            for action, star in (("touch", b"\\*"), ("release", b" ")):
                printed = len(run.stderr)
                self.player.boards[0].send(f"{action} {button}")
                line = re.compile(b"BT%d:[ \\d-]*%s\r?\n" % (button, star))
                self.assertTrue(self.player.wait_for(
                    lambda: len(line.findall(run.stderr[printed:])) > SAMPLES, 30), run.stderr[printed:])
        self.assertEqual(run.wait(RUN_TIMEOUT), 0)
        return run.stderr

    def report(self, log):
        outcome = subprocess.run([PADREPORT, "--json"], input=log, stdout=subprocess.PIPE, check=True)
        return json.loads(outcome.stdout)["logs"][0]

    def test_proposed_thresholds_make_the_next_run_safe(self):
        # The threshold of button 2 is hardly reached by a finger, that of button 3 lies hardly above its noise.
        self.player.boards[0].send("lift 2 60\nnoise 3 30")
        log = self.run_with_touches([3, 2, 4, 3], "--finger-threshold", "1-4,40", "--finger-threshold", "2,50")
        report = self.report(log)
        buttons = report["buttons"]
        self.assertEqual([button["button"] for button in buttons], [1, 2, 3, 4])
        self.assertEqual([button["touches"]["count"] for button in buttons], [0, 1, 2, 1])
        self.assertEqual([button["threshold_now"] for button in buttons], [40, 50, 40, 40])
        self.assertEqual([button["verdict"] for button in buttons], ["never touched", "tight", "tight", "safe"])
        self.assertEqual([(remark["button"], remark["what"]) for remark in report["remarks"]],
                         [(2, "weak"), (3, "noisy")])
        for button in buttons:
            self.assertEqual(button["samples"], log.count(b": BT%d: " % button["button"]))
        self.assertEqual((report["runs"], report["jumps"]["count"]), (1, 0))
        self.assertFalse([kind for kind in ("complaints", "damaged", "cut", "too_long", "binary")
                          if report["lines"][kind]["count"] > 0], report["lines"])

        program, *arguments = shlex.split(report["command"])
        self.assertEqual(program, "padtune")
        after = self.report(self.run_with_touches([2, 3, 4], *arguments))["buttons"]
        self.assertEqual([button["verdict"] for button in after], ["never touched", "safe", "safe", "safe"])
        for button in (1, 2):
            self.assertEqual(after[button]["threshold_now"], buttons[button]["threshold_proposed"]["value"])


if __name__ == "__main__":
    if not os.access(PADREPORT, os.X_OK):
        print(f"Skipped: {PADREPORT} has not been built")
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
