#!/usr/bin/python3
"""Manual pages and documents say what the programs' own help says."""

import os
import pathlib
import re
import subprocess
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


if __name__ == "__main__":
    unittest.main()
