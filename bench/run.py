#!/usr/bin/python3
"""Runs the benchmarks and writes what came of them: figures.json, all that was measured; tables.md; four plots. Tells
at the end which goals are met. scripts/bench builds them first.

usage: bench/run.py [--into DIR] [--brief] [--only host|guest] [--build DIR] [--guest-build DIR] [--before PADTUNE]
"""

import argparse
import json
import os
import pathlib
import platform
import subprocess
import sys
import time

import guest_parts
import host_parts
import tables

TOP = pathlib.Path(__file__).resolve().parents[1]


# The load average goes on for a while about what has ended, such as a build just before.
IDLE_LOAD = 0.4
IDLE_TIMEOUT = 240  # seconds


def wait_until_idle():
    deadline = time.monotonic() + IDLE_TIMEOUT
    while os.getloadavg()[0] > IDLE_LOAD and time.monotonic() < deadline:
        time.sleep(5)


def machine():
    """What the figures depend on, without the name of this machine."""
    models = [line.split(":", 1)[1].strip() for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines()
              if line.startswith("model name")]

    def version(program):
        return subprocess.run([program, "--version"], stdout=subprocess.PIPE, text=True).stdout.splitlines()[0]

    return {"processor": models[0] if models else platform.machine(), "processors": os.cpu_count(),
            "kernel": f"{platform.system()} {platform.release().split('-')[0]}", "compiler": version("c++"),
            "player": version("qemu-system-aarch64"), "load": os.getloadavg()[0]}


def measure(part, *arguments):
    start = time.monotonic()
    print(f"bench: {part.__name__} …", end="", file=sys.stderr, flush=True)
    figures = part(*arguments)
    print(f" {time.monotonic() - start:.0f} s", file=sys.stderr)
    return figures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--into", type=pathlib.Path, default=TOP / "build/bench", metavar="DIR",
                        help="where tables, figures and plots are written (default: build/bench)")
    parser.add_argument("--brief", action="store_true", help="each for a moment, to see that it works")
    parser.add_argument("--only", choices=("host", "guest"), help="only what runs on this machine, or on the player")
    parser.add_argument("--build", type=pathlib.Path, default=TOP / "build/host", metavar="DIR")
    parser.add_argument("--guest-build", type=pathlib.Path, default=TOP / "build/arm64", metavar="DIR")
    parser.add_argument("--before", type=pathlib.Path, metavar="PADTUNE",
                        help="a padtune for the player to compare the opening of ports with")
    options = parser.parse_args()

    if not options.brief:
        wait_until_idle()
    figures = {"machine": machine(), "host": {}, "guest": {}}
    if options.only != "guest":
        repetitions, seconds = (1, 0.01) if options.brief else (7, 0.1)
        for name, part in host_parts.PARTS.items():
            figures["host"][name] = measure(part, options.build.absolute(), repetitions, seconds)
    if options.only != "host":
        with guest_parts.virtual_player(options.guest_build.absolute(), options.before) as player:
            for name, part in guest_parts.PARTS.items():
                figures["guest"][name] = measure(part, player, options.brief)

    options.into.mkdir(parents=True, exist_ok=True)
    # Read back, as who looks at the file later: the keys of JSON are texts.
    text = json.dumps(figures, indent=1)
    (options.into / "figures.json").write_text(text + "\n")
    print("\n".join(tables.write(json.loads(text), options.into)))


if __name__ == "__main__":
    try:
        main()
    except (host_parts.MissingError, guest_parts.PlayerError, OSError, RuntimeError) as error:
        sys.exit(f"bench: {error}")
