"""The parts of the benchmarks that run on the virtual player, whose processor is emulated: what counts there is what
grows with what, what is waited for, and how a run's time is shared. Each part is a function of the player and of
whether it is only to be tried, and returns its raw figures, times in nanoseconds."""

import json
import pathlib
import sys
import time

from host_parts import read_steps

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "virtual_player"))

from player import Board, PlayerError, VirtualPlayer  # noqa: E402

BUTTONS = 7  # a report has room for no more
RATES = (0, 25, 50, 100, 200)
HIGHEST_RATES = (100, 200, 300, 400, 500, 600, 800, 1000)
BOARDS = (1, 4, 8)
STEPS_LOG = "/tmp/steps"
LINES = "/tmp/lines"
BEFORE = "/usr/local/bin/padtune-before"
# Seconds since the start of the guest; then name and nanoseconds on a processor of each thread.
THREADS = ("cut -d' ' -f1 /proc/uptime; cd /proc/$(pidof padtune)/task && "
           "for t in *; do echo $(cat $t/comm) $(cut -d' ' -f1 $t/schedstat); done")


def virtual_player(build, before=None):
    """A player with the programs of the benchmarks; `before`: an earlier padtune, to compare with."""
    files = {f"/usr/local/bin/{program}": build / "bench" / program
             for program in ("ports", "startup", "startup-steps.so")}
    if before:
        files[BEFORE] = before
    return VirtualPlayer(build=build, files=files, processors=2)


def _start_padtune(player, arguments, output):
    """A run that lasts until it is killed, with its live page reached."""
    board = player.boards[0]
    seen = len(board.records)
    run = player.start(["sh", "-c", f"exec padtune --timeout 100000 --pause 0 --button 1-{BUTTONS} {arguments} "
                                    f"2>{output} >/dev/null"])
    run.close_input()
    board.wait_for_record("setup-request", start=seen)
    time.sleep(2)
    return run


def _end(run):
    run.kill()
    run.wait(60)


def startup(player, trying):
    """{"now": [{step: nanoseconds}, …], "before": …}, from the start of the program to the first command; "before" of
    the earlier padtune, if there is one. One after the other, then both again."""
    there = player.run(["test", "-e", BEFORE], 60).status == 0
    programs = {"now": "padtune", **({"before": BEFORE} if there else {})}
    figures = {name: [] for name in programs}
    for _ in range(1 if trying else 7):
        for name, program in programs.items():
            run = player.run(["startup", "/usr/local/bin/startup-steps.so", program, "--timeout", "0", "--pause", "0",
                              "--button", "1"], 120, environment={"STARTUP_LOG": STEPS_LOG})
            if run.status != 0:
                raise RuntimeError(f"{program} has ended with {run.status}: {run.stderr.decode()}")
            figures[name].append(read_steps(player.get(STEPS_LOG).decode()))
    return figures


def _read_threads(player):
    uptime, *threads = player.shell(THREADS).splitlines()
    return float(uptime), [tuple(thread.rsplit(" ", 1)) for thread in threads]


def _count(player):
    """DIAGNOSTICS reports fetched by the kernel, made by the board, missed by it."""
    board = player.boards[0]
    start = len(board.records)
    board.send("count")
    record = board.records[board.wait_for_record(" diagnostics ", start=start)].split()
    return [int(record[2]), int(record[4]), int(record[6])]


def threads(player, trying):
    """{"lines"/"plain": {reports asked for, a second: {"fetched": a second, "shares": {thread: share of a processor}}}}
    of the live page."""
    figures = {}
    for kind, arguments in (("plain", ""), ("lines", "--output-diagnostics x")):
        run = _start_padtune(player, arguments, "/dev/null")
        for rate in RATES[1:2] if trying else RATES:
            player.boards[0].send(f"rate {rate}")
            time.sleep(1)
            fetched_before = _count(player)[0]
            begin, before = _read_threads(player)
            time.sleep(1 if trying else 5)
            fetched = _count(player)[0] - fetched_before
            end, after = _read_threads(player)
            shares = {name: 0 for name, _ in before}
            for (name, earlier), (_, later) in zip(before, after, strict=True):
                shares[name] += (int(later) - int(earlier)) / 1e9 / (end - begin)
            figures.setdefault(kind, {})[rate] = {"fetched": fetched / (end - begin), "shares": shares}
        _end(run)
    player.boards[0].send("rate 25")
    return figures


def _count_all(player):
    """The same, and how many padtune has decoded."""
    return [*_count(player), int(player.shell(f"grep -c BT1: {LINES} || true"))]


def rates(player, trying):
    """[{"asked": a second, "seconds": how long, "fetched": …, "made": …, "missed": …, "decoded": …}, …]: whether every
    report that the board makes is decoded, with all lines printed to a file in memory."""
    figures = []
    board = player.boards[0]
    board.send("rate 0")
    run = _start_padtune(player, "--output-diagnostics x", LINES)
    for rate in HIGHEST_RATES[:1] if trying else HIGHEST_RATES:
        earlier = _count_all(player)
        start = time.monotonic()
        board.send(f"rate {rate}")
        time.sleep(1 if trying else 5)
        board.send("rate 0")
        seconds = time.monotonic() - start
        time.sleep(1.5)
        counts = [now - then for now, then in zip(_count_all(player), earlier)]
        figures.append({"asked": rate, "seconds": seconds,
                        **dict(zip(("fetched", "made", "missed", "decoded"), counts))})
    _end(run)
    board.send("rate 25")
    return figures


def ports(player, trying):
    """{number of boards: {"scan": […], "first": […], "others": […], "command_p50": […], "command_p99": […]}}"""
    figures = {}
    for count in BOARDS[:1] if trying else BOARDS:
        while len(player.boards) < count:
            player.boards.append(Board(player, "KP480", len(player.boards)))
            player.boards[-1].wait_for_record("ready")
        lists = figures[count] = {}
        for _ in range(1 if trying else 5):
            for what in ("scan", "open"):
                run = player.run(["ports", what], 120)
                if run.status != 0:
                    raise RuntimeError(f"ports {what}: {run.stderr.decode()}")
                for name, value in json.loads(run.stdout).items():
                    lists.setdefault(name, []).append(value)
    return figures


# The ports come last: they add boards.
PARTS = {"startup": startup, "threads": threads, "rates": rates, "ports": ports}
