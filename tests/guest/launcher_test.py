#!/usr/bin/python3
"""The launcher as its user meets it: what it says while it boots, and that nothing of it is left however it ends."""

import os
import pathlib
import pty
import select
import signal
import subprocess
import tempfile
import unittest

from guest import RUN_TIMEOUT, build_folder

TOP = pathlib.Path(__file__).resolve().parents[2]
LAUNCHER = TOP / "virtual_player/virtual-player"
UNTIL_KILLED = ("sh", "-c", "echo up; exec sleep 600")

# The launcher, but for a guest that does not end it would wait for days, and it says when it begins to.
PATIENT = f"""import runpy, sys
sys.path.insert(0, {str(LAUNCHER.parent)!r})
import player
stop = player.VirtualPlayer.stop
player.VirtualPlayer.stop = lambda self: (print("stopping", flush=True), stop(self))
player.STOP_TIMEOUT = 1e6
runpy.run_path({str(LAUNCHER)!r}, run_name="__main__")"""


class Launcher(unittest.TestCase):
    def setUp(self):
        self.scratch = self.enterContext(tempfile.TemporaryDirectory())
        # Inherited by whatever the launcher starts.
        self.mark = f"PADTUNE_TEST={self.scratch}"
        self.addCleanup(lambda: [os.kill(process, signal.SIGKILL) for process in self.processes()])

    def processes(self):
        """What the launcher started and still runs."""
        found = []
        for process in pathlib.Path("/proc").iterdir():
            try:
                if process.name.isdigit() and self.mark.encode() in (process / "environ").read_bytes().split(b"\0"):
                    found.append(int(process.name))
            except OSError:  # it has ended, or belongs to somebody else
                pass
        return found

    def start(self, program=(LAUNCHER,), stderr=subprocess.PIPE):
        launcher = subprocess.Popen(
            ["/usr/bin/python3", *program, "--build", build_folder(), "--no-board", "--", *UNTIL_KILLED],
            env={**os.environ, "TMPDIR": self.scratch, "PADTUNE_TEST": self.scratch}, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=stderr)
        self.addCleanup(launcher.communicate)
        self.addCleanup(launcher.kill)
        return launcher

    def check_end(self, launcher, status):
        """It ends with this status, and nothing of it is left."""
        _, words = launcher.communicate(timeout=RUN_TIMEOUT)
        self.assertEqual(launcher.returncode, status, words)
        self.assertNotIn(b"Traceback", words or b"")
        for process in self.processes():  # those of a killed launcher end a moment later
            with open(os.pidfd_open(process)) as end:
                poll = select.poll()
                poll.register(end, select.POLLIN)
                self.assertTrue(poll.poll(1000 * RUN_TIMEOUT), f"{process} still runs")
        self.assertEqual(os.listdir(self.scratch), [])
        return words

    def test_ended_while_it_runs_it_leaves_nothing(self):
        for number, status in ((signal.SIGTERM, 128 + signal.SIGTERM), (signal.SIGKILL, -signal.SIGKILL)):
            with self.subTest(number):
                launcher = self.start()
                self.assertEqual(launcher.stdout.readline(), b"up\n")
                self.assertEqual(len(self.processes()), 2)
                launcher.send_signal(number)
                self.assertTrue(self.check_end(launcher, status).endswith(b"virtual-player: booting the player\n"))

    def test_ended_while_it_boots_it_leaves_nothing(self):
        terminal, stderr = pty.openpty()
        self.addCleanup(os.close, terminal)
        launcher = self.start(stderr=stderr)
        os.close(stderr)
        words = b""
        while b"booting the player, 1 s" not in words:
            words += os.read(terminal, 1000)
        launcher.send_signal(signal.SIGINT)
        self.check_end(launcher, 128 + signal.SIGINT)
        # The line goes; nothing else is said.
        self.assertTrue(os.read(terminal, 1000).endswith(b"\r\x1b[K"))

    def test_a_second_interrupt_does_not_wait_for_the_guest(self):
        launcher = self.start(program=("-c", PATIENT))
        self.assertEqual(launcher.stdout.readline(), b"up\n")
        (guest,) = set(self.processes()) - {launcher.pid}
        os.kill(guest, signal.SIGSTOP)
        launcher.send_signal(signal.SIGINT)
        self.assertEqual(launcher.stdout.readline(), b"stopping\n")
        launcher.send_signal(signal.SIGINT)
        self.check_end(launcher, 128 + signal.SIGINT)

    def test_an_image_that_a_killed_one_left_unfinished_is_made_anew(self):
        packages = subprocess.run([TOP / "scripts/arm64-packages"], stdout=subprocess.PIPE, text=True).stdout.strip()
        with tempfile.TemporaryDirectory() as cache:
            os.symlink(packages, f"{cache}/{os.path.basename(packages)}")
            pathlib.Path(cache, "image.unfinished").write_bytes(b"half of it")
            run = subprocess.run([LAUNCHER, "--build", build_folder(), "--no-board", "true"],
                                 env={**os.environ, "PADTUNE_CACHE": cache}, timeout=2 * RUN_TIMEOUT)
            self.assertEqual(run.returncode, 0)
            left = [name for name in os.listdir(cache) if not name.startswith(os.path.basename(packages))]
            self.assertEqual(left, ["image.lock"])


if __name__ == "__main__":
    unittest.main()
