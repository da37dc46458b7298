"""From raw figures to tables, goals and plots."""

import statistics
import textwrap

import plot

LIBRARIES = ("sd-event", "libev", "libuv", "libevent", "Asio", "GLib")
DISPATCHES = {"dispatch/1of2": "1 of 2", "dispatch/1of8": "1 of 8", "dispatch/1of32": "1 of 32",
              "dispatch/8of8": "8 of 8"}
STEPS = ("libraries", "constructors", "signals, hardware", "database of file types", "command line", "DirectFB",
         "screen, mode, surface", "fonts", "title drawn", "title shown")
OWN_STEPS = ("constructors", "signals, hardware", "command line")
MICROSECOND, MILLISECOND = 1e3, 1e6
BUSY = 0.5  # load before the run
RATE_REACHED = 0.95  # of the rate that was asked for

median = statistics.median


def _noise(values):
    """How far the median lies above the least, as a share of it."""
    return median(values) / min(values) - 1


def _table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows] + [""]


def _least(values, unit=1, digits=None):
    """The least and the median, as all tables show them."""
    if digits is None:
        digits = 0 if unit == 1 else 2
    return f"{min(values) / unit:.{digits}f} ({median(values) / unit:.{digits}f})"


def _event_loop_tables(loops):
    yield "## Event loops"
    yield ""
    yield ("Nanoseconds of the loop's thread a callback, with so many descriptors ready of so many: least of the "
           f"repetitions (median). Of {len(next(iter(loops.values()))['dispatch/1of2']['time'])} repetitions, each of "
           "which ran all loops one after the other, each in a process of its own. The last two columns: system calls "
           "and allocations a callback, 1 of 2 ready.")
    yield ""
    yield from _table(["loop", *DISPATCHES.values(), "system calls", "allocations"], (
        [name, *(_least(loop[dispatch]["time"]) for dispatch in DISPATCHES),
         f"{loop['system_calls']:.2f}" if "system_calls" in loop else "–",
         f"{median(loop['dispatch/1of2']['allocations']):.2f}"] for name, loop in loops.items()))
    yield ("Microseconds, least of the repetitions (median): how late a timer fires (half of them at most, 99 of 100 "
           "at most); processor time to add and fire one of 1,000 timers; from a call by another thread to its "
           "callback while the loop sleeps, and beside a descriptor that is always ready.")
    yield ""

    def percentiles(loop, benchmark):
        if benchmark not in loop:
            return ["–", "–"]
        return [_least(loop[benchmark][share], MICROSECOND, 1) for share in ("p50", "p99")]

    yield from _table(["loop", "timer late", "99 %", "one of 1,000", "call, idle", "99 %", "call, busy", "99 %"], (
        [name, *percentiles(loop, "timer"), _least(loop["timers"]["time"], MICROSECOND),
         *percentiles(loop, "call/idle"), *percentiles(loop, "call/busy")] for name, loop in loops.items()))


def _report_tables(reports):
    yield "## Reports"
    yield ""
    yield ("Nanoseconds from the first value of a report to the live state, for reports of so many buttons: least "
           "(median). The lines go to /dev/null.")
    yield ""
    yield from _table(["buttons", "decoded", "decoded and printed", "allocations"], (
        [count, _least(reports[f"decode/{count}"]["time"]), _least(reports[f"lines/{count}"]["time"]),
         f"{max(reports[f'{kind}/{count}']['allocations'][0] for kind in ('decode', 'lines')):.2f}"]
        for count in range(1, 8)))


def _page_tables(page):
    yield "## The page"
    yield ""
    yield ("Microseconds, least (median), on DirectFB's software renderer without a display: a frame with seven "
           "buttons, the flip that shows it, and both on a DirectFB that draws nothing. Allocations: a frame, all "
           "libraries included, and its own part.")
    yield ""
    yield from _table(["screen", "frame", "flip", "own part of both", "allocations", "own"], (
        [screen, *(_least(parts[part]["time"], MICROSECOND) for part in ("frame", "flip", "own_part")),
         *(f"{median(parts[part]['allocations']):.2f}" for part in ("frame", "own_part"))]
        for screen, parts in page.items()))


