"""Holds `kxmd info --json` against what other programs say of real media files.

Usage: test_facts.py KXMD SAMPLES

SAMPLES holds the media and facts.json, what ffprobe, exiftool and mutagen report of them. Every field in
which we differ from all of them is listed in differences.json with its reason; the list is exact: a
difference that is not in it fails the test, and so does one that is gone. Exits with 77, which ctest
takes for skipped, when there are no samples.
"""

import json
import pathlib
import subprocess
import sys

SKIPPED = 77

# Our key, then its names in mutagen (ID3v2, MP4), exiftool (ID3v2, MP4) and ffprobe.
TAGS = {
    "Name": ("TIT2", "\xa9nam", "Title", "Title", "title"),
    "Artist": ("TPE1", "\xa9ART", "Artist", "Artist", "artist"),
    "Album": ("TALB", "\xa9alb", "Album", "Album", "album"),
    "Album Artist": ("TPE2", "aART", "Band", "AlbumArtist", "album_artist"),
}
MP3, MP4 = 1, 2  # metaType

VIDEO_CODECS = {"mpeg4": 6, "h264": 7, "h263": 8}
AUDIO_CODECS = {"amr_nb": 2, "amr_wb": 3, "alac": 4, "aac": 5}
AVC_PROFILES = {
    "Constrained Baseline": 66, "Baseline": 66, "Main": 77, "Extended": 88, "High": 100,
    "High 10": 110, "High 4:2:2": 122,
}
AAC_PROFILES = {"Main": 1, "LC": 2, "SSR": 3, "LTP": 4, "HE-AAC": 5}


def first_text(value):
    """The first text of a value that may be a list of values."""
    while isinstance(value, list):
        value = value[0] if value else None
    return None if value is None else str(value)


def texts_of_others(meta_type, key, facts):
    """What the other programs say that one of our tags is."""
    id3, mp4, exiftool_id3, exiftool_mp4, ffprobe = TAGS[key]
    mutagen_tags = facts.get("mutagen", {}).get("tags", {})
    exiftool = facts.get("exiftool", {})
    if meta_type == MP3:
        texts = [mutagen_tags.get(id3)]
        texts += [exiftool.get(f"ID3v2_{version}:{exiftool_id3}") for version in (2, 3, 4)]
    else:
        texts = [mutagen_tags.get(mp4), exiftool.get(f"ItemList:{exiftool_mp4}")]
    texts.append(facts.get("ffprobe", {}).get("tags", {}).get(ffprobe))
    return [text for text in map(first_text, texts) if text is not None]


def streams_of(facts, kind):
    """ffprobe's streams of a kind, without the covers that it shows as video."""
    streams = facts.get("ffprobe", {}).get("streams", [])
    return [s for s in streams if s["codec_type"] == kind and not s.get("attached_pic")
            and s.get("codec_name") not in ("mjpeg", "png", "bmp")]


def video_in_our_words(stream):
    codec = VIDEO_CODECS.get(stream.get("codec_name"), 0)
    size = [stream.get("width"), stream.get("height")] if codec else [0, 0]
    profile = AVC_PROFILES.get(stream.get("profile")) if codec == 7 else None
    return [codec, *size, profile, stream.get("level") if profile else None]


def our_video(record, other):
    """Our record, with only those of its fields that the other program knows."""
    result = [record["codec"], record["width"], record["height"], record["profile"],
              record["profileLevel"]]
    return [ours if theirs is not None else None for ours, theirs in zip(result, other)]


def audio_in_our_words(stream):
    codec = AUDIO_CODECS.get(stream.get("codec_name"), 0)
    channels = stream.get("channels") if codec == 5 else None
    profile = AAC_PROFILES.get(stream.get("profile")) if codec == 5 else None
    return [codec, channels, profile]


def our_audio(record, other):
    result = [record["codec"], record["audioChannels"], record["profile"]]
    return [ours if theirs is not None else None for ours, theirs in zip(result, other)]


def differing_streams(ours, others, in_our_words, our_fields):
    if len(ours) != len(others):
        return True
    for record, stream in zip(ours, others):
        other = in_our_words(stream)
        if our_fields(record, other) != other:
            return True
    return False


def is_tagged_mp3_or_mp4(facts):
    """Whether another program knows the file as MP4, or reads an ID3v2 tag in it."""
    return (facts.get("ffprobe", {}).get("format", "").startswith("mov")
            or any(name.startswith("ID3v2_") for name in facts.get("exiftool", {})))


def differing_fields(info, facts):
    """The fields of one file in which we agree with none of the others."""
    if info["size"] != facts["bytes"]:
        yield "size"
    if info["metaType"] not in (MP3, MP4):
        if is_tagged_mp3_or_mp4(facts):
            yield "type"
        return
    for key in TAGS:
        others = texts_of_others(info["metaType"], key, facts)
        ours = info["tags"].get(key)
        if (ours is not None or others) and ours not in others:
            yield key
    if info["metaType"] == MP4:
        if differing_streams(info["video"], streams_of(facts, "video"), video_in_our_words, our_video):
            yield "video"
        if differing_streams(info["audio"], streams_of(facts, "audio"), audio_in_our_words, our_audio):
            yield "audio"


def read_infos(kxmd, samples, names):
    paths = [str(samples / name) for name in names]
    output = subprocess.run([kxmd, "-q", "info", "--json", *paths], check=True,
                            stdout=subprocess.PIPE, encoding="utf-8").stdout
    return [json.loads(line) for line in output.splitlines()]


def main(kxmd, samples_path):
    samples = pathlib.Path(samples_path)
    if not (samples / "facts.json").is_file():
        print("no samples: skipped")
        return SKIPPED
    facts = json.loads((samples / "facts.json").read_text())["files"]
    names = sorted(facts)
    infos = read_infos(kxmd, samples, names)
    found = {(name, field) for name, info in zip(names, infos)
             for field in differing_fields(info, facts[name])}

    listed = json.loads((pathlib.Path(__file__).parent / "differences.json").read_text())
    known = {(name, field) for group in listed for name, fields in group["files"].items()
             for field in fields}
    for name, field in sorted(found - known):
        print(f"differs without a reason: {name}: {field}")
    for name, field in sorted(known - found):
        print(f"listed, but does not differ: {name}: {field}")
    print(f"{len(names)} files, {len(found)} fields differ, {len(listed)} reasons")
    return 0 if found == known and len(infos) == len(names) else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
