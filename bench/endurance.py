#!/usr/bin/python3
"""One long run of padtune in the virtual player: reports at full speed, buttons touched and released all the time.
Says how memory, descriptors and threads went; fails if they grew, if a report that the board delivered was not
decoded, or if the board did not come near its rate.

usage: endurance.py [--minutes M] [--rate REPORTS_PER_SECOND]
"""

import argparse
import os
import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "virtual_player"))

from player import DEFAULT_BUILD, VirtualPlayer  # noqa: E402

SELECTED = 4  # buttons in each report
SETTLING = 30  # seconds until memory is measured for the first time
QUIET = 10  # seconds at the end without reports
GROWTH_ALLOWED = 64  # kB; more than a page or two of the allocator is a leak
RATE_REACHED = 0.95
COUNT_LINES = "padtune --timeout {} --output-diagnostics x 2>&1 >/dev/null | awk '/: BT/ {{ n[$2]++ }} " \
              "END {{ for (b in n) print b, n[b] }}'"


class Run:
    def __init__(self, player, seconds):
        self._player = player
        self._board = player.boards[0]
        self._command = player.start(["sh", "-c", COUNT_LINES.format(seconds)])
        self._command.close_input()
        self._board.wait_for_record("setup-request")
        self._process = player.shell("pidof padtune").strip()

    def state(self):
        """Resident memory in kB, descriptors, threads."""
        text = self._player.shell(f"cd /proc/{self._process} && grep -E 'VmRSS|Threads' status && ls fd | wc -l")
        numbers = dict(line.split()[:2] for line in text.splitlines()[:-1])
        return int(numbers["VmRSS:"]), int(text.split()[-1]), int(numbers["Threads:"])

    def delivered(self):
        start = len(self._board.records)
        self._board.send("count")
        number = self._board.wait_for_record(" diagnostics ", start=start)
        return int(self._board.records[number].split()[-1])

    def touch_for(self, seconds):
        """Touches one button after the other; the states seen, the first after a while of settling."""
        states = []
        start = time.monotonic()
        while (elapsed := time.monotonic() - start) < seconds:
            button = 1 + int(elapsed) % SELECTED
            self._board.send(f"touch {button}")
            time.sleep(0.5)
            self._board.send(f"release {button}")
            time.sleep(0.5)
            if elapsed >= SETTLING * (1 + len(states)):
                states.append(self.state())
        return states

    def decoded(self, timeout):
        """Sample lines of each selected button, when the run has ended."""
        self._command.wait(timeout)
        return [int(line.split()[1]) for line in self._command.stdout.decode().splitlines()]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=int, default=60)
    parser.add_argument("--rate", type=int, default=200)
    options = parser.parse_args()
    seconds = options.minutes * 60
    with VirtualPlayer(build=pathlib.Path(os.environ.get("PADTUNE_BUILD", DEFAULT_BUILD))) as player:
        player.boards[0].send("rate 0")
        run = Run(player, seconds)
        before = run.delivered()
        player.boards[0].send(f"rate {options.rate}")
        start = time.monotonic()
        states = run.touch_for(seconds - 2 * QUIET)
        player.boards[0].send("rate 0")
        lasted = time.monotonic() - start
        delivered = run.delivered() - before
        decoded = run.decoded(4 * QUIET + 60)
    first, last = states[0], states[-1]
    print(f"endurance: {delivered} reports in {lasted:.0f} s ({delivered / lasted:.1f} a second); sample lines {decoded}")
    print(f"endurance: memory {first[0]} kB, later {last[0]} kB, at most {max(state[0] for state in states)} kB; "
          f"descriptors {first[1]}, later {last[1]}; threads {first[2]}, later {last[2]}")
    slow = delivered < RATE_REACHED * options.rate * lasted
    lost = decoded != [delivered] * SELECTED
    grown = last[0] > first[0] + GROWTH_ALLOWED or last[1:] != first[1:]
    print(f"endurance: reports {'LOST' if lost else 'all decoded'}, resources {'GROWN' if grown else 'steady'}"
          f"{', rate NOT REACHED' if slow else ''}")
    return 1 if lost or grown or slow else 0


if __name__ == "__main__":
    sys.exit(main())
