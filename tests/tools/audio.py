"""Encodes media with the ffmpeg command, and tells by ffprobe what is in a file."""

import hashlib
import json
import os
import shutil
import struct
import subprocess
import tempfile
import zlib

AFCONVERT = os.environ["KXMD_AFCONVERT"]
MADE_MEDIA = os.environ["KXMD_MADE_MEDIA"]

TAGS = {"title": "Träume", "artist": "The Oscillators", "album": "Sines", "album_artist": "Various Waves",
        "track": "3/9", "disc": "1/2"}


def encode(path, *arguments):
    """Runs ffmpeg with these arguments; the file at `path` is the result, which is returned. What any test has
    encoded before is copied: to encode takes longer than most tests."""
    extension = os.path.splitext(path)[1]
    kept = os.path.join(MADE_MEDIA, key_of(arguments) + extension)
    if not os.path.exists(kept):
        with tempfile.TemporaryDirectory(dir=MADE_MEDIA) as folder:
            made = os.path.join(folder, "made" + extension)
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *arguments, made], check=True,
                           stdin=subprocess.DEVNULL)
            os.replace(made, kept)
    return shutil.copyfile(kept, path)


def key_of(arguments):
    """What tells an encoding from others: its arguments, or what is in the files that they name."""
    digest = hashlib.sha1()
    for argument in arguments:
        if os.path.isfile(argument):
            with open(argument, "rb") as file:
                digest.update(file.read())
        else:
            digest.update(argument.encode())
        digest.update(b"\0")
    return digest.hexdigest()


def silent_ape(tags, seconds=1, is_damaged=False):
    """A file of Monkey's Audio 3.99, which ffmpeg reads and cannot write: one frame that says that it is silent."""
    rate, channels, frame_length = 44100, 2, 73728 * 4
    blocks = seconds * rate
    assert blocks <= frame_length
    has_flags, is_silent = 1 << 31, 3
    checksum = zlib.crc32(bytes(2 * channels * blocks)) >> 1 ^ is_damaged
    frame = struct.pack("<II", checksum | has_flags, is_silent) + bytes(8)  # What the range coder begins with.
    makes_wav_header = 0x20
    header = struct.pack("<HHIIIHHI", 1000, makes_wav_header, frame_length, blocks, 1, 16, channels, rate)
    descriptor_length, seek_table_length = 52, 4
    seek_table = struct.pack("<I", descriptor_length + len(header) + seek_table_length)
    descriptor = b"MAC " + struct.pack("<HHIIIIIII", 3990, 0, descriptor_length, len(header), len(seek_table), 0,
                                       len(frame), 0, 0) + bytes(16)
    items = b"".join(struct.pack("<II", len(text.encode()), 0) + key.encode() + b"\0" + text.encode()
                     for key, text in tags.items())
    footer = b"APETAGEX" + struct.pack("<IIII", 2000, len(items) + 32, len(tags), 0) + bytes(8)
    return descriptor + header + seek_table + frame + items + footer


def tone(seconds=1, rate=44100, layout="stereo"):
    """The arguments for an input: a sine, as loud in each channel."""
    return ("-f", "lavfi", "-i", f"sine=frequency=440:sample_rate={rate}:duration={seconds},"
            f"aformat=channel_layouts={layout}")


def pattern(width, height):
    return ("-f", "lavfi", "-i", f"testsrc2=size={width}x{height}:duration=0.04:rate=25")


def tag_arguments(tags):
    return [word for key, value in tags.items() for word in ("-metadata", f"{key}={value}")]


def attached(picture, *source):
    """The arguments for the audio of `source` with a picture file as its cover."""
    return (*source, "-i", picture, "-map", "0:a", "-map", "1:v", "-c:v", "copy",
            "-disposition:v:0", "attached_pic")


def probe(path):
    """What ffprobe knows: the format, the audio stream, and the cover's or None."""
    found = json.loads(subprocess.run(
        ["ffprobe", "-v", "error", "-of", "json", "-show_format", "-show_streams", path],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout)
    streams = {stream["codec_type"]: stream for stream in found["streams"]}
    return found["format"], streams["audio"], streams.get("video")


def samples(path, rate=44100):
    """The decoded audio of one channel, each sample from -1 to 1."""
    pcm = subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:a", "-ac", "1", "-ar", str(rate),
         "-f", "f32le", "-"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout
    return struct.unpack(f"<{len(pcm) // 4}f", pcm)


def cover_bytes(path):
    """The attached picture as it is stored."""
    return subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:v", "-c", "copy", "-f", "image2pipe", "-"],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout


def afconvert(*arguments, **options):
    """Runs the converter: exit status, and the lines on standard error."""
    finished = subprocess.run([AFCONVERT, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=100, **options)
    return finished.returncode, finished.stderr.decode("utf-8", "surrogateescape").splitlines()


def convert(source, target, **options):
    """The same with the arguments that the library's processor gives."""
    return afconvert("-f", "m4af", "-d", "aac", "-b", "256000", source, target, **options)
