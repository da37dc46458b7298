#!/usr/bin/python3
"""Boards that refuse control transfers, or never answer them, from the start of a run of padtune or from its middle.

Says how long each run took, how it ended and what the poll thread did meanwhile; fails if a run did not end with status
0 and the right page, if the poll thread was held up, or if a touch of a board that still sends reports was not printed
at once. What a board refuses or does not answer is lost: the kernel reports success to its clients all the same.

usage: silence.py
"""

import collections
import sys
import time

import campaign

RUN = ("padtune", "--timeout", "6", "--pause", "0", "--led-mask", "1,0,1", "--led-mask", "1,4,3",
       "--output-diagnostics", "x")
RUN_TIMEOUT = 600
PAGE_TOP = 166  # of 1280x720: the line below the title

# What the poll thread does, every fifth of a second: the number of the system call that it is in.
LOOK = 0.2
WATCH = f"""
until p=$(pidof padtune) && t=$(grep -l vtpoll /proc/$p/task/*/comm); do sleep {LOOK}; done
while cut -d' ' -f1 ${{t%comm}}syscall; do sleep {LOOK}; done 2>/dev/null
"""
WAITS_FOR_EVENTS = "73"  # ppoll
HELD_UP_ALLOWED = 5  # looks in a row
TOUCH_TIMEOUT = 1  # seconds from a touch to the line that tells it

Case = collections.namedtuple("Case", "name line starts_in_loop is_complete sends_reports")
CASES = (
    Case("answers all but the setup request", "setup silent", False, False, False),
    Case("refuses all transfers", "stall", False, False, False),
    Case("answers no transfer", "mute", False, False, False),
    Case("refuses from second 2 on", "stall", True, True, True),
    Case("is silent from second 2 on", "mute", True, True, False),
)
UNDO = {"setup silent": "setup normal", "stall": "unstall", "mute": "unmute"}


def page(player):
    """The colours below the title."""
    return player.screen().colours(top=PAGE_TOP)


def missing_port_page(player):
    """A page with a message, but another one."""
    board = player.boards[0]
    board.unplug()
    board.send("without LED-SETUP")
    board.plug()
    player.run(RUN, RUN_TIMEOUT)
    board.send("without nothing")
    return page(player)


def longest_hold_up(looks):
    longest = current = 0
    for look in looks:
        current = 0 if look == WAITS_FOR_EVENTS else current + 1
        longest = max(longest, current)
    return longest


def play(player, case):
    """A run of the case: how many seconds it took, its status, the page at its end, what the poll thread did, and
    whether a touch was printed in time (None: not tried)."""
    board = player.boards[0]
    # A transfer of the case before may still be waiting for its answer.
    board.unplug()
    board.plug()
    player.clear_screen()
    if not case.starts_in_loop:
        board.send(case.line)
    watch = campaign.start(player, "sh", "-c", WATCH)
    start = time.monotonic()
    run = campaign.start(player, *RUN)
    if case.starts_in_loop:
        if not player.wait_for(lambda: b" 2." in run.stderr, 60):
            raise RuntimeError(f"no second 2: {run.stderr.decode()}")
        board.send(case.line)
    touch_seen = None
    if case.sends_reports:
        board.send("touch 1")
        printed = len(run.stderr)
        touch_seen = player.wait_for(lambda: b"*\n" in run.stderr[printed:], TOUCH_TIMEOUT)
        board.send("release 1")
    campaign.finish(run, RUN_TIMEOUT)
    lasted = time.monotonic() - start
    board.send(UNDO[case.line])
    campaign.finish(watch, 10)  # without a poll thread it would watch for ever
    return lasted, run.status, page(player), watch.stdout.decode().split(), touch_seen


def main():
    failures = 0
    with campaign.virtual_player() as player:
        other_message = missing_port_page(player)
        no_setup_page = None
        for case in CASES:
            lasted, status, seen, looks, touch_seen = play(player, case)
            if case.is_complete:
                right_page = campaign.BLUE in seen
            else:
                # A board that only withholds its setup gives the page that the worse ones must give too.
                no_setup_page = no_setup_page or seen
                right_page = campaign.RED in seen and seen != other_message and seen == no_setup_page
            held_up = longest_hold_up(looks)
            wrong = status != 0 or not right_page or not looks or held_up > HELD_UP_ALLOWED or touch_seen is False
            failures += wrong
            end = "runs to its end" if case.is_complete else "says that no setup came"
            print(f"  board {case.name}: {lasted:.0f} s, status {status}, {end if right_page else 'WRONG PAGE'}; poll "
                  f"thread waits for events in {looks.count(WAITS_FOR_EVENTS)} of {len(looks)} looks, else for at most "
                  f"{held_up * LOOK:.1f} s{'; touch NOT SEEN' if touch_seen is False else ''}", flush=True)
    print(f"silence: {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
