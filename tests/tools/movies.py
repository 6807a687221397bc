"""Builds QuickTime movies of uncompressed frames, so that each pixel of a frame is known."""

import struct

from support import atom

FRAMES_PER_SECOND = 10


def words(*values):
    return struct.pack(f">{len(values)}I", *values)


MATRIX = words(1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30)


def header(width, height, count, poster, media_offset):
    entry = atom(b"raw ", bytes(6), struct.pack(">H", 1), bytes(16), struct.pack(">HH", width, height),
                 words(72 << 16, 72 << 16, 0), struct.pack(">H", 1), bytes(32), struct.pack(">HH", 24, 0xFFFF))
    table = atom(b"stbl", atom(b"stsd", words(0, 1), entry), atom(b"stts", words(0, 1, count, 1)),
                 atom(b"stsc", words(0, 1, 1, count, 1)), atom(b"stsz", words(0, width * height * 3, count)),
                 atom(b"stco", words(0, 1, media_offset)))
    media = atom(b"mdia", atom(b"mdhd", bytes(12), words(FRAMES_PER_SECOND, count, 0)),
                 atom(b"hdlr", bytes(8), b"vide", bytes(13)),
                 atom(b"minf", atom(b"vmhd", words(1, 0, 0)), table))
    track = atom(b"trak", atom(b"tkhd", words(7, 0, 0, 1, 0, count), bytes(16), MATRIX,
                               words(width << 16, height << 16)), media)
    return atom(b"moov", atom(b"mvhd", bytes(12), words(FRAMES_PER_SECOND, count, 1 << 16), b"\1\0", bytes(10),
                              MATRIX, bytes(8), words(poster), bytes(12), words(2)), track)


def movie(width, height, colours, poster=0):
    """A movie with a frame of each colour; the poster frame is counted from 0."""
    kind = atom(b"ftyp", b"qt  ", bytes(4), b"qt  ")
    length = len(header(width, height, len(colours), poster, 0))
    moov = header(width, height, len(colours), poster, len(kind) + length + 8)
    return kind + moov + atom(b"mdat", *(bytes(colour[:3]) * (width * height) for colour in colours))
