"""Reads the pictures that the virtual player takes: PNG files of 8-bit red, green, blue, as QEMU writes them."""

import pathlib
import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"
CHANNELS = 3


def _chunks(data):
    position = len(SIGNATURE)
    while position < len(data):
        length, kind = struct.unpack_from(">I4s", data, position)
        yield kind, data[position + 8:position + 8 + length]
        position += 12 + length


def _paeth(left, above, corner):
    estimate = left + above - corner
    distances = (abs(estimate - left), abs(estimate - above), abs(estimate - corner))
    return (left, above, corner)[distances.index(min(distances))]


def _unfilter(kind, row, above):
    """Undoes the filter of one row in place; `above` is the row before it, already done."""
    before = bytes(CHANNELS)
    if kind == 1:
        for i in range(CHANNELS, len(row)):
            row[i] = (row[i] + row[i - CHANNELS]) & 255
    elif kind == 2:
        row[:] = bytes([(a + b) & 255 for a, b in zip(row, above)])
    elif kind == 3:
        for i, up in enumerate(above):
            left = row[i - CHANNELS] if i >= CHANNELS else 0
            row[i] = (row[i] + (left + up) // 2) & 255
    elif kind == 4:
        for i, (up, corner) in enumerate(zip(above, before + above)):
            left = row[i - CHANNELS] if i >= CHANNELS else 0
            row[i] = (row[i] + _paeth(left, up, corner)) & 255


class Picture:
    """Pixels are (red, green, blue); x and y count from the top left corner."""

    def __init__(self, path):
        data = pathlib.Path(path).read_bytes()
        if not data.startswith(SIGNATURE):
            raise ValueError(f"{path} is not a PNG file")
        chunks = list(_chunks(data))
        self.width, self.height, *form = struct.unpack(">IIBBBBB", chunks[0][1])
        if form != [8, 2, 0, 0, 0]:
            raise ValueError(f"{path} is not 8-bit RGB without interlacing: {form}")
        pixels = zlib.decompress(b"".join(content for kind, content in chunks if kind == b"IDAT"))
        stride = 1 + CHANNELS * self.width
        self._rows = []
        above = bytes(stride - 1)
        for start in range(0, len(pixels), stride):
            row = bytearray(pixels[start + 1:start + stride])
            _unfilter(pixels[start], row, above)
            above = bytes(row)
            self._rows.append(above)

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
