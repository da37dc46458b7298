#!/usr/bin/python3
"""Runs the tests of the HID ports inside the guest, where the kernel's own driver serves them."""

import sys
import unittest

from guest import SANITIZER_OPTIONS, GuestTestCase


class PortsOnHid(GuestTestCase):
    BOARDS = ()
    FILES = {"/usr/local/bin/ports-on-hid-test": "tests/guest/ports_on_hid_test"}

    def test_all_in_the_guest(self):
        run = self.player.run(["ports-on-hid-test"], environment=SANITIZER_OPTIONS, timeout=600)
        sys.stderr.write(run.stdout.decode())
        self.assertEqual(run.status, 0, run.stderr.decode())
        self.assertNotIn(b"Invalid argument", run.stderr)


if __name__ == "__main__":
    unittest.main()
