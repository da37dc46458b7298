"""The virtual player: a QEMU guest that runs cross-built programs, with boards on its USB bus and GPIO lines.

    with VirtualPlayer(boards=["KP480"]) as player:
        player.boards[0].send("touch 3")
        status = player.run(["padtune", "--timeout", "8"])
        player.picture("page.png")

Whatever goes wrong with the guest itself is a PlayerError whose text holds the guest's console output. All methods
are for one thread, except that any thread may send lines to a device and take pictures.
"""

import json
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading

import device_tree as tree
import guest_image
import recording
from picture import Picture

TOP = pathlib.Path(__file__).resolve().parent.parent
DEFAULT_BUILD = TOP / "build" / "arm64"

# Built programs, relative to the build folder; they are commands in the guest.
AGENT = "virtual_player/agent"
BOARD_PROGRAM = "virtual_player/board/usb-board"
GPIO_PROGRAM = "virtual_player/gpio/gpio-lines"
OWN_PROGRAMS = (AGENT, BOARD_PROGRAM, GPIO_PROGRAM)
PROGRAMS = ("padtune", "portprobe")

# The guest's machine, as far as its device tree depends on it.
MACHINE = ("qemu-system-aarch64", "-accel", "tcg", "-cpu", "cortex-a53", "-m", "512", "-nodefaults")

# What boots it, and what its image and its device tree are made with.
NEEDED = (MACHINE[0], "setpriv", "modinfo", "aarch64-linux-gnu-readelf", "dpkg-deb", "fdtput")

# Puts an end to QEMU also when this process is killed. It counts the thread that starts QEMU as the parent.
DIE_WITH_PARENT = ("setpriv", "--pdeathsig", "KILL", "--")

ENVIRONMENT = {
    "PATH": "/usr/local/bin:/usr/bin:/usr/sbin",
    "HOME": "/",
    # DirectFB on the frame buffer, without a mouse and without the text console, which would paint over the last page
    # as soon as the program that drew it ends. Of its messages, warnings and the reports of failed calls are left: the
    # guest's frame buffer has no gamma ramp, and every end is an "error" and "UNIMPLEMENTED" to it.
    "DFBARGS": "system=fbdev,no-cursor,no-vt,no-banner,quiet=info,quiet=error,quiet=unimplemented",
}

# What makes the programs.
BUILD = "cmake --preset arm64 && cmake --build --preset arm64"

BOOT_TIMEOUT = 60
RECORD_TIMEOUT = 40
STOP_TIMEOUT = 5

# Frames to and from the guest's agent; see guest/agent.cpp.
HEADER = struct.Struct("<III")
READY, START, INPUT, SIGNAL, OUTPUT, ERROR, EXIT = range(7)


# Before the name of a recording, in the place of a model; and the guest's folder of recordings.
REPLAY = "replay:"
RECORDINGS = "/recordings"

# A line that a device refused.
REFUSAL = re.compile(r"error: line (\d+): (.*)")


class PlayerError(Exception):
    """The guest did not start, died, or a device of it failed."""


class UnknownModelError(PlayerError):
    """There is no board of a model; `known` are those that there are."""

    def __init__(self, model, known):
        super().__init__(f"no board model {model}: there are {', '.join(known)}")
        self.model = model
        self.known = known


class Command:
    """A command in the guest, running or ended."""

    def __init__(self, player, number, arguments):
        self._player = player
        self._number = number
        self.arguments = arguments
        self.stdout = bytearray()
        self.stderr = bytearray()
        #: None while it runs; then the exit status, or 128 + the signal that ended it
        self.status = None

    def write(self, data):
        """Gives bytes to its standard input."""
        if data:
            self._player._send(self._number, INPUT, data)

    def close_input(self):
        self._player._send(self._number, INPUT, b"")

    def kill(self, signal_number=signal.SIGTERM):
        self._player._send(self._number, SIGNAL, bytes([signal_number]))

    def wait(self, timeout=None):
        """Waits until it has ended and returns its status; after `timeout` seconds it is killed: TimeoutError."""
        if not self._player.wait_for(lambda: self.status is not None, timeout):
            self.kill(signal.SIGKILL)
            raise TimeoutError(f"{' '.join(self.arguments)} has not ended within {timeout} s")
        return self.status


