#!/usr/bin/python3
"""A run of padtune in the virtual player in which the board goes and comes back all the time.

Says how long after each return the board's outputs were as before; fails if one was not as last written, if no new
sample came, if an old one came again, if the page changed while the board was away, or if descriptors, threads or
memory were left behind.

usage: unplug.py [--cycles N]
"""

import argparse
import re
import statistics
import sys
import time

import campaign
from player import PlayerError  # from virtual_player, where campaign looks

RUN = ("padtune", "--timeout", "100000", "--pause", "0", "--button", "5", "--led-mask", "2,0,0x15", "--disable-button",
       "7", "--disable-led", "2", "--output-diagnostics", "x")
# What the board tells when its outputs are written; being plugged in has cleared them.
OUTPUTS = (" button-mask 0x00000040", " led-mask 0x00000002", " led 2 0x00000015")
AWAY = (0, 0.1, 0.3)  # seconds, in turn
AWAY_FOR_LONG = 11  # past the time in which a port counts on a return
LONG_EVERY = 100  # cycles
SETTLED_AFTER = 100  # cycles, in which the allocator takes the pages that it then goes on with
TIMEOUT = 20
SAMPLE = re.compile(rb": BT5: +(\d+) ")
SCREEN = (1280, 1024)  # on a lower one the last value of a box stands in the next one, where nothing is cleared
PAGE_END = 900  # the strip with the progress bar and the seconds is below


class Run:
    def __init__(self, player):
        self._player = player
        self._board = player.boards[0]
        self._board.send("numbered")
        self._command = campaign.start(player, *RUN)
        self._player.wait_for(lambda: b" 2." in self._command.stderr, TIMEOUT)

    def cycle(self, away):
        """The seconds from the board's node to the last of its outputs; None if they or samples did not come."""
        self._board.unplug()
        time.sleep(away)
        start = len(self._board.records)
        self._board.plug()
        latest = self._latest_sample()
        try:
            # The node may be used before the board knows of it.
            numbers = [self._board.wait_for_record(text, TIMEOUT, start) for text in (" plugged", *OUTPUTS)]
            plugged, *outputs = (float(self._board.records[number].split()[0]) for number in numbers)
        except PlayerError:
            return None
        if not self._player.wait_for(lambda: self._latest_sample() > latest, TIMEOUT):
            return None
        return max(*outputs, plugged) - plugged

    def page_while_away(self):
        """Takes the board out for some seconds; whether the page was as still as it must, and went on after that."""
        self._board.unplug()
        # On a busy machine the last samples take their time to the page.
        deadline = time.monotonic() + TIMEOUT
        still, page = self._page(), None
        while still != page:
            if time.monotonic() > deadline:
                return False
            time.sleep(0.5)
            still, page = self._page(), still
        time.sleep(2)
        is_still = self._page() == still
        self._board.plug()
        deadline = time.monotonic() + TIMEOUT
        while self._page() == still:
            if time.monotonic() > deadline:
                return False
            time.sleep(0.5)
        return is_still

    def samples(self):
        """The numbers of the reports whose samples were printed."""
        return [int(number) for number in SAMPLE.findall(self._command.stderr)]

    def _latest_sample(self):
        return int(SAMPLE.findall(self._command.stderr[-1000:])[-1])

    def settled_resources(self, expected):
        """The resources, when the last of the ports had time to come back."""
        deadline = time.monotonic() + TIMEOUT
        while (resources := campaign.resources(self._player))[:2] != expected[:2] and time.monotonic() < deadline:
            time.sleep(0.5)
        return resources

    def end(self):
        self._command.kill(9)
        self._command.wait(10)

    def _page(self):
        return self._player.screen().colours(bottom=PAGE_END)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cycles", type=int, default=1000)
    options = parser.parse_args()
    with campaign.virtual_player(screen=SCREEN, video_mode="1280x1024x60p") as player:
        run = Run(player)
        still = run.page_while_away()
        before = campaign.resources(player)
        seconds = []
        for number in range(1, options.cycles + 1):
            seconds.append(run.cycle(AWAY_FOR_LONG if number % LONG_EVERY == 0 else AWAY[number % len(AWAY)]))
            if seconds[-1] is None:
                break
            if number == SETTLED_AFTER:
                before = before._replace(memory=run.settled_resources(before).memory)
        after = run.settled_resources(before)
        samples = run.samples()
        run.end()
    returned = sorted(1000 * time for time in seconds if time is not None)
    stale = sum(later <= earlier for earlier, later in zip(samples, samples[1:]))
    print(f"unplug: {len(seconds)} times, {len(returned)} returned with their outputs; {len(samples)} samples, of which "
          f"{stale} stale; page {'still' if still else 'NOT STILL'} while the board is away")
    print(f"unplug: descriptors, threads, kB before {tuple(before)}, after {tuple(after)}")
    if returned:
        print(f"unplug: milliseconds from the board's node to its outputs: least {returned[0]:.0f}, median "
              f"{statistics.median(returned):.0f}, 95 % {returned[int(len(returned) * 0.95)]:.0f}, "
              f"99 % {returned[int(len(returned) * 0.99)]:.0f}, most {returned[-1]:.0f}")
    wrong = len(returned) < options.cycles or stale or not still
    grown = before[:2] != after[:2] or after.memory > before.memory + campaign.GROWTH_ALLOWED
    return 1 if wrong or grown else 0


if __name__ == "__main__":
    sys.exit(main())
