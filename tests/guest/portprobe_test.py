#!/usr/bin/python3
"""portprobe on the virtual player, with a port of every kind."""

import re
import signal
import unittest

from guest import RUN_TIMEOUT, SANITIZER_OPTIONS, GuestTestCase
from player import Device

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
    DEVICE_TREE = {"/vantora,player/pin-multiplexer": {"device": "/dev/vantora-pinmux"},
                   "/vantora,player/pin-multiplexer/pin@9": {"functions": ["gpio", "pwm"], "selectors": [1, 3]}}

    def start_command(self, *words):
        command = self.player.start(words, environment=SANITIZER_OPTIONS)
        self.addCleanup(self._end, command)
        return command

    def start(self, *arguments):
        return self.start_command("portprobe", *arguments)

    def probe(self, arguments):
        """portprobe, run to its end: exit status, standard output, standard error."""
        command = self.start(*arguments.split())
        command.wait(RUN_TIMEOUT)
        return command.status, command.stdout.decode(), command.stderr.decode()

    def watch(self, *arguments):
        command = self.start("watch", *arguments)
        self.assertTrue(self.player.wait_for(lambda: b"watching\n" in command.stderr, RUN_TIMEOUT), command.stderr)
        return command

    def printed(self, command):
        """The lines of a watch that has ended, without their time stamps."""
        self.assertEqual(command.wait(RUN_TIMEOUT), 0, command.stderr)
        return [line.split(" ", 1)[1] for line in command.stdout.decode().splitlines()]

    def assertPrints(self, command, text):
        """A watch prints `text`, name first, after a time stamp, which is returned."""
        line = re.compile(rf"^(\d+\.\d{{9}}) {text}$".encode(), re.MULTILINE)
        self.assertTrue(self.player.wait_for(lambda: line.search(command.stdout), RUN_TIMEOUT), command.stdout)
        return float(line.search(command.stdout)[1])

    def replace_lines(self, *options):
        """Gives the player lines with these options until the end of the test."""
        def start(*options):
            self.player.gpio.send("quit")
            self.player.shell("while [ -e /dev/input/vantora-gpio ]; do sleep 0.1; done")
            self.player.gpio = Device(self.player, ["gpio-lines", *options])
            self.player.gpio.wait_for_record("ready")

        start(*options)
        self.addCleanup(start)

    def answer(self, device, question, kind):
        """The words of the record of this kind with which a device answers; the first is its time."""
        earlier = len(device.records)
        device.send(question)
        return device.records[device.wait_for_record(f" {kind} ", start=earlier)].split()

    def wait_for_reports(self, touch_board, count):
        """Waits until the kernel has read so many more diagnostics reports."""
        wanted = int(self.answer(touch_board, "count", "diagnostics")[2]) + count
        for _ in range(RUN_TIMEOUT):
            if int(self.answer(touch_board, "count", "diagnostics")[2]) >= wanted:
                return
            self.player.wait_for(lambda: False, 0.5)
        self.fail(f"{count} reports have not been read within {RUN_TIMEOUT} tries")

    def test_list(self):
        self.assertEqual(self.probe("list"), (0, LIST, ""))
        # The board has told its model: nobody asks again.
        earlier = len(self.player.boards[0].records)
        self.assertEqual(self.probe("list"), (0, LIST, ""))
        self.assertEqual(self.player.boards[0].records[earlier:], [])
        self.player.gpio.send("fail ioctl")
        status, table, why = self.probe("list")
        self.player.gpio.send("fail nothing")
        self.assertEqual((status, table.count("\n")), (1, LIST.count("\n") - 1))
        self.assertIn("portprobe: vantora: EVIOCGBIT: Input/output error (5)\n", why)

    def test_list_without_boards_that_can_be_asked(self):
        self.player.shell(": >/dev/usb/hiddev9")
        status, table, why = self.probe("list")
        self.player.shell("rm /dev/usb/hiddev9")
        self.assertEqual((status, [row.split()[0] for row in table.splitlines()]), (1, ["NAME", "vantora"]))
        self.assertIn("portprobe: boards: Inappropriate ioctl for device (25)\n", why)

    def test_trouble_ends_with_status_1(self):
        for arguments, why in (
                ("get Nonsense-0-GPIO", "Nonsense-0-GPIO: no such port"),
                ("set TouchBoard-0-GPIO 2=1", "TouchBoard-0-GPIO: Pin cannot be configured as output"),
                ("input LightController-0-CONTROL 1",
                 "LightController-0-CONTROL: Pin cannot be configured as input"),
                ("parameter vantora 9=1 0=1", "vantora: Pin not available"),
                ("parameter Expander-0-GPIO 1=1", "Expander-0-GPIO: the pins of this port have no parameter"),
                ("function vantora 9=none", "vantora: pin 9 cannot be switched to 'none'"),
                ("watch vantora Nonsense-0-GPIO", "Nonsense-0-GPIO: no such port"),
                ("watch vantora TouchBoard-0-LED", "TouchBoard-0-LED: has no inputs to watch"),
                ("record vantora", "vantora: is not a board's port: there are no reports to record"),
                ("pulse Expander-0-GPIO 2=1", "Expander-0-GPIO: this port cannot pulse")):
            self.assertEqual(self.probe(arguments), (1, "", f"portprobe: {why}\n"))
        for arguments, subject in (("list", "list"), ("get vantora", "vantora"), ("--help", "--help"),
                                   ("record Expander-0-DIP", "Expander-0-DIP")):
            command = self.player.run(["sh", "-c", f"portprobe {arguments} >/dev/full"], RUN_TIMEOUT)
            self.assertEqual((command.status, command.stderr.decode()),
                             (1, f"portprobe: {subject}: standard output: No space left on device (28)\n"))

    def test_unusable_command_lines_end_with_status_2_and_send_nothing(self):
        earlier = len(self.player.gpio.records)
        for arguments, why in (
                ("set vantora 9", "set: use 'portprobe set NAME PIN=VALUE...'"),
                ("set vantora 9=-1", "VALUE -1: not a number from 0 to 4294967295"),
                ("set vantora 9=1 8=2", "VALUE 2: vantora takes 0 to 1"),
                ("get vantora 12 13", "PIN 13: vantora has 13 pins, numbered from 0"),
                ("list --numeric", "--numeric: not for 'list'"),
                ("watch vantora --pins=12,13", "PIN 13: vantora has 13 pins, numbered from 0"),
                ("watch vantora --timeout 2147484", "--timeout 2147484: not a number from 0 to 2147483"),
                ("watch vantora --edges=up", "--edges up: use rising, falling or both"),
                ("watch LightController-0-DIAGNOSTICS --edges=rising",
                 "--edges: LightController-0-DIAGNOSTICS has values, not levels"),
                ("record vantora Expander-0-DIP", "record: use 'portprobe record NAME'"),
                ("input vantora", "input: use 'portprobe input NAME PIN...'"),
                ("parameter vantora 9=256", "VALUE 256: vantora takes 0 to 255"),
                ("set vantora 9=1 13=1", "PIN 13: vantora has 13 pins, numbered from 0"),
                ("set vantora 9 1 --steps=5", "--steps: not for 'set'"),
                ("set vantora 9 -1", "-1: unknown option"),
                ("--help=me set vantora 9=1", "--help=me: takes no argument"),
                ("pulse vantora 9 1 --steps", "--steps: needs an argument"),
                ("pulse vantora --steps 0x21 9 1", "--steps 0x21: not a number from 2 to 32")):
            self.assertEqual(self.probe(arguments), (2, "", f"portprobe: {why}\nTry 'portprobe --help'.\n"))
        self.assertEqual(self.player.gpio.records[earlier:], [])
        for arguments, first in (("set -h", "Usage: portprobe COMMAND"), ("--version", "portprobe 1.0.0")):
            status, text, why = self.probe(arguments)
            self.assertEqual((status, text.split("\n")[0], why), (0, first, ""))

    def test_get_and_info_show_what_the_boards_have_now_and_send_nothing(self):
        gpio, (touch_board, expander, lights) = self.player.gpio, self.player.boards
        earlier = [len(board.records) for board in self.player.boards]
        # Nobody has the boards open when this happens: the kernel does not hear of it.
        for device, line in ((gpio, "level 12 1"), (touch_board, "touch 5"), (expander, "level 3 1"),
                             (expander, "dip 6 1"), (lights, "value 5 500")):
            device.send(line)
        for arguments, text in (
                ("vantora 0 12", "pin 0 input level 0 output level 0 fixed\npin 12 input level 1 switchable\n"),
                ("--numeric vantora 12 8 12", "1 0 1\n"),
                ("TouchBoard-0-GPIO 4", "pin 4 input level 1 fixed\n"),
                ("Expander-0-GPIO 3", "pin 3 input level 1 switchable\n"),
                ("Expander-0-DIP --numeric", "0 0 0 0 0 0 1 0\n"),
                ("LightController-0-DIAGNOSTICS 5", "value 5 input 0x000001F4 fixed\n"),
                ("LightController-0-DIAGNOSTICS 4 5 --numeric", "0 500\n"),
                ("LightController-0-CONTROL 7", "value 7 output 0x00000000 fixed\n")):
            self.assertEqual(self.probe("get " + arguments), (0, text, ""))
        status, text, why = self.probe("info")
        self.assertEqual((status, why), (0, ""))
        self.assertEqual(re.findall(r"^(\S+) - (\d+) (?:pin|value)s$", text, re.MULTILINE),
                         [tuple(row.split()[:2]) for row in LIST.splitlines()[1:]])
        self.assertIn("\nExpander-0-DIP - 8 pins\n    pin 0 input level 0 fixed\n", text)
        self.assertEqual([len(board.records) for board in self.player.boards], earlier)

    def test_get_tells_pins_apart(self):
        self.replace_lines("--offered-inputs", "0x305", "--offered-outputs", "0x306", "--switchable", "0x300")
        self.assertEqual(self.probe("set vantora 9=1"), (0, "", ""))
        self.assertEqual(self.probe("get vantora")[1].splitlines()[:10], [
            "pin 0 input level 0 fixed", "pin 1 output level 0 fixed", "pin 2 input level 0 output level 0 fixed",
            *(f"pin {pin} absent" for pin in range(3, 8)),
            "pin 8 input level 0 switchable", "pin 9 output level 1 switchable"])
        self.assertEqual(self.probe("get vantora --numeric")[1], "0 0 0 - - - - - 0 1 - - -\n")
        self.assertEqual(self.probe("get vantora 3"),
                         (2, "", "portprobe: PIN 3: vantora does not have this one\nTry 'portprobe --help'.\n"))

    def test_levels_come_before_directions(self):
        gpio, (touch_board, expander, lights) = self.player.gpio, self.player.boards
        for device, arguments, records in (
                (gpio, "set vantora 10=1 11=1", ["write 17 18 1", "write 17 19 1", "write 17 50 1", "write 17 51 1"]),
                (gpio, "set VANTORA 10 0", ["write 17 18 0"]),
                (gpio, "input vantora 11 12 0", ["write 17 51 0"]),
                (gpio, "input vantora 10", ["write 17 50 0"]),
                (gpio, "parameter vantora 9=200 8=0xFF", ["write 17 81 200", "write 17 80 255"]),
                (gpio, "function vantora 9=pwm 9=gpio", ["mux 9 3", "mux 9 1"]),
                (expander, "set Expander-0-GPIO 7=1 8=1",
                 ["outputs 0x00000080 directions 0x00000000", "outputs 0x00000180 directions 0x00000000",
                  "outputs 0x00000180 directions 0x00000080", "outputs 0x00000180 directions 0x00000180"]),
                (expander, "input Expander-0-GPIO 7 9", ["outputs 0x00000180 directions 0x00000100"]),
                (expander, "input Expander-0-DIP 7", []),
                (lights, "set LightController-0-CONTROL 1=0xDEADBEEF",
                 ["control 0x00000000,0xDEADBEEF,0x00000000,0x00000000,0x00000000,0x00000000,0x00000000,0x00000000"]),
                (touch_board, "set TouchBoard-0-LED 2=21", ["led 3 0x00000015"])):
            earlier = len(device.records)
            self.assertEqual(self.probe(arguments), (0, "", ""))
            # What the device has told when it answers is all.
            self.answer(device, "state", "state")
            self.assertEqual([record.split(" ", 1)[1] for record in device.records[earlier:-1]], records, arguments)
        for arguments, text in (("LightController-0-CONTROL 1", "value 1 output 0xDEADBEEF fixed\n"),
                                ("Expander-0-GPIO 7 8",
                                 "pin 7 input level 0 switchable\npin 8 output level 1 switchable\n")):
            self.assertEqual(self.probe("get " + arguments)[1], text)

    def test_watch(self):
        gpio, (touch_board, expander, lights) = self.player.gpio, self.player.boards
        for name, device, line, change in (
                ("vantora", gpio, "level 11 1", "pin 11 level 1"),
                ("Expander-0-GPIO", expander, "level 12 1", "pin 12 level 1"),
                ("Expander-0-DIP", expander, "dip 3 1", "pin 3 level 1"),
                ("LightController-0-DIAGNOSTICS", lights, "value 3 300", "value 3 0x0000012C"),
                ("TouchBoard-0-GPIO", touch_board, "touch 4", "pin 3 level 1")):
            command = self.watch(name.lower())
            earliest = float(self.answer(device, "state", "state")[0])
            device.send(line)
            stamp = self.assertPrints(command, f"{name} {change}")
            # The devices' records have the same clock.
            self.assertLess(earliest, stamp)
            self.assertLess(stamp, float(self.answer(device, "state", "state")[0]))
            command.kill(signal.SIGINT)
            self.assertEqual(command.wait(RUN_TIMEOUT), 0)

    def record(self, *arguments):
        command = self.start("record", *arguments)
        self.assertTrue(self.player.wait_for(lambda: b"recording\n" in command.stderr, RUN_TIMEOUT), command.stderr)
        return command

    def test_record(self):
        lights, name = self.player.boards[2], "LightController-0-CONTROL"
        command = self.record(name.lower(), "--count=2")
        # What comes next is printed at once; what is sent to the board is not, what the kernel asks it for is.
        lights.send("value 3 0x12345678")
        self.assertTrue(self.player.wait_for(lambda: b"78 56 34 12" in command.stdout, RUN_TIMEOUT), command.stdout)
        self.assertEqual(self.probe(f"set {name} 1=0xDEADBEEF"), (0, "", ""))
        self.assertEqual(self.probe("get LightController-0-DIAGNOSTICS 3")[0], 0)
        self.assertEqual(command.wait(RUN_TIMEOUT), 0)
        head, *reports = re.split(r"^E: (?=0000)", command.stdout.decode(), flags=re.MULTILINE)
        self.assertRegex(head, r"^R: 56 06 88 ff 09 01 [0-9a-f ]* c0\nN: padtune Virtual light controller\n"
                               r"P: usb-vhci_hcd\.0-3/input0\nI: 3 2877 0088\n$")
        self.assertRegex(reports[0], r"^000000\.000000 33 02( \w\w){12} 78 56 34 12( \w\w){16}\n$")
        self.assertRegex(reports[1], r"^0000\d\d\.\d{6} 33 02( \w\w){12} 78 56 34 12( \w\w){16}\n$")
        self.assertNotIn(" de ", command.stdout.decode())
        for option, end in (("--timeout=0", None), ("--timeout=60", signal.SIGTERM)):
            command = self.record(name, option)
            if end:
                command.kill(end)
            self.assertEqual((command.wait(RUN_TIMEOUT), command.stdout.decode()), (0, head), option)

    def test_record_ends_with_the_board_or_its_reader(self):
        expander = self.player.boards[1]
        command = self.record("Expander-0-GPIO")
        expander.send("level 3 1")
        self.assertTrue(self.player.wait_for(lambda: b"E: " in command.stdout, RUN_TIMEOUT), command.stdout)
        expander.unplug()
        self.assertEqual(command.wait(RUN_TIMEOUT), 1)
        self.assertTrue(command.stderr.decode().endswith(
            "portprobe: Expander-0-GPIO: the board has gone; the record ends there\n"), command.stderr)
        expander.plug()
        # The reader of the pipe has gone before the first line.
        command = self.player.run(["sh", "-c", "mkfifo /tmp/pipe; : </tmp/pipe & exec 3>/tmp/pipe; wait; "
                                   "portprobe record Expander-0-GPIO >&3"], RUN_TIMEOUT)
        self.assertEqual((command.status, command.stderr.decode()),
                         (1, "portprobe: Expander-0-GPIO: standard output: Broken pipe (32)\n"))

    def test_watch_takes_several_ports_and_leaves_out_what_is_not_wanted(self):
        gpio, (_, expander, lights) = self.player.gpio, self.player.boards
        self.assertEqual(self.probe("input vantora 8 10 11"), (0, "", ""))
        gpio.send("level 8 0\nlevel 10 0\nlevel 11 0")
        command = self.watch("vantora", "expander-0-gpio", "--pins=10,11", "--edges=rising",
                             "--count=3")
        for device, line, change in (
                (gpio, "level 8 1\nlevel 11 1\nlevel 11 0\nlevel 10 1", "vantora pin 10 level 1"),
                (expander, "level 8 1\nlevel 10 1\nlevel 10 0", "Expander-0-GPIO pin 10 level 1")):
            device.send(line)
            self.assertPrints(command, change)
        self.assertEqual(self.printed(command), [
            "vantora pin 10 level 0 initial", "vantora pin 11 level 0 initial",
            "Expander-0-GPIO pin 10 level 0 initial", "Expander-0-GPIO pin 11 level 0 initial",
            "vantora pin 11 level 1", "vantora pin 10 level 1", "Expander-0-GPIO pin 10 level 1"])
        # Nobody hears of this; the watch starts with it, and it is no change.
        lights.send("value 7 700")
        command = self.watch("LightController-0-DIAGNOSTICS", "--pins=7,6", "--count=1")
        lights.send("value 7 700\nvalue 6 0xFFFFFFFF")
        name = "LightController-0-DIAGNOSTICS value"
        self.assertEqual(self.printed(command), [f"{name} 6 0x00000000 initial", f"{name} 7 0x000002BC initial",
                                                 f"{name} 6 0xFFFFFFFF"])
        self.assertEqual(self.printed(self.watch("vantora", "--pins", "8", "--timeout", "1")),
                         ["vantora pin 8 level 1 initial"])

    def test_watch_tells_the_time_of_the_edge_and_of_dropped_changes(self):
        gpio = self.player.gpio
        gpio.send("level 12 0")
        command = self.watch("vantora", "--pins=12")
        command.kill(signal.SIGSTOP)
        gpio.send("level 12 1\nlevel 12 0\nlevel 12 1")
        latest = float(self.answer(gpio, "state", "state")[0])
        command.kill(signal.SIGCONT)
        self.assertTrue(self.player.wait_for(lambda: command.stdout.count(b"\n") == 4, RUN_TIMEOUT), command.stdout)
        self.assertLess(float(command.stdout.split()[-6]), latest)
        command.kill(signal.SIGSTOP)
        gpio.send("level 12 0\nlevel 12 1\n" * 50 + "level 12 0")
        self.answer(gpio, "state", "state")
        printed = len(command.stdout)
        command.kill(signal.SIGCONT)
        self.assertTrue(self.player.wait_for(lambda: command.stdout.endswith(b"level 0\n"), RUN_TIMEOUT))
        self.assertEqual([line.split(" ", 1)[1] for line in command.stdout[printed:].decode().splitlines()],
                         ["vantora dropped", "vantora pin 12 level 0"])

    def test_signals_end_a_watch_that_is_still_opening_its_ports(self):
        touch_board = self.player.boards[0]
        self.addCleanup(touch_board.send, "unmute")
        touch_board.send("mute")
        self.answer(touch_board, "state", "state")
        command = self.start("watch", "TouchBoard-0-GPIO")
        # The second descriptor is the port's: from here on it asks for the inputs, for ten seconds.
        self.player.shell("until ls -l /proc/$(pidof portprobe)/fd | grep -c hiddev0 | grep 2; do sleep 0.1; done")
        command.kill(signal.SIGINT)
        self.assertEqual((command.wait(RUN_TIMEOUT), command.stderr), (128 + signal.SIGINT, b""))

    def test_watch_outlives_a_short_absence_only(self):
        expander = self.player.boards[1]
        command = self.watch("Expander-0-DIP")
        expander.unplug()
        expander.plug()
        # The port comes back after the node; changes until then are not reported.
        for _ in range(RUN_TIMEOUT):
            expander.send("dip 5 1\ndip 5 0")
            if self.player.wait_for(lambda: b" pin 5 level 1\n" in command.stdout, 1):
                break
        self.assertIn(b" pin 5 level 1\n", command.stdout)
        expander.unplug()
        self.assertEqual(command.wait(RUN_TIMEOUT), 1)
        expander.plug()
        self.assertIn(b"portprobe: Expander-0-DIP: the device has been gone for 10 seconds\n", command.stderr)

    def test_watch_goes_on_counting_when_standard_output_takes_no_more(self):
        touch_board, name = self.player.boards[0], "TouchBoard-0-DIAGNOSTICS"
        # A pipe without a reader: it has both ends itself.
        command = self.start_command("sh", "-c", f"mkfifo /pipe && exec portprobe watch {name} 1<>/pipe")
        self.assertTrue(self.player.wait_for(lambda: b"watching\n" in command.stderr, RUN_TIMEOUT), command.stderr)
        for button in (1, 2, 3):
            self.assertEqual(self.probe(f"set TouchBoard-0-LED-SETUP 0 0x{button:X}C2"), (0, "", ""))
        self.addCleanup(touch_board.send, "rate 0")
        touch_board.send("rate 1000")
        self.wait_for_reports(touch_board, 1000)
        reader = self.start_command("cat", "/pipe")
        missed = re.compile(rf"^[\d.]+ {name} missed [1-9]\d*\n".encode(), re.MULTILINE)
        self.assertTrue(self.player.wait_for(lambda: missed.search(reader.stdout), RUN_TIMEOUT), reader.stdout[-200:])
        reader.kill()
        reader.wait(RUN_TIMEOUT)
        lines = reader.stdout.decode().split("\n")[:-1]
        self.assertEqual({line.split()[1] for line in lines}, {name})
        stamps = [float(line.split()[0]) for line in lines]
        self.assertEqual(stamps, sorted(stamps))

        self.wait_for_reports(touch_board, 200)
        command.kill()
        self.assertEqual(command.wait(RUN_TIMEOUT), 0)
        self.assertRegex(command.stderr.decode(), f"portprobe: {name}: standard output took no more: "
                                                  r"[1-9]\d* changes not printed\n$")

    def test_pulses_have_the_period_and_the_steps_that_are_asked_for(self):
        gpio = self.player.gpio
        seen = len(gpio.records)
        self.start("pulse", "vantora", "10=1", "--period=100000", "--steps=4")
        edges = []  # in seconds; up, down, up ...
        for level in (1, 0) * 4:
            seen = gpio.wait_for_record(f"write 17 18 {level}", start=seen)
            edges.append(float(gpio.records[seen].split()[0]))
        self.assertAlmostEqual((edges[6] - edges[0]) / 3, 0.4, delta=0.05)
        self.assertAlmostEqual(sum(edges[i + 1] - edges[i] for i in (0, 2, 4)) / 3, 0.1, delta=0.05)

    def test_pulses_end_with_a_signal_or_the_device_and_leave_the_line_low(self):
        gpio = self.player.gpio
        # Always high: only the end sets it low.
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            earlier = len(gpio.records)
            command = self.start("pulse", "vantora", "10=10", "--period=5000")
            earlier = gpio.wait_for_record("write 17 18 1", start=earlier)
            command.kill(number)
            self.assertEqual((command.wait(RUN_TIMEOUT), command.stderr), (0, b""))
            gpio.wait_for_record("write 17 18 0", start=earlier)
        self.addCleanup(gpio.send, "fail nothing")
        earlier = len(gpio.records)
        command = self.start("pulse", "vantora", "10=5")
        gpio.wait_for_record("write 17 18 1", start=earlier)
        gpio.send("fail write")
        self.assertEqual(command.wait(RUN_TIMEOUT), 1)
        # This one is not even high, so nothing fails in the end.
        self.assertEqual(self.probe("pulse vantora 10=0"), (
            1, "",
            "GPIOPulse: the pulse of pin 10 ends: Input/output error (5)\nportprobe: vantora: the pulse has ended\n"))


if __name__ == "__main__":
    unittest.main()
