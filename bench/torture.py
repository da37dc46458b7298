#!/usr/bin/python3
"""Whole runs of padtune in the virtual player, in each of which one call fails: every call on the way to the board
in turn, then each place in the program that calls DirectFB. Says how every run ended; fails if one ended in a way it
must not: a hang, a crash, a descriptor left open, a setup value that the board did not send.

usage: torture.py [--every N] [hid|display]...
    --every N   only each Nth of the calls
"""

import argparse
import collections
import os
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "virtual_player"))

from player import DEFAULT_BUILD, VirtualPlayer  # noqa: E402

SHIM = "/usr/local/lib/fault-shim.so"
LOG = "/tmp/calls"
RUN_TIMEOUT = 120
# Short, and with few reports: each is a call or two.
ARGUMENTS = ("padtune", "--timeout", "1", "--pause", "0", "--output-diagnostics", "x", "--noise-threshold", "40",
             "--disable-led", "3", "--led-mask", "1,0,1")
REPORTS_PER_SECOND = 4

ABORTED = 128 + 6
KILLED = 128 + 9
SAMPLE_LINE = re.compile(r" *\d+\.\d+: BT\d+: .*|SetButtonMask: .*")

# Results that are looked at: DirectFB's own fatal error ends these.
CHECKED = ("DirectFBInit", "DirectFBCreate", "IDirectFB.GetScreen", "IDirectFB.CreateSurface", "IDirectFB.CreateFont",
           "IDirectFBScreen.GetSize", "IDirectFBSurface.Flip")

# Without its pipe the poll thread cannot be: what standard error then says.
DOCUMENTED_ABORTS = {"pipe": "'ErrnoException'", "read": "PollWaker::Acknowledge failed: Input/output error"}

# What a run calls at least; fewer would mean that the library misses them.
EXPECTED = {
    "hid": {"open", "ioctl", "read", "write", "poll", "ppoll", "pipe", "eventfd", "socket", "bind", "udev_new",
            "udev_monitor_new_from_netlink", "udev_device_new_from_subsystem_sysname"},
    "display": {*CHECKED, "IDirectFBSurface.DrawString", "IDirectFBFont.GetStringExtents"},
}

Call = collections.namedtuple("Call", "number name site")


class Torture:
    def __init__(self, player, every):
        self._player = player
        self._every = every
        self._known_lines = set()
        self.problems = []

    def run(self, kind, **failing):
        """A whole run; its command, the calls it made and the descriptors that it left open."""
        command = self._player.start(ARGUMENTS, environment={
            "LD_PRELOAD": SHIM, "FAULT_CALLS": kind, "FAULT_LOG": LOG, **failing})
        command.close_input()
        try:
            command.wait(RUN_TIMEOUT)
        except TimeoutError:
            command.wait(10)  # it was killed
        lines = self._player.get(LOG).decode().splitlines()
        calls = [Call(int(number), name, site) for number, name, site in
                 (line.split() for line in lines if line[0].isdigit())]
        return command, calls, [line for line in lines if line.startswith("leak")]

    def torture(self, kind):
        clean, calls, leaks = self.run(kind)
        self._known_lines = set(clean.stderr.decode().splitlines())
        missing = EXPECTED[kind] - {call.name for call in calls}
        if clean.status != 0 or leaks or missing:
            raise RuntimeError(f"the run without a failure: {clean.status} {leaks} {missing} {clean.stderr.decode()}")
        if kind == "display":
            # Frame by frame the same calls: the first from each place stands for all.
            calls = list({call.site: call for call in reversed(calls)}.values())[::-1]
        chosen = calls[::self._every]
        print(f"{kind}: {len(calls)} calls, {len(chosen)} of them failed in turn")
        ends = collections.Counter()
        for call in chosen:
            name, end = self._end_of(kind, call)
            ends[name, end] += 1
            print(f"  {call.number:4}  {name:45} {end}", file=sys.stderr, flush=True)
        for (name, end), count in sorted(ends.items()):
            print(f"  {count:4}  {name:45} {end}", flush=True)

    def _end_of(self, kind, call):
        """The name of the call that failed and how the run ended."""
        failing = {"FAULT_SITE": call.site} if kind == "display" else {"FAULT_AT": str(call.number)}
        command, calls, leaks = self.run(kind, **failing)
        # With several threads the calls come in another order every time.
        failed = next((other for other in calls
                       if (other.site == call.site if kind == "display" else other.number == call.number)), None)
        if failed is None:
            return call.name, "the run was over before"
        return failed.name, self._judge(kind, failed, command, leaks)

    def _judge(self, kind, call, command, leaks):
        errors = command.stderr.decode(errors="replace")
        if command.status == KILLED:
            return self._problem(call, "hangs", errors)
        if kind == "display" and call.name in CHECKED:
            if re.search(r"apps/padtune/padtune <\d+>:\n\t", errors) and command.status not in (0, ABORTED):
                return "reported"
            return self._problem(call, f"not reported, status {command.status}", errors)
        if leaks:
            return self._problem(call, f"leaves open {leaks}", errors)
        if command.status == ABORTED and DOCUMENTED_ABORTS.get(call.name, "\0") in errors:
            return "ends, as it must"
        if command.status != 0:
            return self._problem(call, f"status {command.status}", errors)
        strange = [line for line in errors.splitlines() if line.startswith("INFO") and line not in self._known_lines]
        if strange:
            return self._problem(call, f"prints {strange}", errors)
        return "complete" if SAMPLE_LINE.search(errors) else "ends early"

    def _problem(self, call, what, errors):
        self.problems.append(f"{call}: {what}\n{errors}")
        return "PROBLEM: " + what


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("kinds", nargs="*", default=["hid", "display"])
    options = parser.parse_args()
    build = pathlib.Path(os.environ.get("PADTUNE_BUILD", DEFAULT_BUILD))
    with VirtualPlayer(build=build, files={SHIM: build / "bench/fault-shim.so"}) as player:
        player.boards[0].send(f"rate {REPORTS_PER_SECOND}")
        torture = Torture(player, options.every)
        for kind in options.kinds:
            torture.torture(kind)
    for problem in torture.problems:
        print(problem)
    print(f"torture: {len(torture.problems)} problems")
    return 1 if torture.problems else 0


if __name__ == "__main__":
    sys.exit(main())
