"""The parts of the benchmarks that run on this machine. Each is a function of the build folder and of how much is to be
measured, and returns its raw figures: lists of what the repetitions gave, times in nanoseconds."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

TOP = pathlib.Path(__file__).resolve().parents[1]
SCREENS = ("1280x1024", "1920x1080", "3840x2160")
DUMMY_DISPLAY = "system=dummy,mode=1280x720,no-banner,quiet=info"
STARTS = 21


class MissingError(Exception):
    """Something that is needed is not there."""


def font():
    """The file that stands for the player's font, here or among the player's packages."""
    packages = subprocess.run([TOP / "scripts/arm64-packages"], check=True, stdout=subprocess.PIPE, text=True).stdout
    for root in ("/", packages.strip()):
        file = pathlib.Path(root, "usr/share/fonts/truetype/dejavu/DejaVuSans.ttf")
        if file.exists():
            return str(file)
    raise MissingError("no DejaVuSans.ttf: run scripts/setup")


def _run(*command, **environment):
    run = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                         env={**os.environ, **environment})
    if run.returncode != 0:
        raise MissingError(f"{' '.join(map(str, command))} ended with {run.returncode}: {run.stderr.strip()}")
    return run.stdout


def _benchmarks(seconds, *command):
    """{name: what Google Benchmark says about it}; its "time" is that which the benchmark measures itself, or else
    processor time."""
    output = _run(*command, "--benchmark_format=json", f"--benchmark_min_time={seconds}")
    results = {}
    for result in json.loads(output)["benchmarks"]:
        result["time"] = result["real_time" if "manual_time" in result["name"] else "cpu_time"]
        results[re.sub(r"/(iterations:\d+|manual_time|process_time)\b", "", result["name"])] = result
    return results


def _collect(figures, results, counters):
    """Appends the time of each result, and those of its counters that it has, to the lists of `figures`."""
    for name, result in results.items():
        lists = figures.setdefault(name, {})
        lists.setdefault("time", []).append(result["time"])
        for counter in counters:
            if counter in result:
                lists.setdefault(counter, []).append(result[counter])


def _event_loop_programs(build):
    """{name of a loop: the program that has it}, PollThread first."""
    found = {}
    for program in sorted((build / "bench/event_loops").iterdir()):
        for line in _run(program, "--benchmark_list_tests").splitlines():
            found[line.split("/")[0]] = program
    order = ["PollThread", "ppoll", "ppoll+pipe", "epoll"]
    return {name: found[name] for name in [*order, *sorted(set(found) - set(order), key=str.lower)]}


def _system_calls(program, loop, callbacks):
    with tempfile.NamedTemporaryFile("r") as table:
        _run("strace", "-f", "-c", "-U", "calls,name", "-o", table.name, program, "--count", loop, callbacks)
        return sum(int(line.split()[0]) for line in table if re.match(r" *\d+ \w", line) and "total" not in line)


def event_loops(build, repetitions, seconds):
    """{loop: {benchmark: {"time": […], "p50": […], …}, "system_calls": a callback, by strace where it is installed}}; a
    process for each loop, one after the other, then all again."""
    programs = _event_loop_programs(build)
    figures = {loop: {} for loop in programs}
    brief = ["--brief"] if repetitions == 1 else []
    for _ in range(repetitions):
        for loop, program in programs.items():
            pattern = re.sub(r"\W", ".", loop)
            results = _benchmarks(seconds, program, *brief, f"--benchmark_filter=^{pattern}/")
            _collect(figures[loop], {name.removeprefix(f"{loop}/"): result for name, result in results.items()},
                     ("p50", "p99", "allocations"))
    if shutil.which("strace"):
        for loop, program in programs.items():
            few, many = (_system_calls(program, loop, callbacks) for callbacks in (500, 2500))
            figures[loop]["system_calls"] = (many - few) / 2000
    return figures


def reports(build, repetitions, seconds):
    """{"decode/7": {"time": […], "allocations": […]}, …}"""
    figures = {}
    for _ in range(repetitions):
        results = _benchmarks(seconds, build / "bench/reports")
        _collect(figures, {name.removeprefix("reports/"): result for name, result in results.items()},
                 ("allocations",))
    return figures


def page(build, repetitions, seconds):
    """{screen: {"frame": {"time": […], "allocations": […]}, "flip": …, "own_part": …}}"""
    figures = {screen: {} for screen in SCREENS}
    for _ in range(repetitions):
        for screen in SCREENS:
            results = _benchmarks(seconds, build / "bench/page", screen, font())
            _collect(figures[screen], {name.rsplit("/", 1)[1]: result for name, result in results.items()},
                     ("allocations",))
    return figures


def read_steps(text):
    """{step: nanoseconds} of the log of startup-steps."""
    return {name: int(time) for time, name in (line.split(" ", 1) for line in text.splitlines())}


def startup(build, repetitions, _seconds):
    """[{step: nanoseconds}, …] of padtune without a board, which ends with the title."""
    runs = []
    with tempfile.NamedTemporaryFile("r") as log:
        for _ in range(STARTS if repetitions > 1 else 1):
            _run(build / "bench/startup", build / "bench/startup-steps.so", build / "padtune", "--timeout", "0",
                 "--pause", "0", STARTUP_LOG=log.name, STARTUP_FONT=font(), DFBARGS=DUMMY_DISPLAY)
            runs.append(read_steps(pathlib.Path(log.name).read_text()))
    return runs


PARTS = {"event_loops": event_loops, "reports": reports, "page": page, "startup": startup}
