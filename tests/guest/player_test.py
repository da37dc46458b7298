#!/usr/bin/python3
"""The virtual player itself: a device tree that says what it is and how it is wired, as programs on it see it; boards
that are as inconvenient as they are told to be; scenarios."""

import pathlib
import tempfile
import unittest
import zlib

from guest import RUN_TIMEOUT, GuestTestCase
import scenario  # from virtual_player, where guest looks

RULES = pathlib.Path(__file__).resolve().parents[2] / "docs/60-touch-board.rules"


class DescribedPlayer(GuestTestCase):
    BOARDS = ("KP480", "KP120")
    DEVICE_TREE = {"/vantora,player": {"board": "XT1144", "revision": 3,
                                       "usb-connectors": ["platform/vhci_hcd.0-2", "1-1"]},
                   "/vantora,player/pin-multiplexer/pin@a": {"selectors": [0, 0xFFFFFFFF], "flag": True}}

    def test_kernel_has_the_description(self):
        values = self.player.shell("cd /proc/device-tree/vantora,player; hexdump -ve '/1 \"%02x\"' board revision; "
                                   "cd pin-multiplexer/pin@a; hexdump -ve '/1 \"%02x\"' selectors flag")
        self.assertEqual(bytes.fromhex(values), b"XT1144\0" + b"\0\0\0\3" + b"\0\0\0\0" + b"\xff\xff\xff\xff")

    def test_boards_are_numbered_by_the_connectors(self):
        table = self.player.run(["portprobe", "list"], RUN_TIMEOUT).stdout.decode()
        places = {row.split()[0]: row.split()[-1] for row in table.splitlines() if "-GPIO" in row}
        self.assertEqual(places, {"TouchBoard-0-GPIO": "1-2:1.0", "TouchBoard-1-GPIO": "1-1:1.0"})

    def test_what_the_device_tree_does_not_say_is_looked_up_in_the_flash(self):
        variables = b"vantora_features=0x1".ljust(0x80, b"\0")
        with tempfile.NamedTemporaryFile() as image:
            image.write(zlib.crc32(variables).to_bytes(4, "little") + variables)
            image.flush()
            self.player.put(image.name, "/environment")
        self.addCleanup(self.player.shell, f"rm /etc/fw_env.config; echo {self.VIDEO_MODE} >/run/video.mode")
        self.player.shell("echo /environment 0 0x84 >/etc/fw_env.config; echo 3840x2160x24p >/run/video.mode")
        # Not limited to HD, the player would accept it.
        self.assertIn(b"Invalid video mode: '3840x2160x24p' ", self.player.run(["padtune"], RUN_TIMEOUT).stderr)

    def test_a_group_may_use_the_boards_without_root(self):
        def as_service(program, *arguments):
            return ["start-stop-daemon", "-S", "-c", "service:touchboard", "-x", f"/usr/local/bin/{program}", "--",
                    *arguments]

        self.player.shell("echo service:x:1000:1000::/: >>/etc/passwd; echo touchboard:x:1000: >>/etc/group; "
                          "mkdir -p /etc/udev/rules.d")
        self.assertIn(b"no ports", self.player.run(as_service("portprobe", "list"), RUN_TIMEOUT).stderr)
        self.player.put(RULES, "/etc/udev/rules.d/60-touch-board.rules")
        self.player.shell("udevadm control --reload")
        for board in self.player.boards:
            board.unplug()
            board.plug()
        self.player.shell("udevadm settle; chgrp touchboard /dev/fb0; chmod 660 /dev/fb0")
        table = self.player.run(as_service("portprobe", "list"), RUN_TIMEOUT).stdout.decode()
        self.assertEqual(table.count("-GPIO "), 2, table)

        run = self.player.start(as_service("padtune", "--timeout", "8", "--output-diagnostics", "x"))
        run.close_input()
        self.assertTrue(self.player.wait_for(lambda: b" 1." in run.stderr, RUN_TIMEOUT), run.stderr)
        # The kernel announces a returning board before udevd has applied the rule.
        first = self.player.boards[1]
        first.unplug()
        first.plug()
        printed = len(run.stderr)
        self.assertTrue(self.player.wait_for(lambda: b": BT1:" in run.stderr[printed:], RUN_TIMEOUT), run.stderr)
        self.assertEqual(run.wait(RUN_TIMEOUT), 0, run.stderr[-2000:])
        first.wait_for_record("reset")


class ToldPlayer(GuestTestCase):
    BOARDS = ("KP480", "expander")
    GPIO = True

    def play(self, *lines, command=("sleep", "60")):
        """Plays a scenario while the command runs in the guest, and returns its status."""
        running = self.player.start(command)
        self.addCleanup(running.kill)
        return scenario.play(self.player, running, [scenario.parse(lines)])

    def test_a_refused_line_ends_a_scenario_with_its_number_and_the_answer(self):
        for line, answer in (("dance", "not understood: dance"), ("touch 12", "no button 12"), ("plug", "on the bus"),
                             ("board 1 level 18 1", "more than 17: 18"), ("board 2 touch 1", "no board 2"),
                             ("player level 1 7", "not a level: 7")):
            with self.assertRaisesRegex(scenario.ScenarioError, f"^line 3: .*{answer}", msg=line):
                self.play("0 touch 1", "", f"0 {line}", "0 release 1")
        self.assertEqual(self.play("0 touch 1", "0 board 1 dip 1 1", "0 release 1", command=("sleep", "1")), 0)

    def test_a_run_on_a_slow_board_that_echoes_and_forgets_is_as_any_other(self):
        board = self.player.boards[0]
        self.addCleanup(board.send, "delay 0\nlate 0\necho off\nremember")
        board.send("delay 150\nlate 700\necho on\nforget")
        run = self.start_padtune("--timeout", "8", "--led-mask", "2,0,5", "--output-diagnostics", "x")
        self.assertTrue(self.player.wait_for(lambda: b": BT4:" in run.stderr, RUN_TIMEOUT), run.stderr)
        self.assertGreater(self.events().count("identify"), 1)  # asked again before the answer came
        board.unplug()
        seen = len(board.records)
        board.plug()
        board.wait_for_record(" led 2 0x00000005", start=seen)
        board.send("state")
        state = board.records[board.wait_for_record(" state ", start=seen)]
        self.assertIn(" selected= ", state)  # the power is gone, and with it what padtune selected
        self.assertEqual(run.wait(RUN_TIMEOUT), 0, run.stderr)
        self.assertEqual(self.events()[-1], "reset")


if __name__ == "__main__":
    unittest.main()
