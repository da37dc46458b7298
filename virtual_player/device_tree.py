"""A player's device tree: QEMU's own for the machine, with nodes and properties added."""

import os
import pathlib
import subprocess
import tempfile

LARGEST_CELL = 0xFFFFFFFF


class DeviceTreeError(Exception):
    """QEMU gave no tree, or something cannot be added to it."""


def make(machine, additions):
    """The compiled tree, as bytes.

    machine    QEMU's command with the machine's options, but without its own "-M virt"
    additions  {path of a node: {property: value}}; a text, a list of texts, a number or a list of numbers (cells), or
               True for a property without a value. Nodes that are not there are made.
    """
    with tempfile.TemporaryDirectory() as directory:
        tree = os.path.join(directory, "tree")
        _run([*machine, "-display", "none", "-M", f"virt,dumpdtb={tree}"])
        for node, properties in additions.items():
            _run(["fdtput", "-cp", tree, node])
            for name, value in properties.items():
                _run(["fdtput", *_value_type(name, value), "--", tree, node, name, *_words(value)])
        return pathlib.Path(tree).read_bytes()


def check(additions):
    """DeviceTreeError if make() could not add this."""
    if not isinstance(additions, dict) or not all(isinstance(node, dict) for node in additions.values()):
        raise DeviceTreeError("not an object of nodes, each an object of properties")
    for node, properties in additions.items():
        if not node.startswith("/"):
            raise DeviceTreeError(f"{node!r} is no path of a node, such as \"/vantora,player\"")
        for name, value in properties.items():
            _value_type(name, value)


def _words(value):
    if value is True:
        return []
    return [str(item) for item in (value if isinstance(value, list) else [value])]


def _value_type(name, value):
    items = value if isinstance(value, list) else [value]
    if value is True:
        return []
    if items and all(isinstance(item, str) for item in items):
        return ["-t", "s"]
    if items and all(type(item) is int and 0 <= item <= LARGEST_CELL for item in items):  # a bool is no number here
        return ["-t", "u"]
    raise DeviceTreeError(f"property {name} of the device tree: not texts, not numbers from 0 to {LARGEST_CELL} and not "
                          f"true: {value!r}")


def _run(command):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True)
    if result.returncode != 0:
        raise DeviceTreeError(f"{' '.join(command)}: {result.stdout.strip()}")
