#!/usr/bin/python3
"""Whole runs of padtune in the virtual player, each of which goes wrong at another call. Says how every run ended;
fails if one ended in a way it must not: a hang, a crash, a page that is not one of a run's last, a descriptor or thread
left, a setup value that the board did not send.

hid        the call fails, every one from the first look for boards to the end in turn
replug     the board is out for a moment during the run; every call from then on fails in turn
unplug     the board is pulled out just before the call, the same ones as for hid, and comes back within the run; after
           every fourth it does not
display    a call to DirectFB fails: the first from each place in the program, and one during the live page

usage: torture.py [--every N] [hid|replug|unplug|display]...
    --every N   only each Nth of the calls
"""

import argparse
import collections
import re
import sys
import time

import campaign

SHIM = "/usr/local/lib/fault-shim.so"
LOG = "/tmp/calls"
RUN_TIMEOUT = 120
AWAY = 0.5  # seconds
# With few reports: each is a call or two.
REPORTS_PER_SECOND = {"hid": 4, "replug": 0, "unplug": 1, "display": 0}
SECONDS = {"hid": 1, "replug": 5, "unplug": 4, "display": 1}
ARGUMENTS = ("--pause", "0", "--output-diagnostics", "x", "--noise-threshold", "40", "--disable-led", "3", "--led-mask",
             "1,0,1")

# A run that stops at a call says so, and waits for a line before it goes on.
STOPPING = """
LD_PRELOAD=$SHIM "$@" </dev/null & run=$!
while state=$(grep State /proc/$run/status 2>/dev/null) && [ "$state" = "${state#*T (}" ]; do sleep 0.05; done
echo stopped; read line
kill -CONT $run 2>/dev/null; wait $run
"""

ABORTED = 128 + 6
KILLED = 128 + 9
DIRECTFB_FATAL = 169  # the low byte of DFB_FAILURE

# Results that are looked at: DirectFB's own fatal error ends these.
CHECKED = ("DirectFBInit", "DirectFBCreate", "IDirectFB.GetScreen", "IDirectFB.CreateSurface", "IDirectFB.CreateFont",
           "IDirectFBScreen.GetSize", "IDirectFBSurface.Flip")

# Without its pipe the poll thread cannot be: what standard error then says.
DOCUMENTED_ABORTS = {"pipe": "'ErrnoException'", "read": "PollWaker::Acknowledge failed: Input/output error"}

# What a run calls at least; fewer would mean that the library misses them.
ON_THE_WAY = {"open", "ioctl", "read", "write", "poll", "ppoll", "pipe", "eventfd", "eventfd_write", "socket", "bind",
              "udev_new", "udev_monitor_new_from_netlink", "udev_device_new_from_subsystem_sysname",
              "udev_device_get_sysname"}
EXPECTED = {
    "hid": ON_THE_WAY,
    "replug": {"open", "ioctl", "poll", "recvmsg", "udev_monitor_receive_device", "udev_device_get_devnode"},
    "unplug": ON_THE_WAY,
    "display": {*CHECKED, "DirectFBSetOption", "IDirectFBSurface.DrawString", "IDirectFBFont.GetStringExtents"},
}

Call = collections.namedtuple("Call", "number name site")
# The calls, in order; how many of them there were when the board was out; what was left open and running at the end.
Run = collections.namedtuple("Run", "command calls calls_before left")


def read_log(text):
    lines = [line.split(" ", 1) for line in text.splitlines()]
    calls = [Call(int(word), *rest.split()) for word, rest in lines if word.isdigit()]
    left = collections.Counter(f"{word} {re.sub('[0-9]+', 'N', rest)}" for word, rest in lines if not word.isdigit())
    return calls, left


