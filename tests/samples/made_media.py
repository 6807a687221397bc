"""Music and movies of many layouts, made by ffmpeg and by hand."""

import subprocess

import media_atoms

FFMPEG = ["ffmpeg", "-nostdin", "-v", "error", "-y"]
TONE = ["-f", "lavfi", "-i", "sine=duration=3:sample_rate=44100"]
MOVING = ["-f", "lavfi", "-i", "testsrc=duration=3:size=64x48:rate=10"]
NAMED = ["-metadata", "title=Title", "-metadata", "artist=Artist", "-fflags", "+bitexact"]
SOUND = ["-c:a", "aac", "-b:a", "32k"]
PICTURE = ["-c:v", "mpeg4", "-b:v", "100k"]
FRAGMENTS = "frag_keyframe+empty_moov"

# By name: what goes in, how it is encoded, and flags of the muxer.
ENCODED = {
    "last.m4a": (TONE, SOUND, None),
    "first.m4a": (TONE, SOUND, "faststart"),
    "tracks-last.mp4": (MOVING + TONE, PICTURE + SOUND, None),
    "tracks-first.mp4": (MOVING + TONE, PICTURE + SOUND, "faststart"),
    "tracks-first.mov": (MOVING + TONE, PICTURE + SOUND, "faststart"),
    "tracks-last.mov": (MOVING + TONE, PICTURE + SOUND, None),
    "first.3gp": (MOVING, PICTURE, "faststart"),
    "explicit-base.mp4": (MOVING + TONE, PICTURE + SOUND, FRAGMENTS + "+skip_trailer"),
    "explicit-base-index.mp4": (MOVING + TONE, PICTURE + SOUND, FRAGMENTS),
    "default-base.mp4": (MOVING + TONE, PICTURE + SOUND,
                         FRAGMENTS + "+default_base_moof+skip_trailer"),
    "default-base-index.mp4": (MOVING + TONE, PICTURE + SOUND, FRAGMENTS + "+default_base_moof"),
    "implied-base.mp4": (MOVING + TONE, PICTURE + SOUND,
                         FRAGMENTS + "+omit_tfhd_offset+skip_trailer"),
    "sidx.mp4": (MOVING, PICTURE, FRAGMENTS + "+dash+skip_trailer"),
    "global-sidx.mp4": (MOVING, PICTURE,
                        FRAGMENTS + "+default_base_moof+global_sidx+skip_trailer"),
    "fragments-after-media.mp4": (MOVING + TONE, PICTURE + SOUND, "frag_keyframe+skip_trailer"),
    "tone.mp3": (TONE, ["-c:a", "libmp3lame", "-b:a", "64k", "-id3v2_version", "3"], None),
    "tone-4.mp3": (TONE, ["-c:a", "libmp3lame", "-b:a", "64k", "-id3v2_version", "4"], None),
}


