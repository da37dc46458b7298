#!/usr/bin/python3
"""Boards that are pulled out of the virtual player while padtune runs.

moments    one run each: the board goes at a moment from the first look for boards to the reset, and comes back
cycles     one run in which the board goes and comes back all the time

Says how the runs ended, and how long after the board's return its outputs were as before; fails if a run hung, ended
with another status than 0, left descriptors or threads behind, or if an output was not as last written.

usage: unplug.py [--cycles N] [moments|cycles]...
"""

import argparse
import collections
import os
import pathlib
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "virtual_player"))

from player import DEFAULT_BUILD, VirtualPlayer  # noqa: E402

STEP = 0.1  # seconds between two moments
AWAY = 1.0  # seconds
LAST_MOMENT = 30.0  # the run without trouble is over long before
RUN_TIMEOUT = 90
RUN = ("padtune", "--timeout", "2", "--pause", "20", "--noise-threshold", "40", "--disable-led", "3",
       "--led-mask", "1,0,1")

OUTPUTS = "button-mask=0x00000040 led-mask=0x00000002 leds=0x00000000,0x00000015,"
RETURN_TIMEOUT = 20


def moments(player):
    board = player.boards[0]
    ends = collections.Counter()
    failures = 0
    for number in range(int(LAST_MOMENT / STEP)):
        if any("after reset" in end for end in ends):
            break
        earlier = len(board.records)
        run = player.start(RUN)
        run.close_input()
        time.sleep(number * STEP)
        board.unplug()
        time.sleep(AWAY)
        board.plug()
        try:
            status = run.wait(RUN_TIMEOUT)
        except TimeoutError:
            status = "none: it hangs"
        records = [record.split(" ", 1)[1] for record in board.records[earlier:] if record[0].isdigit()]
        gone_after = records[:records.index("unplug")]
        seen = gone_after[-1].split()[0] if gone_after else "nothing yet"
        ends[f"unplugged after {seen}: status {status}, {'reset' if 'reset' in records else 'no reset'}"] += 1
        failures += status != 0
    else:
        print("  the run was never over")
        failures += 1
    for end, count in sorted(ends.items()):
        print(f"  {count:4}  {end}")
    return failures


def resources(player, process):
    return player.shell(f"cd /proc/{process} && ls fd | wc -l && grep Threads status").split()


def wait_for_outputs(board):
    """Waits until the board's outputs are as before; the moment in which that was seen, and what they are if not."""
    deadline = time.monotonic() + RETURN_TIMEOUT
    while True:
        start = len(board.records)
        board.send("state")
        state = board.records[board.wait_for_record(" state ", start=start)]
        if OUTPUTS in state or time.monotonic() > deadline:
            return float(state.split()[0]), OUTPUTS in state
        time.sleep(0.02)


def cycles(player, count):
    board = player.boards[0]
    run = player.start(["padtune", "--timeout", "100000", "--pause", "0", "--led-mask",
                        "2,0,0x15", "--disable-button", "7", "--disable-led", "2"])
    run.close_input()
    board.wait_for_record("setup-request")
    wait_for_outputs(board)
    time.sleep(5)  # until the live page is on
    process = player.shell("pidof padtune").strip()
    before = resources(player, process)
    times, failures = [], 0
    for _ in range(count):
        board.unplug()
        start = len(board.records)
        board.plug()
        plugged = float(board.records[board.wait_for_record(" plugged", start=start)].split()[0])
        restored, right = wait_for_outputs(board)
        if right:
            times.append(1000 * (restored - plugged))
        failures += not right
    deadline = time.monotonic() + RETURN_TIMEOUT  # the last of the ports may be on its way back
    while (after := resources(player, process)) != before and time.monotonic() < deadline:
        time.sleep(0.5)
    run.kill(9)
    run.wait(10)
    times.sort()
    print(f"  {count} times; outputs wrong {failures} times; descriptors and threads before {before}, after {after}")
    print("  milliseconds from the board's node to its outputs: "
          f"least {times[0]:.0f}, median {statistics.median(times):.0f}, 95 % {times[int(len(times) * 0.95)]:.0f}, "
          f"most {times[-1]:.0f}")
    return failures + (before != after)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cycles", type=int, default=1000)
    parser.add_argument("what", nargs="*", default=["moments", "cycles"])
    options = parser.parse_args()
    failures = 0
    with VirtualPlayer(build=pathlib.Path(os.environ.get("PADTUNE_BUILD", DEFAULT_BUILD))) as player:
        for what in options.what:
            print(f"unplug, {what}:", flush=True)
            failures += moments(player) if what == "moments" else cycles(player, options.cycles)
    print(f"unplug: {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
