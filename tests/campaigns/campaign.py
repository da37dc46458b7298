"""What the campaigns have in common: the virtual player that they run padtune on, and what padtune holds there.

The programs come from the build folder in PADTUNE_BUILD, by default that of the arm64 preset.
"""

import collections
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "guest"))

from guest import build_folder  # noqa: E402
from player import VirtualPlayer  # noqa: E402  from virtual_player, where guest looks

# What the last page of a run holds.
RED = (255, 0, 0)  # messages of failures
BLUE = (0, 119, 255)  # the message of a complete run
WHITE = (255, 255, 255)

GROWTH_ALLOWED = 64  # kB; more than some pages of the allocator is a leak

#: Numbers of descriptors and threads, and kB of memory that is no file's.
Resources = collections.namedtuple("Resources", "descriptors threads memory")


def virtual_player(**options):
    """A player with the programs of the build folder; arguments as for VirtualPlayer, but the sources of `files` are
    paths below that folder."""
    build = build_folder()
    files = {target: build / source for target, source in options.pop("files", {}).items()}
    return VirtualPlayer(build=build, files=files, **options)


def start(player, *arguments, environment=None):
    """A command in the guest that gets no input, started."""
    command = player.start(arguments, environment=environment)
    command.close_input()
    return command


def finish(command, timeout):
    """Waits until a command has ended; one that takes longer than `timeout` seconds is killed, as its status says."""
    try:
        command.wait(timeout)
    except TimeoutError:
        command.wait(10)


def resources(player):
    """What the padtune that runs in the guest holds."""
    text = player.shell("cd /proc/$(pidof padtune) && ls fd | wc -l && grep -E 'Threads|RssAnon|RssShmem' status")
    descriptors, *fields = text.splitlines()
    numbers = {name: int(number) for name, number, *_ in map(str.split, fields)}
    return Resources(int(descriptors), numbers["Threads:"], numbers["RssAnon:"] + numbers["RssShmem:"])
