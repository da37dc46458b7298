"""Scenarios: what happens to boards and lines, and which pictures are taken, while a command runs in the guest.

One step a line; "#" starts a comment:

    SECONDS LINE            gives LINE ("touch 3") to board 0
    SECONDS DEVICE LINE     gives LINE ("level 4 1") to the device of this name ("board 1", "player"; see DEVICES)
    SECONDS picture FILE    takes a picture of the screen
    end picture FILE        takes it when the command has ended; what it drew last is still there
    from TEXT               from here on seconds count from board 0's first record line that contains TEXT

Before any "from", seconds count from the start of the command. Steps are played in the order of the file; those whose
time had not come when the command ended are reported. A LINE that its device refuses ends the scenario.
"""

import dataclasses
import math
import sys
import time


#: What devices are called, by the first word: how many words the name has, and what is said when a player has none
#: of this name. VirtualPlayer.devices holds those that it has.
DEVICES = {
    "board": (2, "there is no {name} (--board adds one)"),
    "player": (1, "the player has no GPIO lines (--gpio gives it some)"),
}
#: The one that lines without a name are for.
DEFAULT_DEVICE = "board 0"


class ScenarioError(Exception):
    """A line that is not a step, or a step that cannot be done."""


@dataclasses.dataclass
class Step:
    time: float | None  # seconds; None: when the command has ended
    action: str  # "from TEXT", "picture FILE" or "DEVICE LINE"
    line: int | None = None  # of the scenario's file


def parse(lines):
    """The steps of a scenario."""
    steps = []
    for number, line in enumerate(lines, 1):
        words = line.split("#")[0].split(maxsplit=1)
        if not words:
            continue
        try:
            when, action = words
            if when == "from":
                steps.append(Step(0, f"from {action}", number))
            elif when == "end" and action.startswith("picture "):
                steps.append(Step(None, action.strip(), number))
            else:
                first, *rest = action.split(maxsplit=1)
                is_complete = rest and (first == "picture" or first in DEVICES)
                seconds = float(when)
                if not 0 <= seconds < math.inf:
                    raise ValueError
                steps.append(Step(seconds, ("" if is_complete else f"{DEFAULT_DEVICE} ") + action.strip(), number))
        except ValueError:
            raise ScenarioError(f"line {number} is not a step of a scenario, such as \"2.5 touch 3\": "
                                f"{line.rstrip()}") from None
    return steps


def perform(player, action):
    """Does what a step says; returns the device that got a line and the number of that line, None for a picture."""
    kind, argument = action.split(maxsplit=1)
    if kind == "picture":
        player.picture(argument)
        return None
    length, missing = DEVICES[kind]
    words = action.split(maxsplit=length)
    name, line = " ".join(words[:length]), "".join(words[length:])
    device = player.devices.get(name)
    if device is None:
        raise ScenarioError(f"{missing.format(name=name)} for '{line}'")
    return device, device.send(line)


class _Timeline:
    """Steps of one origin, played one after the other."""

    def __init__(self, player, steps):
        self._player = player
        self._steps = [step for step in steps if step.time is not None]
        self._at_end = [step for step in steps if step.time is None]
        self._start = time.monotonic()
        self._sent = {}  # {(device, number of the line there): step}

    def play_due(self):
        """Plays the steps whose time has come; returns the seconds until the next, None if that is not known."""
        while self._steps:
            step = self._steps[0]
            if step.action.startswith("from "):
                device = self._player.devices.get(DEFAULT_DEVICE)
                if device is None:
                    raise ScenarioError(f"line {step.line}: there is no {DEFAULT_DEVICE} for '{step.action}'")
                if not any(step.action[len("from "):] in record for record in device.records):
                    return None
                self._start = time.monotonic()
            else:
                remaining = self._start + step.time - time.monotonic()
                if remaining > 0:
                    return remaining
                try:
                    sent = perform(self._player, step.action)
                except ScenarioError as error:
                    raise ScenarioError(f"line {step.line}: {error}") from error
                if sent:
                    self._sent[sent] = step
            self._steps.pop(0)
        return None

    def check(self):
        """ScenarioError if a device has refused a line up to now."""
        for device in self.devices():
            for number, answer in device.refusals.items():
                if step := self._sent.get((device, number)):
                    raise ScenarioError(f"line {step.line}: '{step.action}' is refused: {answer}; "
                                        "docs/virtual-player.md lists what the devices understand")

    def devices(self):
        """Those that were given lines."""
        return {device for device, _ in self._sent}

    def play_end(self):
        for step in self._at_end:
            perform(self._player, step.action)
        for step in self._steps:
            print(f"scenario: not played, the command had ended: {step.time} {step.action}", file=sys.stderr)


def play(player, command, scenarios, copies=()):
    """Plays scenarios (lists of steps) side by side from now until the command ends, and returns its status.

    ScenarioError when a device refuses a line; the command may still run then. `copies` are pairs of growing output
    (Command.stdout) and a binary stream that gets it as it comes.
    """
    timelines = [_Timeline(player, steps) for steps in scenarios]
    copied = [0] * len(copies)

    def copy_output():
        for i, (output, stream) in enumerate(copies):
            fresh = bytes(output[copied[i]:])
            if fresh:
                stream.write(fresh)
                stream.flush()
                copied[i] += len(fresh)

    def look():
        copy_output()
        for timeline in timelines:
            timeline.check()

    while command.status is None:
        seen = player.frames_received
        due = [remaining for timeline in timelines if (remaining := timeline.play_due()) is not None]
        look()
        player.wait_for(lambda: player.frames_received != seen, min(due, default=None))
    copy_output()
    for device in set().union(*(timeline.devices() for timeline in timelines)):
        device.settle()
    look()
    for timeline in timelines:
        timeline.play_end()
    return command.status