def encode(folder):
    """The encoded files; a codec that ffmpeg does not have leaves its files out."""
    for name, (sources, codecs, flags) in ENCODED.items():
        path = folder / name
        options = ["-movflags", flags] if flags else []
        arguments = [*FFMPEG, *sources, *NAMED, *codecs, *options, str(path)]
        if subprocess.run(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0:
            yield path


def atom(kind, *payload):
    content = b"".join(payload)
    return (len(content) + 8).to_bytes(4, "big") + kind + content


def rebuilt(data, parent, replace):
    """The atoms of a part of a file, each as it is or as `replace` has it."""
    pieces = []
    for child in parent:
        new = replace(child)
        if new is None and child.children:
            head = data[child.start + 8:child.children[0].start]
            new = atom(child.kind, head, rebuilt(data, child.children, replace))
        pieces.append(data[child.start:child.end] if new is None else new)
    return b"".join(pieces)


def with_chunk_offsets(data, offset_of, wide=False):
    """The atom "moov" with other chunk offsets, by what they were; of 64 bits if `wide`."""
    fields = {table.start: entries for table, entries in media_atoms.offset_tables(data)}

    def replace(child):
        if child.start not in fields:
            return None
        entries = [offset_of(value).to_bytes(8 if wide else 4, "big")
                   for _, _, value in fields[child.start]]
        count = len(entries).to_bytes(4, "big")
        return atom(b"co64" if wide else b"stco", bytes(4), count, *entries)

    moov = [a for a in media_atoms.atoms_in(data) if a.kind == b"moov"]
    return rebuilt(data, moov, replace)


def top_level(data):
    """The payload's range of the media, and the file type atom."""
    atoms = {a.kind: a for a in media_atoms.atoms_in(data)}
    return atoms[b"mdat"], data[atoms[b"ftyp"].start:atoms[b"ftyp"].end]


def split_movie(data, second_half_first):
    """The file as media, movie, media; the chunks of the first half of the media in front or after."""
    media, ftyp = top_level(data)
    values = sorted(v for _, fields in media_atoms.offset_tables(data) for _, _, v in fields)
    middle = values[len(values) // 2]
    halves = [data[media.body:middle], data[middle:media.end]]
    front, back = halves[::-1] if second_half_first else halves
    moov_size = len(with_chunk_offsets(data, lambda value: value))
    front_at = len(ftyp) + 8
    back_at = front_at + len(front) + moov_size + 8

    def offset_of(value):
        in_second = value >= middle
        start = front_at if in_second == second_half_first else back_at
        return start + value - (middle if in_second else media.body)

    return ftyp + atom(b"mdat", front) + with_chunk_offsets(data, offset_of) + atom(b"mdat", back)


def wide_tables(data, is_first):
    """The file with 64-bit tables, the movie before the media or after it."""
    media, ftyp = top_level(data)
    payload = data[media.body:media.end]
    moov_size = len(with_chunk_offsets(data, lambda value: value, wide=True))
    start = len(ftyp) + 8 + (moov_size if is_first else 0)
    moov = with_chunk_offsets(data, lambda value: value - media.body + start, wide=True)
    pieces = (moov, atom(b"mdat", payload)) if is_first else (atom(b"mdat", payload), moov)
    return ftyp + b"".join(pieces)


def wide_media(data):
    """The file with a 64-bit size of its media, after the movie."""
    media, ftyp = top_level(data)
    payload = data[media.body:media.end]
    start = len(ftyp) + len(with_chunk_offsets(data, lambda value: value)) + 16
    moov = with_chunk_offsets(data, lambda value: value - media.body + start)
    header = (1).to_bytes(4, "big") + b"mdat" + (len(payload) + 16).to_bytes(8, "big")
    return ftyp + moov + header + payload


def one_table_wide(data):
    """The movie before the media, with 64-bit offsets in the last track only."""
    media, ftyp = top_level(data)
    tables = list(media_atoms.offset_tables(data))

    def moov_for(shift):
        def replace(child):
            for table, fields in tables:
                if child.start == table.start:
                    width, kind = (8, b"co64") if table is tables[-1][0] else (4, b"stco")
                    entries = [(value + shift).to_bytes(width, "big") for _, _, value in fields]
                    return atom(kind, bytes(4), len(entries).to_bytes(4, "big"), *entries)
            return None
        return rebuilt(data, [a for a in media_atoms.atoms_in(data) if a.kind == b"moov"], replace)

    start = len(ftyp) + len(moov_for(0)) + 8
    return ftyp + moov_for(start - media.body) + atom(b"mdat", data[media.body:media.end])


def make(folder):
    """Every file, written into the folder."""
    paths = list(encode(folder))
    source = folder / "tracks-last.mp4"
    if source not in paths:
        return paths
    data = source.read_bytes()
    by_hand = {
        "media-movie-media.mp4": split_movie(data, False),
        "media-movie-media-turned.mp4": split_movie(data, True),
        "co64-first.mp4": wide_tables(data, True),
        "co64-last.mp4": wide_tables(data, False),
        "co64-one.mp4": one_table_wide(data),
        "large-media.mp4": wide_media(data),
        "open-end.mp4": open_end(data),
    }
    for name, content in by_hand.items():
        (folder / name).write_bytes(content)
        paths.append(folder / name)
    return paths


def open_end(data):
    """The movie before media that reaches to the end of the file."""
    media, ftyp = top_level(data)
    start = len(ftyp) + len(with_chunk_offsets(data, lambda value: value)) + 8
    moov = with_chunk_offsets(data, lambda value: value - media.body + start)
    return ftyp + moov + bytes(4) + b"mdat" + data[media.body:media.end]
