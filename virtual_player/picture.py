"""Reads what the screen shows, as QEMU hands it over: a portable pixmap (PPM) of 8-bit red, green, blue."""

import pathlib
import re

HEADER = re.compile(rb"P6\s(\d+)\s(\d+)\s255\s")
CHANNELS = 3


class Picture:
    """Pixels are (red, green, blue); x and y count from the top left corner."""

    def __init__(self, path):
        data = pathlib.Path(path).read_bytes()
        header = HEADER.match(data)
        if header is None:
            raise ValueError(f"{path} is not an 8-bit pixmap")
        self.width, self.height = map(int, header.groups())
        stride = CHANNELS * self.width
        if len(data) != header.end() + stride * self.height:
            raise ValueError(f"{path} does not hold {self.width}x{self.height} pixels")
        self._rows = [data[start:start + stride] for start in range(header.end(), len(data), stride)]

    def pixel(self, x, y):
        return tuple(self._rows[y][CHANNELS * x:CHANNELS * (x + 1)])

    def colours(self, left=0, top=0, right=None, bottom=None):
        """How often each colour occurs inside a rectangle (by default the whole picture): {pixel: number}."""
        counts = {}
        for row in self._rows[top:bottom]:
            part = row[CHANNELS * left:None if right is None else CHANNELS * right]
            for pixel in zip(part[0::3], part[1::3], part[2::3]):
                counts[pixel] = counts.get(pixel, 0) + 1
        return counts
