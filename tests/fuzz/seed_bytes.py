#!/usr/bin/env python3
"""Makes the seeds of a fuzz target: seed_bytes.py SOURCE_FOLDER TARGET_FOLDER

A file NAME.hex is readable: a two-digit number is a byte, 0x0001 and 0x00000001 are numbers of two and four bytes
with the low byte first, and a line's rest after # is a comment. Other files are taken as they are.
"""
import pathlib
import shutil
import sys


def encode(number: str) -> bytes:
    digits = number.removeprefix("0x")
    return int(digits, 16).to_bytes(len(digits) // 2, "little")


source, target = map(pathlib.Path, sys.argv[1:])
shutil.rmtree(target, ignore_errors=True)
target.mkdir(parents=True)
for seed in source.iterdir():
    content = seed.read_bytes()
    if seed.suffix == ".hex":
        numbers = [n for line in content.decode().splitlines() for n in line.partition("#")[0].split()]
        content = b"".join(map(encode, numbers))
    (target / seed.stem).write_bytes(content)
