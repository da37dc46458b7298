#!/usr/bin/python3
"""Prints the classes of tests that run on the virtual player, one a line, as `python3 -m unittest` takes them."""

import pathlib
import unittest


def classes(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from classes(test)
        else:
            yield f"{type(test).__module__}.{type(test).__qualname__}"


FOLDER = str(pathlib.Path(__file__).parent)
print(*dict.fromkeys(classes(unittest.defaultTestLoader.discover(FOLDER, "*_test.py"))), sep="\n")
