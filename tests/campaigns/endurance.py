#!/usr/bin/python3
"""One long run of padtune in the virtual player: reports at full speed, buttons touched and released all the time.
Says how memory, descriptors and threads went; fails if they grew, if a report that the board made was not fetched or
not decoded, or if the board did not come near its rate. (A board misses a report that it cannot hand over within half a
second; a busy machine makes the guest too slow for that.)

usage: endurance.py [--minutes M] [--rate REPORTS_PER_SECOND]
"""

import argparse
import sys
import time

import campaign

BUTTON = 1  # the one that is reported; a line for each of several would be most of the guest's work
SETTLING = 120  # seconds until memory is measured for the first time, and between two measurements
QUIET = 10  # seconds at the end without reports
RATE_REACHED = 0.99
# The last line tells how padtune ended.
COUNT_LINES = f"""
{{ padtune --timeout $0 --button {BUTTON} --output-diagnostics x 2>&1 >/dev/null; echo "status $?"; }} |
awk '/: BT{BUTTON}:/ {{ n++; if (/[*]$/) touched++ }} END {{ print n + 0, touched + 0, $0 }}'"""


class Run:
    def __init__(self, player, seconds):
        self._player = player
        self._board = player.boards[0]
        self._command = campaign.start(player, "sh", "-c", COUNT_LINES, str(seconds))
        self._board.wait_for_record("setup-request")
        time.sleep(QUIET)

    def handed_over(self):
        """DIAGNOSTICS reports that the guest's kernel has fetched from the board, all that the board made, and all that
        it should have made besides."""
        start = len(self._board.records)
        self._board.send("count")
        record = self._board.records[self._board.wait_for_record(" diagnostics ", start=start)].split()
        return int(record[2]), int(record[4]), int(record[6])

    def touch_for(self, seconds):
        """Touches the button for half of every second; what padtune held meanwhile, first after a while of settling."""
        held = []
        start = time.monotonic()
        while (elapsed := time.monotonic() - start) < seconds:
            self._board.send(f"touch {BUTTON}")
            time.sleep(0.5)
            self._board.send(f"release {BUTTON}")
            time.sleep(0.5)
            if elapsed >= SETTLING * (1 + len(held)):
                held.append(campaign.resources(self._player))
        return held

    def decoded(self, timeout):
        """Sample lines, and those of them with a touch, when the run has ended; RuntimeError if not well."""
        self._command.wait(timeout)
        decoded, touched, *end = self._command.stdout.decode().split()
        if end != ["status", "0"]:
            raise RuntimeError(f"padtune has ended with {end}")
        return int(decoded), int(touched)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=int, default=60)
    parser.add_argument("--rate", type=int, default=200)
    options = parser.parse_args()
    seconds = options.minutes * 60
    if seconds < 3 * SETTLING:
        parser.error("takes some minutes")
    with campaign.virtual_player(processors=2) as player:
        board = player.boards[0]
        board.send("rate 0")
        run = Run(player, seconds)
        before = run.handed_over()
        board.send(f"rate {options.rate}")
        start = time.monotonic()
        held = run.touch_for(seconds - 4 * QUIET)
        board.send("rate 0")
        lasted = time.monotonic() - start
        time.sleep(QUIET)  # the last ones are on their way
        fetched, made, missed = (after - earlier for after, earlier in zip(run.handed_over(), before))
        decoded, touched = run.decoded(4 * QUIET + 60)
    first, last = held[0], held[-1]
    most = max(resources.memory for resources in held)
    print(f"endurance: {made} reports in {lasted:.0f} s ({made / lasted:.1f} a second), {missed} missed; {fetched} "
          f"fetched, {decoded} decoded, {touched} of them with a touch")
    print(f"endurance: memory {first.memory} kB, later {last.memory} kB, at most {most} kB; "
          f"descriptors {first.descriptors}, later {last.descriptors}; threads {first.threads}, later {last.threads}")
    slow = fetched < RATE_REACHED * options.rate * lasted
    lost = not made == fetched == decoded or not 0.3 * decoded < touched < 0.7 * decoded
    grown = most > first.memory + campaign.GROWTH_ALLOWED or any(resources[:2] != first[:2] for resources in held)
    print(f"endurance: reports {'LOST' if lost else 'all decoded'}, resources {'GROWN' if grown else 'steady'}"
          f"{', rate NOT REACHED' if slow else ''}")
    return 1 if lost or grown or slow else 0


if __name__ == "__main__":
    sys.exit(main())
