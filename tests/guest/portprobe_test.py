#!/usr/bin/python3
"""portprobe on the virtual player, with a port of every kind."""

import re
import signal
import unittest

from guest import RUN_TIMEOUT, SANITIZER_OPTIONS, GuestTestCase

LIST = """\
NAME                           PINS  VERSION  PROPERTIES                                      NODE                     LOCATION
vantora                        13    -        -                                               /dev/input/vantora-gpio  -
Expander-0-DIP                 8     0100     -                                               /dev/usb/hiddev1         1-2:1.0
Expander-0-GPIO                18    0100     -                                               /dev/usb/hiddev1         1-2:1.0
LightController-0-CONTROL      8     0100     -                                               /dev/usb/hiddev2         1-3:1.0
LightController-0-DIAGNOSTICS  8     0100     -                                               /dev/usb/hiddev2         1-3:1.0
TouchBoard-0-DIAGNOSTICS       29    0100     hardware=KP480;header=no;revision=A;rheader=90  /dev/usb/hiddev0         1-1:1.0
TouchBoard-0-GPIO              11    0100     hardware=KP480;header=no;revision=A;rheader=90  /dev/usb/hiddev0         1-1:1.0
TouchBoard-0-LED               11    0100     hardware=KP480;header=no;revision=A;rheader=90  /dev/usb/hiddev0         1-1:1.0
TouchBoard-0-LED-SETUP         3     0100     hardware=KP480;header=no;revision=A;rheader=90  /dev/usb/hiddev0         1-1:1.0
"""


class Portprobe(GuestTestCase):
    BOARDS = ("KP480", "expander", "light-controller")
    GPIO = True

    def start(self, *arguments):
        command = self.player.start(["portprobe", *arguments], environment=SANITIZER_OPTIONS)
        self.addCleanup(self._end, command)
        return command

    def probe(self, arguments):
        """portprobe, run to its end: exit status, standard output, standard error."""
        command = self.start(*arguments.split())
        command.wait(RUN_TIMEOUT)
        return command.status, command.stdout.decode(), command.stderr.decode()

    def watch(self, name):
        command = self.start("watch", name)
        self.assertTrue(self.player.wait_for(lambda: b"watching\n" in command.stderr, RUN_TIMEOUT), command.stderr)
        return command

    def assertPrints(self, command, text):
        """A watch prints `text`, name first, after a time stamp."""
        line = re.compile(rf"^\d+\.\d{{9}} {text}$".encode(), re.MULTILINE)
        self.assertTrue(self.player.wait_for(lambda: line.search(command.stdout), RUN_TIMEOUT), command.stdout)

    def test_list(self):
        self.assertEqual(self.probe("list"), (0, LIST, ""))
        self.player.gpio.send("fail ioctl")
        status, table, why = self.probe("list")
        self.player.gpio.send("fail nothing")
        self.assertEqual((status, table.count("\n")), (1, LIST.count("\n") - 1))
        self.assertIn("portprobe: vantora: EVIOCGBIT: Input/output error (5)\n", why)

    def test_trouble_ends_with_status_1(self):
        for arguments, why in (
                ("get Nonsense-0-GPIO", "Nonsense-0-GPIO: no such port"),
                ("get VX1000-compatible", "VX1000-compatible: External control port not found"),
                ("set TouchBoard-0-GPIO 2 1", "TouchBoard-0-GPIO: Pin cannot be configured as output"),
                ("watch TouchBoard-0-LED", "TouchBoard-0-LED: has no inputs to watch"),
                ("pulse Expander-0-GPIO 2 1", "Expander-0-GPIO: this port cannot pulse")):
            self.assertEqual(self.probe(arguments), (1, "", f"portprobe: {why}\n"))

    def test_unusable_command_lines_end_with_status_2_and_send_nothing(self):
        earlier = len(self.player.gpio.records)
        for arguments, why in (
                ("set vantora 9", "set: use 'portprobe set NAME PIN VALUE'"),
                ("set vantora 9 -1", "VALUE -1: not a number from 0 to 4294967295"),
                ("set vantora 9 2", "VALUE 2: vantora takes 0 to 1"),
                ("set vantora 13 1", "PIN 13: vantora has 13 pins, numbered from 0"),
                ("pulse vantora 9 1 --steps 0x21", "--steps 0x21: not a number from 2 to 32")):
            self.assertEqual(self.probe(arguments), (2, "", f"portprobe: {why}\nTry 'portprobe --help'.\n"))
        self.assertEqual(self.player.gpio.records[earlier:], [])
        status, text, why = self.probe("set --help")
        self.assertEqual((status, text.split("\n")[0], why), (0, "Usage: portprobe COMMAND", ""))

    def test_set_and_get(self):
        gpio, (touch_board, expander, lights) = self.player.gpio, self.player.boards
        for name, device, pin, value, record in (
                ("vantora", gpio, 9, "1", "write 17 17 1"),
                ("Expander-0-GPIO", expander, 7, "1", "outputs 0x00000080 directions 0x00000080"),
                ("LightController-0-CONTROL", lights, 1, "0xDEADBEEF", "control 0x00000000,0xDEADBEEF"),
                ("TouchBoard-0-LED", touch_board, 2, "21", "led 3 0x00000015")):
            earlier = len(device.records)
            self.assertEqual(self.probe(f"set {name} {pin} {value}"), (0, "", ""))
            device.wait_for_record(record, start=earlier)
            self.assertIn(f"pin {pin} output level 1\n", self.probe(f"get {name}")[1])

    def test_watch(self):
        gpio, (touch_board, expander, lights) = self.player.gpio, self.player.boards
        for name, device, line, change in (
                ("vantora", gpio, "level 11 1", "pin 11 level 1"),
                ("Expander-0-GPIO", expander, "level 12 1", "pin 12 level 1"),
                ("Expander-0-DIP", expander, "dip 3 1", "pin 3 level 1"),
                ("LightController-0-DIAGNOSTICS", lights, "value 3 300", "value 3 0x0000012C"),
                ("TouchBoard-0-GPIO", touch_board, "touch 4", "pin 3 level 1")):
            command = self.watch(name.lower())
            device.send(line)
            self.assertPrints(command, f"{name} {change}")
            command.kill(signal.SIGINT)
            self.assertEqual(command.wait(RUN_TIMEOUT), 0)

    def test_watch_outlives_a_short_absence_only(self):
        expander = self.player.boards[1]
        command = self.watch("Expander-0-DIP")
        expander.unplug()
        expander.plug()
        # The port comes back after the node; changes until then are not reported.
        while not self.player.wait_for(lambda: b" pin 5 level 1\n" in command.stdout, 1):
            expander.send("dip 5 1\ndip 5 0")
        expander.unplug()
        self.assertEqual(command.wait(RUN_TIMEOUT), 1)
        expander.plug()
        self.assertIn(b"portprobe: Expander-0-DIP: the device has been gone for 10 seconds\n", command.stderr)

    def test_pulse_leaves_the_line_low(self):
        gpio = self.player.gpio
        earlier = len(gpio.records)
        command = self.start("pulse", "vantora", "10", "3", "--period", "5000")
        for level in (1, 0, 1, 0, 1):
            earlier = gpio.wait_for_record(f"write 17 18 {level}", start=earlier)
        command.kill()
        self.assertEqual((command.wait(RUN_TIMEOUT), command.stderr), (0, b""))
        self.assertTrue(gpio.records[-1].endswith("write 17 18 0"), gpio.records[-1])


if __name__ == "__main__":
    unittest.main()
