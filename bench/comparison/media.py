"""Makes the files that are compared: real encoded media, and made ones that grow in one respect."""

import os
import shutil
import struct
import subprocess


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments], check=True)


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


def make_real_media(folder, made):
    """`made` is the folder of the files that bench/make-media makes."""
    os.makedirs(folder)
    for name in ("plain.mp3", "cover.mp3", "cover-moov-first.m4a"):
        shutil.copy(os.path.join(made, name), folder)
    tags = ["-metadata", "title=A Film", "-metadata", "artist=Somebody", "-metadata", "album=Films"]
    video = ["-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "64k"]
    short = os.path.join(folder, "movie.mp4")
    ffmpeg("-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=30", "-f", "lavfi", "-i",
           "sine=frequency=440:duration=30", *tags, *video, short)
    ffmpeg("-stream_loop", "239", "-i", short, "-map_metadata", "0", "-c", "copy", os.path.join(folder, "film.mp4"))


def atom(kind, *contents):
    data = b"".join(contents)
    return struct.pack(">I4s", 8 + len(data), kind) + data


def movie_of_atoms(count):
    """A movie of about so many atoms, nine in each track."""
    handler = atom(b"hdlr", bytes(8), b"soun", bytes(13))
    tables = b"".join(atom(kind, bytes(8)) for kind in (b"stsd", b"stts", b"stsc", b"stco"))
    track = atom(b"trak", atom(b"mdia", handler, atom(b"minf", atom(b"smhd", bytes(8)), atom(b"stbl", tables))))
    return atom(b"ftyp", b"isom", bytes(4)) + atom(b"moov", track * max(count // 9, 1))


def syncsafe(number):
    return bytes((number >> shift) & 0x7F for shift in (21, 14, 7, 0))


def frame(identifier, content):
    return identifier + struct.pack(">I", len(content)) + bytes(2) + content


def song(frames):
    return b"ID3\x03\x00\x00" + syncsafe(len(frames)) + frames + b"\xFF\xFB\x90\x64" + bytes(413)


def song_of_frames(count):
    return song(frame(b"TIT2", b"\x00A Song") + frame(b"TXXX", b"\x00a\x00b") * count)


def song_of_tag(size):
    return song(frame(b"APIC", b"\x00image/jpeg\x00\x03\x00" + bytes(size)) + frame(b"TIT2", b"\x00A Song"))


def song_of_length(size, path):
    write(path, song(frame(b"TIT2", b"\x00A Song")))
    os.truncate(path, size)


GROWING = {  # What grows, by the name of its folder: its unit, its sizes, and how its files are made.
    "atoms": ("atoms in an MP4", [10**n for n in range(1, 7)], ".m4a", movie_of_atoms),
    "frames": ("frames in an ID3v2 tag", [10**n for n in range(1, 7)], ".mp3", song_of_frames),
    "tag": ("bytes of an ID3v2 tag", [10**n for n in range(3, 9)], ".mp3", song_of_tag),
    "length": ("bytes of an MP3", [10**n for n in range(4, 10)], ".mp3", None),
}


def make_growing_media(folder, what):
    _, sizes, extension, make = GROWING[what]
    os.makedirs(folder)
    for size in sizes:
        path = os.path.join(folder, f"{size}{extension}")
        if make:
            write(path, make(size))
        else:
            song_of_length(size, path)


def make_collection(folder, made, count):
    """So many songs in albums of ten, which are links to three files."""
    songs = [os.path.join(made, name) for name in ("plain.mp3", "cover.mp3", "cover-moov-first.m4a")]
    for number in range(count):
        album = os.path.join(folder, f"Album {number // 10:04}")
        os.makedirs(album, exist_ok=True)
        source = songs[number % len(songs)]
        os.link(source, os.path.join(album, f"{number % 10:02}{os.path.splitext(source)[1]}"))
