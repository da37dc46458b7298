"""Recordings of boards, as `portprobe record` and other tools that write the format of hid-recorder make them.

    R: LENGTH XX XX ...             the report descriptor, in hexadecimal
    N: NAME                         maker and product; may be missing
    P: PATH                         where the board was plugged in; not looked at
    I: BUS VENDOR PRODUCT           in hexadecimal
    E: SECONDS.MICROS LENGTH XX ... a report, its number first where the board numbers them
    D: 0                            the only device; may be missing

"#" starts a remark.
"""

import dataclasses
import pathlib
import re
import struct

#: No name that USB can carry is longer, no descriptor that the kernel takes, and no report that goes in one transfer.
NAME_LENGTH_MAX = 126
DESCRIPTOR_LENGTH_MAX = 4096
REPORT_LENGTH_MAX = 4096


class RecordingError(Exception):
    """A file that cannot be played: its name, the number of the line, and what is wrong."""


@dataclasses.dataclass
class Recording:
    descriptor: bytes = b""
    name: str = ""
    vendor: int = 0
    product: int = 0
    reports: list[tuple[int, bytes]] = dataclasses.field(default_factory=list)  # microseconds since the first, bytes

    def pack(self):
        """What the board program takes; see board/recording.h."""
        name = self.name.encode("latin-1", "replace")[:NAME_LENGTH_MAX]
        first = self.reports[0][0]
        return b"".join((struct.pack("<HH", self.vendor, self.product), _with_length(name),
                         _with_length(self.descriptor),
                         *(struct.pack("<Q", time - first) + _with_length(report) for time, report in self.reports)))


def _with_length(data):
    return struct.pack("<H", len(data)) + data


def _bytes(length, text, length_max):
    data = bytes.fromhex(text)
    if not 0 < int(length) <= length_max:
        raise ValueError(f"a length of {length} is not from 1 to {length_max}")
    if len(data) != int(length):
        raise ValueError(f"{length} bytes are announced, {len(data)} follow")
    return data


class _Reader:
    def __init__(self):
        self.recording = Recording()
        self._seen = set()

    def take(self, line):
        """Takes in a line; ValueError with what is wrong."""
        if not line.strip() or line.startswith("#"):
            return
        kind, text = line[:2], line[2:].strip()
        take = self.KINDS.get(kind)
        if take is None:
            raise ValueError("not a line of a recording")
        if kind != "E:" and kind != "D:" and kind in self._seen:
            raise ValueError(f"a second {kind} line")
        self._seen.add(kind)
        take(self, text)

    def check_end(self):
        for kind in ("R:", "I:", "E:"):
            if kind not in self._seen:
                raise ValueError(f"there is no {kind} line")

    def _take_descriptor(self, text):
        match = re.fullmatch(r"(\d+)((?: +[\da-fA-F]{2})*)", text, re.ASCII)
        if not match:
            raise ValueError("not a length and bytes in hexadecimal")
        self.recording.descriptor = _bytes(match[1], match[2], DESCRIPTOR_LENGTH_MAX)

    def _take_name(self, text):
        self.recording.name = text

    def _take_path(self, text):
        pass

    def _take_identity(self, text):
        match = re.fullmatch(r"[\da-fA-F]{1,4} +([\da-fA-F]{1,4}) +([\da-fA-F]{1,4})", text, re.ASCII)
        if not match:
            raise ValueError("not bus, vendor and product in hexadecimal")
        self.recording.vendor, self.recording.product = (int(number, 16) for number in match.groups())

    def _take_device(self, text):
        if text != "0":
            raise ValueError("a recording of several devices")

    def _take_report(self, text):
        match = re.fullmatch(r"(\d{1,8})\.(\d{6}) +(\d+)((?: +[\da-fA-F]{2})*)", text, re.ASCII)
        if not match:
            raise ValueError("not seconds with six decimals, a length and bytes in hexadecimal")
        time = int(match[1]) * 1_000_000 + int(match[2])
        reports = self.recording.reports
        if reports and time < reports[-1][0]:
            raise ValueError("its time is before that of the report above")
        reports.append((time, _bytes(match[3], match[4], REPORT_LENGTH_MAX)))

    KINDS = {"R:": _take_descriptor, "N:": _take_name, "P:": _take_path, "I:": _take_identity, "D:": _take_device,
             "E:": _take_report}


def read(path):
    """The recording that a file holds; RecordingError when it cannot be played."""
    try:
        text = pathlib.Path(path).read_text(encoding="utf-8", errors="replace")
    except OSError as error:
        raise RecordingError(f"{path}: {error.strerror}") from error
    reader = _Reader()
    lines = text.split("\n")
    for number, line in enumerate(lines, 1):
        try:
            reader.take(line)
        except ValueError as error:
            raise RecordingError(f"{path}:{number}: {error}") from error
    try:
        reader.check_end()
    except ValueError as error:
        raise RecordingError(f"{path}:{len(lines)}: {error}") from error
    return reader.recording
