#!/usr/bin/python3
"""Manual pages, documents and completions say what the programs' own help says."""

import os
import pathlib
import pty
import re
import subprocess
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("PADTUNE_BUILD", TOP / "build/host")).absolute()
LAUNCHER = TOP / "virtual_player/virtual-player"

PROGRAMS = {name: [str(BUILD / name)] for name in ("padtune", "portprobe", "padreport")} | {
    "virtual-player": ["/usr/bin/python3", str(LAUNCHER)]}

# The documents that have the options too, or the section that has them.
DOCUMENTS = {"padtune": ("README.md", "### Options\n"), "portprobe": ("docs/portprobe.md", None),
             "padreport": ("docs/padreport.md", None)}

# What mandoc remarks about every page that scdoc makes: it breaks no lines, ends paragraphs with empty ones, and leaves
# the title as it is written, which is how the program is.
SCDOC_HABITS = ("input text line longer than 80 bytes", "skipping paragraph macro: PP ",
                "lower case character in document title")


def options_of_help(name):
    """{option: whether an argument follows it}, as the program's help has them; without those that only help."""
    text = subprocess.run([*PROGRAMS[name], "--help", *(["x"] if name == "padtune" else [])], stdout=subprocess.PIPE,
                          text=True, env={**os.environ, "COLUMNS": "80"}).stdout
    found = re.findall(r"^ +(?:-\w, )?(--[a-z-]+)([= ]<?[A-Za-z])?", text, re.MULTILINE)
    return {option: bool(argument) for option, argument in found if option not in ("--help", "--version")}


def options_of_manual(name):
    text = (TOP / f"docs/man/{name}.1.scd").read_text().split("\n# OPTIONS\n")[1].split("\n# ")[0]
    definitions = re.findall(r"^\*-.*$", text, re.MULTILINE)
    found = re.findall(r"\*(--[a-z-]+)=?\*( ?_)?", "\n".join(definitions))
    return {option: bool(argument) for option, argument in found if option not in ("--help", "--version")}


def option_words(text):
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*\b", text)) - {"--help", "--version"}


class Manuals(unittest.TestCase):
    def test_mandoc_has_nothing_to_say(self):
        pages = sorted((BUILD / "man").iterdir())
        self.assertEqual([page.name + ".scd" for page in pages], sorted(os.listdir(TOP / "docs/man"))[1:])
        lint = subprocess.run(["mandoc", "-T", "lint", *pages], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
        remarks = [line for line in lint.stdout.splitlines() if not any(habit in line for habit in SCDOC_HABITS)]
        self.assertEqual(remarks, [])

    def test_manuals_have_the_options_of_the_help(self):
        for name in PROGRAMS:
            with self.subTest(name):
                self.assertGreater(len(options_of_help(name)), 3)
                self.assertEqual(options_of_manual(name), options_of_help(name))

    def test_manual_has_the_commands_of_the_help(self):
        help_text = subprocess.run([*PROGRAMS["portprobe"], "--help"], stdout=subprocess.PIPE, text=True).stdout
        self.assertEqual(help_text, (TOP / "tests/data/portprobe_help").read_text())  # which was read
        manual = (TOP / "docs/man/portprobe.1.scd").read_text().split("\n# COMMANDS\n")[1].split("\n# ")[0]
        self.assertEqual(sorted(re.findall(r"^\*(\w+)\*$", manual, re.MULTILINE)),
                         sorted(re.findall(r"^    ([a-z]+)", help_text, re.MULTILINE)))

    def test_documents_have_the_options_of_the_help(self):
        known = set().union(*map(options_of_help, PROGRAMS))
        for name, (document, section) in DOCUMENTS.items():
            text = (TOP / document).read_text()
            words = option_words(text.split(section)[1].split("\n##")[0] if section else text)
            with self.subTest(document):
                self.assertEqual(set(options_of_help(name)) - words, set())
                self.assertEqual(words - known, set())


class Shell:
    """An interactive bash at a terminal, with the completions of the tree."""

    def __init__(self, directory, path):
        process, self._terminal = pty.fork()
        if process == 0:
            os.chdir(directory)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"],
                       {"PATH": f"{path}:{os.environ['PATH']}", "TERM": "dumb", "PS1": "", "HOME": directory})
        self._process = process
        self._run(". /usr/share/bash-completion/bash_completion")
        for completion in sorted((TOP / "completions").iterdir()):
            self._run(f". {completion}")
        self._run("""bind -x '"\\C-t": printf "\\n<%s>\\n" "$READLINE_LINE"; READLINE_LINE='""")

    def _run(self, line):
        os.write(self._terminal, line.encode() + b"\n echo \\<done\\>\n")
        self._read_answer()

    def _read_answer(self):
        answer = b""
        while not (match := re.search(rb"\n<(.*)>\r", answer)):
            answer += os.read(self._terminal, 4096)
        return match[1].decode()

    def complete(self, line):
        """The words that bash puts in the place of the last one, all that there are."""
        os.write(self._terminal, line.encode() + b"\x1b*\x14")
        words = self._read_answer()
        start = line[:max(line.rfind(" "), line.rfind("=")) + 1]
        assert words.startswith(start), (line, words)
        return words.removeprefix(start).split()

    def close(self):
        os.close(self._terminal)
        os.waitpid(self._process, 0)