def _startup_tables(host, guest):
    yield "## From exec to the title"
    yield ""
    yield ("Milliseconds, medians. \"Constructors\" are those of the program itself; its own part are these, "
           "\"signals, hardware\" and \"command line\". On this machine DirectFB has no display; on the player it "
           "draws on the frame buffer. Ports: from the title to the first command, with a board of four ports.")
    yield ""

    def middle(runs, step):
        times = [run[step] for run in runs if step in run]
        return median(times) / MILLISECOND if times else None

    def cell(number):
        return "–" if number is None else f"{number:.2f}"

    rows = [[step, cell(middle(host, step)), cell(middle(guest, step))] for step in STEPS]
    sums = [sum(middle(runs, step) or 0 for step in STEPS) if runs else None for runs in (host, guest)]
    own = [sum(middle(runs, step) or 0 for step in OWN_STEPS) if runs else None for runs in (host, guest)]
    yield from _table(["step", "this machine", "player"], [
        *rows, ["**all up to the title**", *map(cell, sums)], ["own part of it", *map(cell, own)],
        ["ports", "–", cell(middle(guest, "ports"))]])


def _port_tables(ports):
    yield "## Ports"
    yield ""
    yield ("On the player, milliseconds, medians: the search for boards; the first port, which comes with the search "
           "and the question for the boards' models; the three others of the first board; a command (half of them at "
           "most, 99 of 100 at most).")
    yield ""
    yield from _table(["boards", "search", "first port", "three others", "command", "99 %"], (
        [count, *(f"{median(times[name]) / MILLISECOND:.2f}" for name in
                  ("scan", "first", "others", "command_p50", "command_p99"))] for count, times in ports.items()))


def _thread_tables(threads):
    yield "## Threads of a run"
    yield ""
    yield ("On the player, percent of a processor on the live page, with reports of seven buttons at so many a second; "
           "\"printed\" with --output-diagnostics to /dev/null. The main thread draws, and spins between frames.")
    yield ""
    names = {"plain": "not printed", "lines": "printed"}
    rows, columns = [], []
    for kind, rates in threads.items():
        for rate, run in rates.items():
            shares = run["shares"]
            columns = columns or sorted(shares, key=lambda name: -shares[name])
            rows.append([names[kind], rate, f"{run['fetched']:.0f}",
                         *(f"{100 * shares.get(name, 0):.2f}" for name in columns)])
    yield from _table(["lines", "reports a second", "came", *columns], rows)


def _rate_tables(rates):
    yield "## The highest rate of one board"
    yield ""
    yield ("On the player: reports of seven buttons, all printed to a file in memory. What the board does not come to "
           "make, the machine is too slow for; a report that was fetched but not decoded is lost in the kernel's "
           "queue.")
    yield ""
    yield from _table(["asked for, a second", "fetched, a second", "lost"], (
        [run["asked"], f"{run['fetched'] / run['seconds']:.0f}", run["fetched"] - run["decoded"]] for run in rates))
    lossless = [run for run in rates if run["fetched"] == run["decoded"]]
    reached = [run["asked"] for run in lossless if run["fetched"] >= RATE_REACHED * run["asked"] * run["seconds"]]
    most = max((run["fetched"] / run["seconds"] for run in lossless), default=0)
    yield (f"Highest rate that was reached without a loss: {max(reached, default='none')}. Most reports a second that "
           f"were fetched without a loss: {most:.0f}.")
    yield ""


def _goals(figures):
    """(what, figure, bound, whether it is met) of each goal that was measured."""
    host, guest = figures["host"], figures["guest"]
    if loops := host.get("event_loops"):
        yield from _event_loop_goals(loops)
    if host:
        lines = min(host["reports"]["lines/7"]["time"])
        yield "decode a report of 7 buttons with lines, ns", f"{lines:.0f}", "1200", lines <= 1200
        per_report = max(max(times["allocations"]) for times in host["reports"].values())
        yield "allocations a report", f"{per_report:.2f}", "0", per_report == 0
        per_frame = max(max(parts["own_part"]["allocations"]) for parts in host["page"].values())
        yield "allocations a frame, own part", f"{per_frame:.2f}", "0", per_frame == 0
    if "before" in guest.get("startup", {}):
        now, before = (min(run["ports"] for run in guest["startup"][part]) for part in ("now", "before"))
        yield ("from the title to the first command, compared with the earlier padtune", f"{now / before:.2f}", "0.65",
               now <= 0.65 * before)


