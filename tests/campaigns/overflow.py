#!/usr/bin/python3
"""padtune stopped and let go on, again and again, while reports come: the kernel's queue overflows at every place of a
report. The board numbers its reports, so each line that padtune prints tells where it comes from.

An overflow loses events without a notice. Where it loses the end of one report together with the beginning of a later
one, the two are decoded as one, which then holds values of two instants: these are counted, and how many of them have
both within a sample. Where it loses the beginning alone, after a report that was complete, words are missing. Fails if a
report holds anything else that is not its own, if one comes twice or late, or if in the end the reports are not whole
again.

usage: overflow.py [--rounds N]
"""

import argparse
import collections
import re
import sys
import time

import campaign

RATE = 400
BUTTONS = 7  # a report has room for no more
LINES = "/tmp/lines"
QUEUE = 2048 // 29  # reports that the kernel's queue has room for
STOPS_PER_ROUND = 7
# It is stopped until some queues are lost, and goes on mostly for too short a time to read a whole one, so that the
# next stop comes in the middle of a report.
ROUNDS = """
p=$(pidof padtune); n=0
while [ $((n += 1)) -le $0 ]; do
    for times in 0.3,0.005 0.5,0.01 0.9,0.02 0.3,0.03 0.7,0.05 1.1,0.08 0.4,0.5; do
        kill -STOP $p && sleep ${times%,*} && kill -CONT $p || exit
        sleep ${times#*,}
    done
done
"""
AFTERWARDS = 3  # seconds
SAMPLE = re.compile(r" *(\d+\.\d+): BT(\d+): +(\d+) +(\d+) +(\d+) +(\d+) [* ]")


def parse(text):
    """The decoded samples of each report: (button, the numbers of the reports that its values come from)."""
    reports, last, last_time = [], BUTTONS, None
    for line in text.splitlines():
        match = SAMPLE.fullmatch(line)
        if match is None:
            continue
        button, value1, value2, value4, value3 = map(int, match.groups()[1:])
        values = [value1, value2, value3]
        # Of its own number value 4 holds the low byte only. A value that did not come is 0.
        matching = [value for value in values if value % 256 == value4 and value != 0]
        sources = [matching[0] if matching else -value4, *values]
        if button <= last or match[1] != last_time:
            reports.append([])
        last, last_time = button, match[1]
        reports[-1].append((button, [source for source in sources if source != 0]))
    return reports


def classify(samples):
    """What a report is, and the number of the report that it ends with; None if it cannot be told."""
    numbers = [number for _, sources in samples for number in sources if number > 0]
    if not numbers:
        return "words missing", None
    sources = sorted(set(numbers))
    # Headers of which nothing else came.
    lone = [-number for _, sample in samples for number in sample if number < 0]
    if numbers != sorted(numbers) or len(sources) > 2:
        return "WRONG", sources[-1]
    if len(sources) == 2 or any(number % 256 != low for low in lone for number in sources):
        within_sample = any(len(set(sample)) > 1 for _, sample in samples)
        return "of two instants, within a sample" if within_sample else "of two instants", sources[-1]
    return "whole" if len(numbers) == 4 * BUTTONS else "words missing", sources[-1]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int, default=150)
    options = parser.parse_args()
    with campaign.virtual_player() as player:
        board = player.boards[0]
        board.send("numbered")
        board.send(f"rate {RATE}")
        run = campaign.start(player, "sh", "-c", f"padtune --timeout 100000 --pause 0 --button 1-{BUTTONS} "
                                                 f"--output-diagnostics x 2>{LINES} >/dev/null")
        board.wait_for_record("setup-request")
        player.shell(f"until grep -q BT{BUTTONS} {LINES}; do sleep 1; done")
        if player.run(["sh", "-c", ROUNDS, str(options.rounds)], 7200).status != 0:
            raise RuntimeError("padtune has ended")
        board.send("rate 50")
        time.sleep(AFTERWARDS)
        player.shell("kill $(pidof padtune)")
        run.wait(20)
        text = player.get(LINES).decode()

    reports = [classify(samples) for samples in parse(text)]
    kinds = collections.Counter(kind for kind, _ in reports)
    numbers = [number for _, number in reports if number is not None]
    lost = [later - earlier - 1 for earlier, later in zip(numbers, numbers[1:])]
    overflows = sum(count >= QUEUE - 1 for count in lost)
    backward = sum(count < 0 for count in lost)
    # The last report may be a half, cut off with the output.
    end = reports[-51:-1]
    resynchronised = all(kind == "whole" for kind, _ in end) and \
        [number for _, number in end] == list(range(end[0][1], end[0][1] + len(end)))
    print(f"overflow: {options.rounds * STOPS_PER_ROUND} stops, {overflows} overflows, {sum(lost)} of {numbers[-1]} "
          f"reports lost, {len(reports)} decoded")
    print(f"overflow: {dict(kinds)}, {backward} out of order, "
          f"{'whole and complete' if resynchronised else 'NOT WHOLE'} in the end")
    # Overflows that joined no reports would have shown nothing.
    shown = kinds["of two instants"] + kinds["of two instants, within a sample"]
    return 1 if kinds["WRONG"] or backward or not overflows or not shown or not resynchronised else 0


if __name__ == "__main__":
    sys.exit(main())