class Completion(unittest.TestCase):
    def setUp(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        self.path = pathlib.Path(directory, "bin")
        self.path.mkdir()
        for name, command in PROGRAMS.items():
            (self.path / name).symlink_to(command[-1])
        for name in ("log1", "log2"):
            pathlib.Path(directory, name).touch()
        self.shell = Shell(directory, self.path)
        self.addCleanup(self.shell.close)

    def replace_portprobe(self, list_script):
        """Ports that this machine has not: `list` does what the script says, everything else is portprobe's."""
        (self.path / "portprobe").unlink()
        script = f'#!/bin/sh\n[ "$1" = list ] || exec {BUILD}/portprobe "$@"\n{list_script}\n'
        (self.path / "portprobe").write_text(script)
        (self.path / "portprobe").chmod(0o755)

    def test_words_are_completed(self):
        self.replace_portprobe("echo 'NAME PINS'; echo 'vantora 13'; echo 'TouchBoard-0-LED 11'; echo oops >&2; exit 1")
        # The program that lists them is built for the player only.
        models = [model for name in ("touch_board_model", "make_board") for model in re.findall(
            r'\{"([\w-]+)", ', (TOP / f"virtual_player/board/{name}.cpp").read_text())]
        for line, words in (
            ("padtune ", sorted(options_of_help("padtune"))),
            ("padtune --timeout 5 --enable-", ["--enable-button", "--enable-led"]),
            ("padtune --timeout --enable-", ["--enable-"]),
            ("portprobe p", ["parameter", "pulse"]),
            ("portprobe watch ", ["TouchBoard-0-LED", "vantora"]),
            ("portprobe --count 3 watch vantora T", ["TouchBoard-0-LED"]),
            ("portprobe get vantora T", ["T"]),
            ("portprobe record vantora T", ["T"]),
            ("portprobe watch --", ["--count=", "--edges=", "--pins=", "--timeout="]),
            ("portprobe record --", ["--count=", "--timeout="]),
            ("portprobe pulse --", ["--period=", "--steps="]),
            ("portprobe watch --edges=", ["both", "falling", "rising"]),
            ("padreport --", sorted([*options_of_help("padreport"), "--help", "--version"])),
            ("padreport --signal ", ["1", "2", "3", "4"]),
            ("padreport --compare log1 l", ["log1", "log2"]),
            ("padreport --follow l", ["l"]),
            ("virtual-player --", sorted([*options_of_help("virtual-player"), "--help", "--"])),
            ("virtual-player --board ", [*models, "replay:"]),
            ("virtual-player --board replay:l", ["replay:log1", "log2"]),
            ("virtual-player --scenario l", ["log1", "log2"]),
            ("virtual-player --build b", ["bin"]),
            ("virtual-player --board KP120 -- p", ["padtune", "portprobe"]),
            ("virtual-player -- padtune --timeout 4 --led-", ["--led-bits", "--led-mask"]),
            ("virtual-player --gpio --boards 2 padtune --timeout 4 --led-", ["--led-bits", "--led-mask"]),
            ("virtual-player --board KP120 po", ["portprobe"]),
        ):
            with self.subTest(line):
                self.assertEqual(sorted(self.shell.complete(line)), sorted(words))

    def test_ports_that_do_not_come_at_once_are_left_out(self):
        # As if it hung in a request to a board, which no signal ends.
        self.replace_portprobe("trap '' TERM; echo 'vantora 13'; sleep 600 & echo $! >sleeper; wait; wait")
        self.assertEqual(self.shell.complete("portprobe watch v"), ["vantora"])
        subprocess.run(["sh", "-c", f"kill $(cat {self.path.parent}/sleeper)"], check=True)


if __name__ == "__main__":
    unittest.main()
