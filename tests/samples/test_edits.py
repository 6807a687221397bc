"""Edits real music and movies with `kxmd` and holds the results against what they were.

Usage: test_edits.py KXMD SAMPLES [OPERATION...]

The operations are "cover remove", "cover add" and "clean"; without any, all three.

Covers are added and removed and movies cleaned, with --force and without. By the word of ffprobe the same
packets must come out, and by our own reading of the atoms each offset must lead to the same bytes: exactly
where the command does not warn. Byte by byte nothing but the covers, sizes and offsets may have changed,
and ffprobe and mutagen must see the tags, and the cover that was added. Exits with 77, which ctest takes
for skipped, when there are no samples or no ffmpeg.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import made_media
import media_atoms

try:
    import mutagen
    import mutagen.id3
    import mutagen.mp4
except ImportError:
    mutagen = None

SKIPPED = 77
# A FLAC file after an ID3v2 tag: others see the tags of the FLAC only, and no cover before it.
UNLIKE_OTHERS = {"devsnd-tinytag__with_id3_header.flac"}
LARGEST = 600 << 10  # Larger samples say nothing new.


def packets(path):
    """The packets of each stream that is no cover, as ffprobe reads them. Without their times, which some
    programs correct by a tag about the encoder's delay."""
    arguments = ["ffprobe", "-v", "quiet", "-show_streams", "-show_packets", "-show_data_hash", "md5",
                 "-show_entries", "stream=index:stream_disposition=attached_pic:"
                                  "packet=stream_index,data_hash", "-of", "json", str(path)]
    output = subprocess.run(arguments, check=False, stdout=subprocess.PIPE).stdout
    try:
        report = json.loads(output)
    except ValueError:
        return None
    streams = {stream["index"]: [] for stream in report.get("streams", [])
               if not stream.get("disposition", {}).get("attached_pic")}
    for packet in report.get("packets", []):
        if packet["stream_index"] in streams:
            streams[packet["stream_index"]].append(packet.get("data_hash"))
    return list(streams.values())


def tags_of(path):
    """The tags that mutagen reads, without covers; None where it cannot."""
    if mutagen is None:
        return None
    tags = mutagen_tags(path)
    if tags is None:
        return None
    return {key: str(value) for key, value in tags.items() if not key.startswith("APIC") and key != "covr"}


def mutagen_tags(path):
    """All tags, with those before what mutagen does not know; None where there are none."""
    for read in (lambda: mutagen.File(path).tags, lambda: mutagen.id3.ID3(path)):
        try:
            tags = read()
        except Exception:  # Whatever it makes of a damaged file.
            continue
        if tags is not None:
            return tags
    return None


def cover_of(path):
    """The bytes of the first cover that mutagen reads; None where it cannot."""
    if mutagen is None:
        return None
    tags = mutagen_tags(path)
    if isinstance(tags, mutagen.mp4.MP4Tags):
        return bytes(tags["covr"][0]) if tags.get("covr") else None
    pictures = tags.getall("APIC") if isinstance(tags, mutagen.id3.ID3) else []
    return pictures[0].data if pictures else None


def sound_after_tag(data):
    """What lies after an ID3v2 tag, whose size is that of its frames and padding."""
    size = sum((byte & 0x7F) << shift for byte, shift in zip(data[6:10], (21, 14, 7, 0)))
    return data[10 + size:]


