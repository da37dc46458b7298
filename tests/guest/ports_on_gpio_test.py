#!/usr/bin/python3
"""Runs the tests of the ports on the player's own lines inside the guest."""

import sys
import unittest

from guest import SANITIZER_OPTIONS, GuestTestCase


class PortsOnGpio(GuestTestCase):
    BOARDS = ()
    DEVICE_TREE = {
        "/vantora,player/pin-multiplexer": {"device": "/dev/vantora-pinmux"},
        "/vantora,player/pin-multiplexer/pin@9": {"functions": ["gpio", "pwm"], "selectors": [1, 3]},
    }
    FILES = {"/usr/local/bin/ports-on-gpio-test": "tests/guest/ports_on_gpio_test"}

    def test_all_in_the_guest(self):
        run = self.player.run(["ports-on-gpio-test"], environment=SANITIZER_OPTIONS, timeout=300)
        sys.stderr.write(run.stdout.decode())
        self.assertEqual(run.status, 0, run.stderr.decode())
        # A port that its device has left says so once, to the test; one that cannot read its device says that once,
        # until it works again.
        self.assertNotIn(b"is gone", run.stderr)
        self.assertEqual(run.stderr.count(b"cannot be read"), 2, run.stderr.decode())
        self.assertNotIn(b"Pin not available", run.stderr)


if __name__ == "__main__":
    unittest.main()