def _event_loop_goals(loops):
    def times(loop, dispatch):
        return loops[loop][dispatch]["time"]

    def compared(dispatch, other):
        """PollThread's time in terms of another's, and what noise allows."""
        own, others = times("PollThread", dispatch), times(other, dispatch)
        return min(own) / min(others), 1 + max(_noise(own), _noise(others))

    ratio, _ = compared("dispatch/1of2", "ppoll+pipe")
    yield "1 of 2: PollThread compared with ppoll+pipe", f"{ratio:.3f}", "1.05", ratio <= 1.05
    libraries = [library for library in LIBRARIES if library in loops]
    for library in libraries:
        ratio, bound = compared("dispatch/1of2", library)
        what = f"1 of 2: PollThread compared with {library}, noise allowed"
        yield what, f"{ratio:.3f}", f"{bound:.3f}", ratio <= bound
    # No loop with the same pipe can be faster than that which does nothing else.
    ratio, bound = compared("dispatch/8of8", "ppoll+pipe")
    yield "8 of 8: PollThread compared with ppoll+pipe, noise allowed", f"{ratio:.3f}", f"{bound:.3f}", ratio <= bound
    ratio = max(compared("dispatch/8of8", other)[0] for other in ("epoll", *libraries))
    yield "8 of 8: PollThread compared with the fastest of the others", f"{ratio:.3f}", "1", ratio <= 1
    attached = loops["PollThread"]["call/busy"]["p99"]
    what = "Attach to callback beside a descriptor that is always ready, 99 %, µs"
    yield what, _least(attached, MICROSECOND, 1), "10", min(attached) <= 10 * MICROSECOND
    allocations = max(max(times["allocations"]) for name, times in loops["PollThread"].items()
                      if name.startswith("dispatch/"))
    yield "allocations a dispatch", f"{allocations:.2f}", "0", allocations == 0


def _write_plots(figures, folder):
    host, guest = figures["host"], figures["guest"]
    if "threads" in guest:
        series = {name: [(run["fetched"] * 7, 100 * run["shares"]["vtpoll"]) for run in guest["threads"][kind].values()]
                  for kind, name in (("plain", "not printed"), ("lines", "printed"))}
        _write(folder, "samples", plot.draw("Poll thread of a run, on the player", "samples a second",
                                            "% of a processor", series))
    if "ports" in guest:
        series = {name: [(int(count), median(times[key]) / MILLISECOND) for count, times in guest["ports"].items()]
                  for key, name in (("first", "first port"), ("scan", "search alone"))}
        _write(folder, "boards", plot.draw("Finding boards, on the player", "boards on the bus", "ms", series))
    if host:
        series = {name: [(count, min(host["reports"][f"{kind}/{count}"]["time"])) for count in range(1, 8)]
                  for kind, name in (("decode", "decoded"), ("lines", "decoded and printed"))}
        _write(folder, "buttons", plot.draw("A report", "buttons in it", "ns", series))
        sizes = {screen: int(screen.split("x")[0]) * int(screen.split("x")[1]) / 1e6 for screen in host["page"]}
        series = {part: [(sizes[screen], min(parts[part]["time"]) / MICROSECOND)
                         for screen, parts in host["page"].items()] for part in ("frame", "flip")}
        _write(folder, "screen", plot.draw("A frame of the page", "million pixels", "µs", series))


def _write(folder, name, svg):
    (folder / f"{name}.svg").write_text(svg)


def write(figures, folder):
    """Writes tables.md and the plots that there are figures for. Returns a line for each goal."""
    machine, host, guest = figures["machine"], figures["host"], figures["guest"]
    lines = ["# Figures", "", f"Measured on {machine['processor']}, {machine['processors']} processors, "
             f"{machine['kernel']}, {machine['compiler']}; the player on {machine['player']}; load before the run: "
             f"{machine['load']:.2f}. `scripts/bench` writes this page; [performance](../performance.md) says what it "
             "means.", ""]
    if machine["load"] > BUSY:
        lines += ["**The machine was busy: times of this run mean little, and goals that are not met may well be.**",
                  ""]
    goals = list(_goals(figures))
    lines += ["## Goals", ""]
    lines += _table(["goal", "measured", "at most", ""],
                    ([what, value, bound, "met" if met else "**not met**"] for what, value, bound, met in goals))
    if host:
        lines += [*_event_loop_tables(host["event_loops"]), *_report_tables(host["reports"]),
                  *_page_tables(host["page"])]
    lines += _startup_tables(host.get("startup", []), guest.get("startup", {}).get("now", []))
    if guest:
        lines += [*_port_tables(guest["ports"]), *_thread_tables(guest["threads"]), *_rate_tables(guest["rates"])]
    # Paragraphs are wrapped, tables are not.
    lines = [line if line.startswith("|") else textwrap.fill(line, 120, break_on_hyphens=False) for line in lines]
    (folder / "tables.md").write_text("\n".join(lines).rstrip() + "\n")
    _write_plots(figures, folder)
    return [f"{'met    ' if met else 'NOT MET'} {what}: {value} (at most {bound})" for what, value, bound, met in goals]
