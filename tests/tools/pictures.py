"""Encodes and decodes PNG files (ISO/IEC 15948), so that tests can look at pixels."""

import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"
RED, GREEN, BLUE, WHITE = (255, 0, 0, 255), (0, 255, 0, 255), (0, 0, 255, 255), (255, 255, 255, 255)
TRANSPARENT = (0, 0, 0, 0)


def chunk(kind, content):
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))


def encoded(width, height, colour_at):
    """A PNG whose pixel at column x of row y, counted from the top, is `colour_at(x, y)`."""
    rows = b"".join(b"\0" + b"".join(bytes(colour_at(x, y)) for x in range(width)) for y in range(height))
    header = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    return SIGNATURE + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def solid(width, height, colour):
    return encoded(width, height, lambda x, y: colour)


class Picture:
    """A decoded PNG of 8 bits a channel, with or without alpha."""

    def __init__(self, content):
        assert content.startswith(SIGNATURE), "no PNG"
        data, at = b"", len(SIGNATURE)
        while at < len(content):
            length, kind = struct.unpack_from(">I4s", content, at)
            body = content[at + 8:at + 8 + length]
            assert content[at + 8 + length:at + 12 + length] == struct.pack(">I", zlib.crc32(kind + body))
            if kind == b"IHDR":
                self.width, self.height, depth, colours, _, _, interlace = struct.unpack(">IIBBBBB", body)
                assert (depth, interlace) == (8, 0) and colours in (2, 6)
                self.channels = 4 if colours == 6 else 3
            elif kind == b"IDAT":
                data += body
            at += 12 + length
        self.rows = self.unfiltered(zlib.decompress(data))

    def unfiltered(self, data):
        length = self.width * self.channels
        assert len(data) == (length + 1) * self.height
        rows, above = [], bytearray(length)
        for y in range(self.height):
            start = y * (length + 1)
            above = self.unfiltered_row(data[start], bytearray(data[start + 1:start + 1 + length]), above)
            rows.append(above)
        return rows

    def unfiltered_row(self, method, row, above):
        for i in range(len(row)):
            left = row[i - self.channels] if i >= self.channels else 0
            up, corner = above[i], above[i - self.channels] if i >= self.channels else 0
            distances = [abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)]
            paeth = (left, up, corner)[distances.index(min(distances))]
            row[i] = (row[i] + (0, left, up, (left + up) // 2, paeth)[method]) & 0xFF
        return row

    @property
    def size(self):
        return self.width, self.height

    def pixel(self, x, y):
        """Red, green, blue and alpha at column x of row y, counted from the top."""
        found = tuple(self.rows[y][x * self.channels:(x + 1) * self.channels])
        return found if self.channels == 4 else found + (255,)

    def colours(self):
        return {self.pixel(x, y) for y in range(self.height) for x in range(self.width)}

    def opaque_box(self):
        """Left, top, right and bottom of everything that can be seen."""
        seen = [(x, y) for y in range(self.height) for x in range(self.width) if self.pixel(x, y)[3]]
        columns, rows = zip(*seen)
        return min(columns), min(rows), max(columns) + 1, max(rows) + 1


def jpeg_size(content):
    """The size in a JPEG's frame header (ITU-T T.81, B.2.2)."""
    assert content.startswith(b"\xff\xd8") and content.endswith(b"\xff\xd9"), "no whole JPEG"
    at = 2
    while content[at + 1] not in (0xC0, 0xC1, 0xC2):
        at += 2 + struct.unpack_from(">H", content, at + 2)[0]
    height, width = struct.unpack_from(">HH", content, at + 5)
    return width, height