class Device:
    """A device in the guest, played by a program: takes control lines, gives record lines."""

    def __init__(self, player, arguments):
        self._player = player
        self._command = player.start(arguments)
        #: its record lines as they come
        self.output = self._command.stdout
        self._records = []
        self._decoded_bytes = 0  # of the output, in _records
        self._sending = threading.Lock()
        self._lines_sent = 0
        self._states_asked = 0
        self._told_to_quit = False
        self._refusals = {}

    def send(self, line):
        """Gives the device a control line, such as "touch 3" or "level 4 1", and returns its number."""
        with self._sending:
            if self._told_to_quit:
                raise PlayerError(f"{self._name()} has been told to quit before '{line}'")
            lines = line.split("\n")
            self._lines_sent += len(lines)
            self._states_asked += lines.count("state")
            self._told_to_quit = "quit" in lines
            self._command.write(line.encode() + b"\n")
            return self._lines_sent

    def settle(self):
        """Waits until the device has done, or refused, all that it was told."""
        if self._told_to_quit:
            self._player.wait_for(lambda: self._command.status is not None, RECORD_TIMEOUT)
            return
        self.send("state")  # answered after all else
        self._wait_for(lambda: sum(" state " in record for record in self.records) >= self._states_asked, "state")

    @property
    def records(self):
        """The record lines up to now, in a list that grows when it is asked for again."""
        self._take_in_records()
        return self._records

    @property
    def refusals(self):
        """{number of a line: why the device refused it}, up to now."""
        self._take_in_records()
        return self._refusals

    def _take_in_records(self):
        end = self.output.rfind(b"\n", self._decoded_bytes) + 1
        if end > 0:
            fresh = self.output[self._decoded_bytes:end].decode(errors="replace").split("\n")[:-1]
            self._refusals |= {int(match[1]): match[2] for match in map(REFUSAL.fullmatch, fresh) if match}
            self._records += fresh
            self._decoded_bytes = end

    def wait_for_record(self, text, timeout=RECORD_TIMEOUT, start=0):
        """Waits for a record line that contains `text`, from record number `start` on, and returns its number. A line
        that the device refuses first is a PlayerError."""

        def find():
            # On from where the last look ended.
            nonlocal start
            lines = self.records
            while start < len(lines) and text not in lines[start]:
                if lines[start].startswith("error: "):
                    raise PlayerError(f"{self._name()} refuses {lines[start].removeprefix('error: ')}")
                start += 1
            return start < len(lines)

        self._wait_for(find, text, timeout)
        return start

    def _wait_for(self, condition, text, timeout=RECORD_TIMEOUT):
        self._player.wait_for(lambda: condition() or self._command.status is not None, timeout)
        if not condition():
            problem = self._command.stderr.decode(errors="replace")
            if self._command.status is None:
                state = "still runs; try again when this machine has less to do"
            else:
                state = f"has ended with {self._command.status}; try again with programs that are up to date: {BUILD}"
            raise PlayerError(f"no record '{text}' from {self._name()}, which {state}; "
                              f"its last words: {problem}{self.records[-5:]}")

    def _name(self):
        return " ".join(self._command.arguments)


class Board(Device):
    """A board on the guest's USB bus."""

    def __init__(self, player, model, port):
        super().__init__(player, ["usb-board", "--model", model, "--port", str(port)])
        #: whether it plays a recording
        self.is_replay = model.startswith(REPLAY)

    def unplug(self):
        """Takes the board off the bus; the kernel may take its time to clear up."""
        self._send_and_wait("unplug", " unplug")

    def plug(self):
        """Puts the board back on the bus and waits for its device node."""
        self._send_and_wait("plug", " plugged")

    def _send_and_wait(self, line, record):
        start = len(self.records)
        self.send(line)
        self.wait_for_record(record, start=start)


