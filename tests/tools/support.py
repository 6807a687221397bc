"""Runs the command on files that are built piece by piece, so that a test shows what its bytes mean."""

import json
import os
import resource
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

COMMAND = os.environ["KXMD_COMMAND"]


class Result:
    def __init__(self, finished):
        self.status = finished.returncode
        self.out = finished.stdout
        self.errors = finished.stderr.decode("utf-8", "surrogateescape").splitlines()

    def objects(self):
        """Each line of the output as JSON, which insists on UTF-8."""
        return [json.loads(line) for line in self.out.decode("utf-8").splitlines()]


def run(*arguments, stack=None, **options):
    """Runs the command; `stack` is the limit of its stack in KiB."""
    def limit_stack():
        resource.setrlimit(resource.RLIMIT_STACK, (stack * 1024, stack * 1024))

    options.setdefault("stdout", subprocess.PIPE)
    if stack:
        options["preexec_fn"] = limit_stack
    return Result(subprocess.run(
        [COMMAND, *arguments], stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=100, **options))


def preloading(library, environment=os.environ):
    """An environment that changes what the system does for a program, by the library that a variable names,
    besides those that the environment has already."""
    options = environment.get("ASAN_OPTIONS", "")
    libraries = [environment["LD_PRELOAD"]] if environment.get("LD_PRELOAD") else []
    return {**environment, "LD_PRELOAD": ":".join([*libraries, os.environ[library]]),
            "ASAN_OPTIONS": options + ":verify_asan_link_order=0"}


def on_card(environment=os.environ):
    """An environment in which files lie on a phone's card, whose file system knows no files without a name and no
    permissions."""
    return preloading("KXMD_PHONE_CARD", environment)


class CommandTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kxmd-tests-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        path = self.path(name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def assert_usage_error(self, result):
        self.assertEqual(result.status, 2)
        self.assertEqual(result.out, b"")
        self.assertTrue(result.errors[0].startswith("kxmd: "), result.errors)

    def assert_failure(self, result, path, *problems):
        """Ended with 1 and one line for the path; the problem is one of those given, if any is."""
        self.assertEqual(result.status, 1)
        self.assertEqual(len(result.errors), 1, result.errors)
        start = f"kxmd: {path}: "
        self.assertTrue(result.errors[0].startswith(start), result.errors)
        if problems:
            self.assertIn(result.errors[0][len(start):], problems)


# MP4 (ISO/IEC 14496-12).

def atom(kind, *payload):
    content = b"".join(payload)
    return struct.pack(">I", len(content) + 8) + kind + content


def tag_atom(kind, text):
    return atom(kind, atom(b"data", struct.pack(">II", 1, 0), text.encode()))


def user_data(*tags):
    handler = atom(b"hdlr", bytes(8), b"mdir", bytes(13))
    return atom(b"udta", atom(b"meta", bytes(4), handler, atom(b"ilst", *tags)))


def track(handler, entry):
    table = atom(b"stbl",
                 atom(b"stsd", bytes(4), struct.pack(">I", 1), entry),
                 atom(b"stco", bytes(4), struct.pack(">II", 1, 0)))
    media_header = atom(b"vmhd", bytes(12)) if handler == b"vide" else atom(b"smhd", bytes(8))
    return atom(b"trak", atom(b"mdia",
                              atom(b"hdlr", bytes(8), handler, bytes(13)),
                              atom(b"minf", media_header, table)))


def video_entry(width, height, profile, level):
    configuration = atom(b"avcC", bytes([1, profile, 0, level, 0xFF, 0xE0, 0]))
    return atom(b"avc1", bytes(6), struct.pack(">H", 1), bytes(16),
                struct.pack(">HH", width, height), bytes(50), configuration)


def sound_entry(channels):
    return atom(b"mp4a", bytes(6), struct.pack(">H", 1), bytes(8),
                struct.pack(">HH", channels, 16), bytes(4), struct.pack(">I", 8000 << 16))


def mp4(*moov):
    return atom(b"ftyp", b"M4A ", bytes(4), b"isom") + atom(b"moov", *moov)


def nested(depth, kind=b"moov"):
    """Containers inside each other, as deep as the file is long."""
    return b"".join(struct.pack(">I", (depth - level) * 8) + kind for level in range(depth))


# ID3v2.

def frame(identifier, body, flags=0):
    return identifier + struct.pack(">IH", len(body), flags) + body


def text_frame(identifier, text):
    return frame(identifier, b"\x00" + text.encode("latin-1"))


def id3v23(*frames, flags=0):
    """A tag of version 2.3, with padding for readers that leave out a tag's last ten bytes."""
    content = b"".join(frames) + bytes(32)
    size = len(content)
    sync_safe = bytes((size >> shift) & 0x7F for shift in (21, 14, 7, 0))
    return b"ID3\x03\x00" + bytes([flags]) + sync_safe + content


def png(width, height):
    """The start of a PNG: enough to be measured."""
    header = b"IHDR" + struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + struct.pack(">I", 13) + header + struct.pack(">I", zlib.crc32(header))