class Edits:
    """The edits of one file, and what was wrong with them."""

    def __init__(self, kxmd, source, picture, folder):
        self.kxmd, self.source, self.picture = kxmd, source, picture
        self.output = pathlib.Path(folder) / ("edited" + source.suffix)
        self.before = source.read_bytes()
        self.is_movie = self.before[4:8] in (b"ftyp", b"moov")
        self.problems, self.answers = [], {}

    def blame(self, operation, text):
        self.problems.append(f"{self.source.name}: {operation}: {text}")

    def run(self, *arguments):
        """What the command says of an edit; the file is written where it says that all went well."""
        self.output.unlink(missing_ok=True)
        result = subprocess.run(
            [self.kxmd, "-q", *arguments, "--json", "-o", str(self.output), str(self.source),
             *([str(self.picture)] if "add" in arguments else [])],
            check=False, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8",
            errors="replace")
        if result.returncode not in (0, 1):
            self.blame(arguments[0], f"ended with {result.returncode}")
        return json.loads(result.stdout) if result.stdout.strip() else {"ok": False}

    def check(self, operation, expected):
        """One operation. `expected` makes of the file before what the one after is compared with."""
        forced = self.run(*operation, "--force")
        name = " ".join(operation)
        if not self.output.exists():
            self.answers[name] = "refused"
            return
        after = self.output.read_bytes()
        if after == self.before:
            self.answers[name] = "unchanged"
        survives = self.survives(after)
        polite = self.run(*operation)
        is_allowed = self.output.exists()
        politely_edited = self.output.read_bytes() if is_allowed else None
        if not is_allowed and self.is_left_uncleaned(operation, after):
            return  # Refused for its sake, not for that of the media.
        harm = self.harm(name, after, expected) if survives and after != self.before else []
        if survives and not is_allowed and not harm and self.is_read_by_others():
            self.blame(name, f"is refused without need: {polite.get('reason')}")
        if is_allowed and not survives:
            self.blame(name, "the media does not survive")
        if is_allowed:
            self.problems += harm
        self.answers.setdefault(name, "safe" if is_allowed else "dangerous")
        if forced.get("bytesAfter") != len(after):
            self.blame(name, "reports another size")
        if is_allowed and politely_edited != after:
            self.blame(name, "--force makes another file")

    def is_left_uncleaned(self, operation, after):
        return operation == ("clean",) and after == self.before and bool(media_atoms.user_data(self.before))

    def is_read_by_others(self):
        """Whether there are others to tell if the tags of music survive."""
        return self.is_movie or tags_of(self.source) is not None

    def harm(self, name, after, expected):
        """What is wrong with an edited file whose media is as it was."""
        self.output.write_bytes(after)
        problems, self.problems = self.problems, []
        expected(name, after)
        harm, self.problems = self.problems, problems
        return harm

    def survives(self, after):
        if self.is_movie and media_atoms.places_named(self.before) != media_atoms.places_named(after):
            return False
        self.output.write_bytes(after)
        return self.packets_before() == packets(self.output)

    def packets_before(self):
        if not hasattr(self, "known_packets"):
            self.known_packets = packets(self.source)
        return self.known_packets

    def expect_tags(self, name):
        before, after = tags_of(self.source), tags_of(self.output)
        if before is not None and before != after:
            self.blame(name, "other tags")

    def expect_no_cover(self, name, after):
        self.expect_tags(name)
        if self.is_movie:
            if after != media_atoms.without(self.before, media_atoms.covers(self.before)):
                self.blame(name, "other bytes have changed")
        elif sound_after_tag(after) != sound_after_tag(self.before):
            self.blame(name, "the sound has changed")

    def expect_cover(self, name, after):
        self.expect_tags(name)
        if self.is_movie:
            bare = media_atoms.without(self.before, media_atoms.covers(self.before))
            if media_atoms.without(after, media_atoms.covers(after)) != bare:
                self.blame(name, "other bytes have changed")
            if len(media_atoms.covers(after)) != 1:
                self.blame(name, "not one cover")
        elif sound_after_tag(after) != sound_after_tag(self.before):
            self.blame(name, "the sound has changed")
        cover = cover_of(self.output)
        if cover is not None and not cover.startswith(b"\xff\xd8"):
            self.blame(name, "the cover is no JPEG")
        if cover is None and tags_of(self.output) is not None:
            self.blame(name, "no cover for mutagen")
        if not self.has_attached_picture():
            self.blame(name, "no cover for ffprobe")

    def has_attached_picture(self):
        arguments = ["ffprobe", "-v", "quiet", "-show_entries", "stream_disposition=attached_pic",
                     "-of", "csv=p=0", str(self.output)]
        output = subprocess.run(arguments, check=False, stdout=subprocess.PIPE, encoding="utf-8").stdout
        return "1" in output or not self.packets_before()

    def expect_clean(self, name, after):
        if self.is_movie and media_atoms.user_data(after):
            self.blame(name, "user data is left")


def edit(kxmd, source, picture, wanted):
    """The edits of one file: what was wrong, and what the command answered."""
    with tempfile.TemporaryDirectory() as folder:
        edits = Edits(kxmd, source, picture, folder)
        operations = [(("cover", "remove"), edits.expect_no_cover),
                      (("cover", "add"), edits.expect_cover)]
        if edits.is_movie:
            operations.append((("clean",), edits.expect_clean))
        for operation, expected in operations:
            if wanted and " ".join(operation) not in wanted:
                continue
            try:
                edits.check(operation, expected)
            except (AssertionError, ValueError, OverflowError) as error:
                edits.blame(" ".join(operation), f"is not what we make of it: {error!r}")
        if mutagen and source.name in UNLIKE_OTHERS and "cover add" in edits.answers:
            if not edits.problems:
                edits.blame("cover add", "is like others now")
            else:
                edits.problems = []
        return edits.problems, edits.answers


def media_in(samples):
    """The music and movies among the samples, each content once."""
    seen = set()
    for path in sorted(samples.rglob("*")):
        if not path.is_file() or path.stat().st_size > LARGEST:
            continue
        content = path.read_bytes()
        digest = hashlib.sha256(content).digest()
        if digest not in seen and (content[:3] == b"ID3" or content[4:8] in (b"ftyp", b"moov")):
            seen.add(digest)
            yield path


def main(kxmd, samples_path, *wanted):
    samples = pathlib.Path(samples_path)
    if not samples.is_dir() or not shutil.which("ffmpeg") or not shutil.which("ffprobe"):
        print("no samples or no ffmpeg: skipped")
        return SKIPPED
    if mutagen is None:
        print("without mutagen: tags are read by ffprobe only")
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        picture = folder / "cover.png"
        subprocess.run([*made_media.FFMPEG, *made_media.MOVING, "-frames:v", "1", str(picture)],
                       check=True)
        files = [*made_media.make(folder), *media_in(samples)]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            results = list(pool.map(lambda path: edit(kxmd, path, picture, wanted), files))
    problems = [problem for found, _ in results for problem in found]
    answers = {}
    for _, found in results:
        for operation, answer in found.items():
            answers.setdefault(operation, {}).setdefault(answer, 0)
            answers[operation][answer] += 1
    print(*problems, sep="\n")
    for operation, counts in sorted(answers.items()):
        print(operation, counts)
    print(f"{len(files)} files, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