class Torture:
    def __init__(self, player, every):
        self._player = player
        self._board = player.boards[0]
        self._every = every
        self._clean = None
        self.problems = []

    def torture(self, kind):
        self._board.send(f"rate {REPORTS_PER_SECOND[kind]}")
        self._clean = self._run(kind)
        calls = self._clean.calls[self._clean.calls_before:]
        missing = EXPECTED[kind] - {call.name for call in calls}
        page = self._page()
        if self._clean.command.status != 0 or missing or page != "complete":
            raise RuntimeError(f"the run without a failure: {self._clean.command.status}, {page}, no {missing}: "
                               f"{self._clean.command.stderr.decode()}")
        if kind == "display":
            calls = self._distinct(calls)
        chosen = calls[::self._every]
        print(f"{kind}: {len(calls)} calls, {len(chosen)} of them go wrong in turn")
        ends = collections.Counter()
        for call in chosen:
            name, end = self._end_of(kind, call)
            ends[name, end] += 1
            print(f"  {call.number:4}  {name:45} {end}", file=sys.stderr, flush=True)
        for (name, end), count in sorted(ends.items()):
            print(f"  {count:4}  {name:45} {end}", flush=True)

    @staticmethod
    def _distinct(calls):
        """Frame by frame the calls are the same: the first from each place stands for all, and for those whose results
        are looked at one in the middle of the run too."""
        places = collections.defaultdict(list)
        for call in calls:
            places[call.site].append(call)
        return sorted(call for place in places.values()
                      for call in {place[0], place[len(place) // 2 if place[0].name in CHECKED else 0]})

    # --- runs ---

    def _run(self, kind, **failing):
        if kind == "unplug" and failing:
            return self._run_stopped(**failing)
        command = campaign.start(
            self._player, "padtune", "--timeout", str(SECONDS[kind]), *ARGUMENTS,
            environment={"LD_PRELOAD": SHIM, "FAULT_CALLS": "display" if kind == "display" else "hid", "FAULT_LOG": LOG,
                         **failing})
        calls_before = self._replug(command) if kind == "replug" else 0
        return self._ended(command, calls_before)

    def _run_stopped(self, returns, **failing):
        command = self._player.start(
            ["sh", "-c", STOPPING, "sh", "padtune", "--timeout", str(SECONDS["unplug"]), *ARGUMENTS],
            environment={"SHIM": SHIM, "FAULT_CALLS": "hid", "FAULT_LOG": LOG, "FAULT_STOPS": "1", **failing})
        if not self._player.wait_for(lambda: b"stopped" in command.stdout, RUN_TIMEOUT):
            raise RuntimeError(f"neither stopped nor ended: {command.stderr.decode()}")
        self._board.unplug()
        command.write(b"\n")
        if returns:
            time.sleep(AWAY)
            self._board.plug()
        run = self._ended(command, 0)
        if not returns:
            self._board.plug()
        return run

    def _replug(self, command):
        """Takes the board out and puts it back when the live page is on; how many calls there were before."""
        self._player.wait_for(lambda: b"UNKNOWN" in command.stderr or command.status is not None, RUN_TIMEOUT)
        time.sleep(2)
        calls, _ = read_log(self._player.get(LOG).decode())
        self._board.unplug()
        time.sleep(AWAY)
        self._board.plug()
        return len(calls)

    def _ended(self, command, calls_before):
        campaign.finish(command, RUN_TIMEOUT)
        if command.status == KILLED:
            self._player.shell("killall -9 padtune; true")
        return Run(command, *self._split_log(calls_before))

    def _split_log(self, calls_before):
        calls, left = read_log(self._player.get(LOG).decode())
        return calls, calls_before, left

    # --- judging ---

    def _end_of(self, kind, call):
        """The name of the call that failed and how the run ended."""
        # With several threads the calls come in another order every time: then the first from the same place.
        for failing in ({"FAULT_AT": str(call.number)}, {"FAULT_SITE": call.site}):
            if kind == "unplug":
                failing["returns"] = call.number % 4 != 0
            run = self._run(kind, **failing)
            failed = next((other for other in run.calls
                           if ("FAULT_AT" in failing and other.number == call.number) or
                           ("FAULT_SITE" in failing and other.site == call.site)), None)
            if failed is not None:
                return failed.name, self._judge(kind, failed, run)
        return call.name, "not made again"

    def _judge(self, kind, call, run):
        status = run.command.status
        errors = run.command.stderr.decode(errors="replace")
        if status == KILLED:
            return self._problem(call, "hangs", errors)
        if kind == "display" and call.name in CHECKED:
            if re.search(r"apps/padtune/padtune <\d+>:\n\t", errors) and status == DIRECTFB_FATAL:
                return "reported"
            return self._problem(call, f"not reported, status {status}", errors)
        if kind in ("hid", "replug") and status == ABORTED and DOCUMENTED_ABORTS.get(call.name, "\0") in errors:
            return "ends, as it must"
        if status != 0:
            return self._problem(call, f"status {status}", errors)
        if left := run.left - self._clean.left:
            return self._problem(call, f"leaves {dict(left)}", errors)
        known = self._clean.command.stderr.decode().splitlines()
        strange = [line for line in errors.splitlines()
                   if line.split()[:1] in (["INFO:"], ["UNKNOWN"], ["ZERO"], ["Strange"], ["Invalid"]) and
                   line not in known]
        if strange:
            return self._problem(call, f"prints {strange}", errors)
        page = self._page()
        if kind == "display":
            return "survived"  # the page misses what was not drawn
        return self._problem(call, page, errors) if page == "strange page" else page

    def _page(self):
        colours = self._player.screen().colours()
        self._player.clear_screen()
        if campaign.BLUE in colours and campaign.RED not in colours:
            return "complete"
        if campaign.RED in colours:
            return "message"
        # The background, the title and the shades between them.
        return "title" if campaign.WHITE in colours and len(colours) < 300 else "strange page"

    def _problem(self, call, what, errors):
        self.problems.append(f"{call}: {what}\n{errors}")
        return "PROBLEM: " + what


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("kinds", nargs="*", default=["hid", "replug", "unplug", "display"])
    options = parser.parse_args()
    with campaign.virtual_player(screen=(640, 480), video_mode="640x480x60p",
                                 files={SHIM: "tests/campaigns/fault-shim.so"}) as player:
        torture = Torture(player, options.every)
        for kind in options.kinds:
            torture.torture(kind)
    for problem in torture.problems:
        print(problem)
    print(f"torture: {len(torture.problems)} problems")
    return 1 if torture.problems else 0


if __name__ == "__main__":
    sys.exit(main())