class VirtualPlayer:
    """A context manager: entered, the guest is up and its boards are attached; left, nothing remains. The thread that
    enters it must live as long.

    screen      (width, height) of the frame buffer
    video_mode  content of /var/run/video.mode, or None for no such file
    boards      one for each board: a model, as usb-board knows them, or "replay:FILE" for one that plays a recording;
                board N sits at USB position N
    gpio        whether the player has its GPIO lines; they are `gpio` then
    device_tree what the guest's device tree has besides QEMU's own: {path of a node: {property: value}}, values as
                for device_tree.make(); None: nothing
    build       build folder that the programs come from
    packages    Debian packages; when there are any, the guest has what they hold, and of the build folder only the
                programs of the virtual player itself
    files       {path in the guest: path here} of more files to take along
    window      whether the screen is shown in a window
    processors  how many processors the guest has
    tell        called with what begins ("booting the player") while it is entered, and with None at the end
    """

    def __init__(self, screen=(1280, 720), video_mode="1280x720x60p", boards=("KP480",), packages=(), gpio=False,
                 device_tree=None, build=DEFAULT_BUILD, files=None, window=False,
                 processors=1, tell=lambda what: None):
        self._screen = screen
        self._video_mode = video_mode
        self._models = boards
        self._has_gpio = gpio
        self._device_tree = device_tree
        self._build = pathlib.Path(build)
        self._packages = packages
        self._files = dict(files or {})
        self._window = window
        self._tell = tell
        self._machine = (*MACHINE, "-smp", str(processors))
        self._qemu = None
        self._commands = {}
        self._ready = False
        #: grows with everything that comes from the guest
        self.frames_received = 0
        self._gone = False
        self._changed = threading.Condition()
        self._sending = threading.Lock()
        self._monitoring = threading.Lock()
        self.boards = []
        self.gpio = None

    def __enter__(self):
        try:
            recordings = self._pack_recordings()
            self._boot(recordings)
            if self._has_gpio:
                self.gpio = Device(self, ["gpio-lines"])
                self.gpio.wait_for_record("ready")
            self._check_models()
            for port, model in enumerate(self._models):
                if port in recordings:
                    model = f"{REPLAY}{RECORDINGS}/{port}"
                # One after the other, so that their device nodes are in order too.
                self.boards.append(Board(self, model, port))
                self.boards[-1].wait_for_record("ready")
        except BaseException:
            self.stop()
            raise
        finally:
            self._tell(None)
        return self

    def __exit__(self, *exception):
        self.stop()

    def _pack_recordings(self):
        """{number of the board: the recording that it plays, as usb-board takes it}"""
        try:
            return {port: recording.read(model.removeprefix(REPLAY)).pack()
                    for port, model in enumerate(self._models) if model.startswith(REPLAY)}
        except recording.RecordingError as error:
            raise PlayerError(str(error)) from error

    def _check_models(self):
        models = [model for model in self._models if not model.startswith(REPLAY)]
        if not models:
            return
        # The program of the boards knows them, and runs in the guest alone.
        listing = self.run(["usb-board", "--list-models"], RECORD_TIMEOUT)
        if listing.status != 0:
            raise PlayerError(f"usb-board does not list its models (status {listing.status}); try again with programs "
                              f"that are up to date: {BUILD}")
        known = listing.stdout.decode().split()
        for model in models:
            if model not in known:
                raise UnknownModelError(model, known)

    # --- commands ---

    def start(self, arguments, environment=None, directory="/"):
        """Starts a command in the guest and returns it while it runs."""
        environment = {**ENVIRONMENT, **(environment or {})}
        strings = [directory, str(len(arguments)), *arguments, *(f"{k}={v}" for k, v in environment.items())]
        command = Command(self, len(self._commands) + 1, arguments)
        self._commands[command._number] = command
        self._send(command._number, START, b"".join(os.fsencode(string) + b"\0" for string in strings))
        return command

    def run(self, arguments, timeout=None, **options):
        """Runs a command without input to its end and returns it; options as for start()."""
        command = self.start(arguments, **options)
        command.close_input()
        command.wait(timeout)
        return command

    def shell(self, script, timeout=30):
        """Runs a line of shell in the guest and returns what it printed; PlayerError if it fails."""
        command = self.run(["sh", "-c", script], timeout)
        if command.status != 0:
            raise PlayerError(f"'{script}' ended with {command.status}: {command.stderr.decode(errors='replace')}")
        return command.stdout.decode(errors="replace")

    def put(self, source, target):
        """Copies a file into the guest, with its permissions."""
        source = pathlib.Path(source)
        command = self.start(["sh", "-c", 'cat >"$0" && chmod "$1" "$0"', target, f"{source.stat().st_mode & 0o777:o}"])
        command.write(source.read_bytes())
        command.close_input()
        if command.wait(60) != 0:
            raise PlayerError(f"cannot write {target}: {command.stderr.decode(errors='replace')}")

    def get(self, source):
        """The content of a file in the guest."""
        command = self.run(["cat", source], 60)
        if command.status != 0:
            raise PlayerError(f"cannot read {source}: {command.stderr.decode(errors='replace')}")
        return command.stdout

    # --- devices ---

    @property
    def devices(self):
        """{name in scenarios: device}: "board 0", "board 1", …, and "player", its GPIO lines, where it has them."""
        boards = {f"board {number}": board for number, board in enumerate(self.boards)}
        return boards | ({"player": self.gpio} if self.gpio else {})

    def clear_screen(self):
        """What a program drew stays on the screen after its end: this makes it black."""
        self.shell("cat /dev/zero >/dev/fb0 2>/dev/null; true")

    def picture(self, path):
        """Writes what the screen shows now to a file: a pixmap if its name ends in .ppm, otherwise PNG."""
        self._dump_screen(path, "ppm" if str(path).endswith(".ppm") else "png")

    def screen(self):
        """What the screen shows now, as a Picture."""
        with tempfile.NamedTemporaryFile(suffix=".ppm") as file:
            self._dump_screen(file.name, "ppm")
            return Picture(file.name)

    def _dump_screen(self, path, form):
        self._qmp_execute("screendump", filename=str(pathlib.Path(path).absolute()), format=form)

    def console(self):
        """What the guest's kernel and first process have printed."""
        return pathlib.Path(f"/dev/fd/{self._console.fileno()}").read_bytes().decode(errors="replace")

    # --- waiting ---

    def wait_for(self, condition, timeout=None):
        """Waits until `condition` holds, checked whenever something came from the guest; False after `timeout`."""
        with self._changed:
            held = self._changed.wait_for(lambda: self._gone or condition(), timeout)
            if not condition() and self._gone:
                raise self._death()
            return held

    # --- the machine ---

    def _boot(self, recordings):
        missing = [program for program in NEEDED if not shutil.which(program, path=guest_image.SEARCH_PATH)]
        if missing:
            raise PlayerError(f"not installed: {', '.join(missing)}; run scripts/setup")
        kernel, base = guest_image.kernel_and_base(self._tell)
        self._tell("booting the player")
        # Whatever may be wrong with these shows before there is something to close.
        overlay = self._overlay(recordings)
        device_tree = self._make_device_tree()
        display = self._display()
        agent_end, port_end = socket.socketpair()
        qmp_end, monitor_end = socket.socketpair()
        self._agent, self._qmp = agent_end, qmp_end
        self._console = tempfile.TemporaryFile()
        # Nothing of this has a name in the file system, so nothing can be left behind.
        with port_end, monitor_end, tempfile.TemporaryFile() as initrd, tempfile.TemporaryFile() as dtb:
            initrd.write(base.read_bytes())
            initrd.write(overlay)
            initrd.flush()
            command = self._qemu_command(kernel, display, port_end.fileno(), monitor_end.fileno(), initrd.fileno())
            if device_tree is not None:
                dtb.write(device_tree)
                dtb.flush()
                command += ["-dtb", f"/dev/fd/{dtb.fileno()}"]
            inherited = (port_end.fileno(), monitor_end.fileno(), initrd.fileno(), dtb.fileno())
            self._qemu = subprocess.Popen([*DIE_WITH_PARENT, *command], pass_fds=inherited,
                                          stdin=subprocess.DEVNULL, stdout=self._console, stderr=self._console,
                                          start_new_session=True)
            threading.Thread(target=self._receive, daemon=True).start()
            if not self.wait_for(lambda: self._ready, BOOT_TIMEOUT):
                raise PlayerError(f"the guest is not up after {BOOT_TIMEOUT} s; try again when this machine has less "
                                  f"to do; its console:\n{self._last_words()}")
        self._qmp_stream = self._qmp.makefile("rw")
        self._qmp_stream.readline()
        self._qmp_execute("qmp_capabilities")

    def _qemu_command(self, kernel, display, port, monitor, initrd):
        width, height = self._screen
        return [
            *self._machine, "-M", "virt", "-no-reboot", "-display", display, "-serial", "stdio",
            "-kernel", str(kernel), "-initrd", f"/dev/fd/{initrd}",
            # The text console stays off the frame buffer: it may only have a second one, and there is none.
            "-append", "console=ttyAMA0 panic=-1 quiet fbcon=map:1",
            "-chardev", f"socket,id=agent,fd={port}",
            "-device", "virtio-serial-pci", "-device", "virtserialport,chardev=agent,name=agent",
            "-chardev", f"socket,id=monitor,fd={monitor}", "-mon", "chardev=monitor,mode=control",
            "-device", f"virtio-gpu-pci,xres={width},yres={height}",
        ]

    def _make_device_tree(self):
        if self._device_tree is None:
            return None
        try:
            return tree.make(self._machine, self._device_tree)
        except tree.DeviceTreeError as error:
            raise PlayerError(str(error)) from error

    def _display(self):
        if not self._window:
            return "none"
        known = subprocess.run(["qemu-system-aarch64", "-display", "help"], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True).stdout
        for display in ("gtk", "sdl"):
            if display in known.split():
                return display
        raise PlayerError("this QEMU cannot open a window: apt-get install qemu-system-gui")

    def _overlay(self, recordings):
        archive = guest_image.Archive()
        programs = OWN_PROGRAMS if self._packages else OWN_PROGRAMS + PROGRAMS
        files = {f"/usr/local/bin/{pathlib.Path(program).name}": self._build / program for program in programs}
        if not files["/usr/local/bin/agent"].exists():
            raise PlayerError(f"{self._build} has no agent: build it with `{BUILD}`")
        for target, source in {**files, **self._files}.items():
            source = pathlib.Path(source)
            if source.exists() or target in self._files:
                archive.add_file(target.lstrip("/"), source.read_bytes(), source.stat().st_mode & 0o777)
        try:
            for package in self._packages:
                archive.add_package(package)
        except guest_image.PackageError as error:
            raise PlayerError(str(error)) from error
        if recordings:
            archive.add_directory(RECORDINGS.lstrip("/"))
        for port, packed in recordings.items():
            archive.add_file(f"{RECORDINGS}/{port}".lstrip("/"), packed)
        if self._video_mode is not None:
            archive.add_file("etc/video.mode", self._video_mode.encode())
        return archive.content()

    def _receive(self):
        """Runs on a thread of its own until the guest has gone."""
        try:
            with self._agent.makefile("rb") as stream:
                while len(header := stream.read(HEADER.size)) == HEADER.size:
                    number, kind, length = HEADER.unpack(header)
                    self._handle_frame(number, kind, stream.read(length))
        finally:
            with self._changed:
                self._gone = True
                self._changed.notify_all()

    def _handle_frame(self, number, kind, payload):
        command = self._commands.get(number)
        with self._changed:
            self.frames_received += 1
            if kind == READY:
                self._ready = True
            elif kind == OUTPUT:
                command.stdout += payload
            elif kind == ERROR:
                command.stderr += payload
            elif kind == EXIT:
                command.status = payload[0]
            self._changed.notify_all()

    def _send(self, number, kind, payload):
        try:
            with self._sending:
                self._agent.sendall(HEADER.pack(number, kind, len(payload)) + payload)
        except OSError as error:
            raise self._death() from error

    def _qmp_execute(self, command, **arguments):
        with self._monitoring:
            json.dump({"execute": command, "arguments": arguments}, self._qmp_stream)
            self._qmp_stream.flush()
            for line in self._qmp_stream:
                answer = json.loads(line)
                if "error" in answer:
                    raise PlayerError(f"{command}: {answer['error']['desc']}")
                if "return" in answer:
                    return
        raise self._death()

    def _death(self):
        """What is said when nothing more comes from the guest."""
        words = self._last_words()
        if self._ready:
            return PlayerError("the guest has died; try again, and if it dies again, the reason is in its console:\n"
                               f"{words}")
        return PlayerError("the guest has ended before it was up; if QEMU objects to something, scripts/setup installs "
                           f"what it needs; if the kernel does, try again; its console:\n{words}")

    def _last_words(self):
        # The port closes when QEMU ends, which may be a moment before the console is complete.
        try:
            self._qemu.wait(1)
        except subprocess.TimeoutExpired:
            pass
        return "".join(f"  | {line}\n" for line in self.console().splitlines()) or "  | (nothing)\n"

    def stop(self):
        """Ends the guest; may be called again."""
        if self._qemu is None:
            return
        # The agent switches the guest off when its port closes, and would also if this process were killed.
        self._agent.shutdown(socket.SHUT_RDWR)
        try:
            self._qemu.wait(STOP_TIMEOUT)
        except subprocess.TimeoutExpired:
            pass
        finally:
            # It has ended, or has had its time, or who waits for it wants no more of it.
            self._qemu.kill()
            self._qemu.wait()
            self._qemu = None
            for resource in (self._agent, self._qmp, self._console):
                resource.close()
