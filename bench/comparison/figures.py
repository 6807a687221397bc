"""Runs the comparison and writes its report: figures.py BUILD FOLDER."""

import datetime
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402, since it chooses its backend when it is imported

import media  # noqa: E402

ROUNDS = 9  # Of what is measured in turns; the median counts.
READERS = ("floor", "kxmd", "TagLib", "libid3tag", "libavformat")
FILES = {
    "plain.mp3": "MP3 without a cover",
    "cover.mp3": "MP3 with a cover",
    "cover-moov-first.m4a": "M4A with a cover",
    "movie.mp4": "movie of 30 s, tables last",
    "film.mp4": "film of 2 h, tables last",
}


class Comparison:
    def __init__(self, build, work):
        self.build = os.path.abspath(build)
        self.work = work
        self.kxmd = os.path.join(self.build, "bin/kxmd")
        self.made = os.path.join(self.build, "bench/media")
        os.environ["XDG_CACHE_HOME"] = os.path.join(work, "cache")

    def path(self, *names):
        return os.path.join(self.work, *names)

    # In this process: the readers.

    def reading(self, folder, rounds=ROUNDS, least=0.05):
        """Microseconds of processor time by reader and file, the medians of interleaved rounds."""
        program = os.path.join(self.build, "bench/comparison/kxmd_reading_comparison")
        result = subprocess.run(
            ["taskset", "-c", "1", program, folder, f"--benchmark_repetitions={rounds}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true",
             f"--benchmark_min_time={least}", "--benchmark_format=json"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        times = {}
        for entry in json.loads(result.stdout)["benchmarks"]:
            if entry["aggregate_name"] != "median":
                continue
            reader, file = entry["run_name"].split("/", 1)
            unit = {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}[entry["time_unit"]]
            times.setdefault(file, {})[reader] = entry["cpu_time"] * unit
        return times

    # Whole programs.

    def in_turns(self, commands, rounds=ROUNDS):
        """Seconds of wall time and of processor time of each command, the medians of the rounds."""
        spent = {name: [] for name in commands}
        for _ in range(rounds):
            for name, command in commands.items():
                start = time.monotonic()
                process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
                if process.returncode:
                    raise subprocess.CalledProcessError(process.returncode, command)
                spent[name].append((time.monotonic() - start, usage.ru_utime + usage.ru_stime))
        return {name: tuple(statistics.median(column) for column in zip(*times)) for name, times in spent.items()}

    def starting(self):
        song = os.path.join(self.made, "plain.mp3")
        tags = os.path.join(self.made, "cover-moov-first.m4a")
        return self.in_turns({
            "an empty program": [os.path.join(self.build, "bench/comparison/kxmd_empty_program")],
            "kxmd info": [self.kxmd, "info", song],
            "AtomicParsley -t": ["AtomicParsley", tags, "-t"],
            "id3v2 -l": ["id3v2", "-l", song],
            "mediainfo": ["mediainfo", song],
            "exiftool": ["exiftool", song],
            "mutagen-inspect": ["mutagen-inspect", song],
        }, 4 * ROUNDS)

    def in_python(self, folder):
        """Microseconds of processor time by module and file."""
        package = os.path.join(self.build, "lib/python3/dist-packages")
        script = os.path.join(os.path.dirname(__file__), "read_in_python.py")
        times = {}
        for file in ("plain.mp3", "cover-moov-first.m4a"):
            result = subprocess.run(["taskset", "-c", "1", sys.executable, "-B", script, os.path.join(folder, file)],
                                    env={**os.environ, "PYTHONPATH": package}, check=True, stdout=subprocess.PIPE)
            times[file] = json.loads(result.stdout)
        return times

    def whole_collection(self, count):
        """Files a second of programs that tell what is in all files of a folder."""
        folder = self.path("collection")
        media.make_collection(folder, self.made, count)
        times = self.in_turns({
            "kxmd info -r -j 1": [self.kxmd, "info", "--json", "-r", "-j", "1", folder],
            "kxmd info -r -j 2": [self.kxmd, "info", "--json", "-r", "-j", "2", folder],
        }, 5)
        times |= self.in_turns({
            "mediainfo": ["mediainfo", "--Output=JSON", folder],
            "exiftool -r": ["exiftool", "-json", "-r", folder],
        }, 1)
        return {name: count / wall for name, (wall, _) in times.items()}

    def thumbnails(self):
        """Seconds of programs that make a thumbnail of 256 pixels of 12 megapixels."""
        times = {}
        for name, options in (("photo.jpg", ["-q:v", "3"]), ("picture.png", [])):
            picture = self.path(name)
            media.ffmpeg("-f", "lavfi", "-i", "testsrc2=size=4000x3000,noise=alls=12", "-frames:v", "1", *options,
                         "-update", "1", picture)
            target = self.path("thumbnail.png")
            times[name] = self.in_turns({
                "kxmd thumbnail": [self.kxmd, "thumbnail", "--fit", "-s", "256x256", "-o", target, picture],
                "gdk-pixbuf-thumbnailer": ["gdk-pixbuf-thumbnailer", "-s", "256", picture, target],
                "vipsthumbnail": ["vipsthumbnail", "-s", "256", "-o", target, picture],
            }, 7)
        return times

    def editing(self):
        """Copies of the file's bytes in memory that an edit takes, by its name, and the milliseconds that encoding
        the picture does."""
        program = os.path.join(self.build, "bench/kxmd_bench_edits")
        result = subprocess.run(
            [program, "--benchmark_filter=^((add|remove|replace)Cover/|encodeCover)", "--benchmark_min_time=0.05",
             "--benchmark_format=json"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        edits = {"addCover": "insert a picture", "removeCover": "remove", "replaceCover": "replace by encoded bytes"}
        lengths = ("10 MB", "200 MB")
        ratios, encoding = {}, None
        for entry in json.loads(result.stdout)["benchmarks"]:
            if entry["name"] == "encodeCover":
                encoding = entry["real_time"]
                continue
            edit, _, length, *_ = entry["name"].split("/")
            ratios[f"{edits[edit]}, {entry['label']} filled up to {lengths[int(length)]}"] = entry["ratio"]
        return ratios, encoding


# The report.


def table(head, rows):
    lines = [head, ["---", *["---:"] * (len(head) - 1)], *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n"


def reading_table(times):
    rows = []
    for file, name in FILES.items():
        spent = times[file]
        cells = [f"{spent[reader]:.1f}" if reader in spent else "" for reader in READERS]
        floors = f"{spent['kxmd'] / spent['floor']:.2f}"
        best = min((time, reader) for reader, time in spent.items() if reader not in ("floor", "kxmd"))
        rows.append([name, *cells, floors, f"{best[0] / spent['kxmd']:.1f} x {best[1]}"])
    return table(["Processor time in µs a file", *READERS, "in floors", "best other"], rows)


def plot_growing(what, times, folder):
    unit, sizes, extension, _ = media.GROWING[what]
    pyplot.figure(figsize=(6, 4))
    for reader in READERS:
        spent = [times[f"{size}{extension}"].get(reader) for size in sizes]
        if None not in spent:
            pyplot.loglog(sizes, spent, marker="o", label=reader)
    pyplot.xlabel(unit)
    pyplot.ylabel("processor time in µs")
    pyplot.legend()
    pyplot.grid(alpha=0.3)
    pyplot.tight_layout()
    pyplot.savefig(os.path.join(folder, f"{what}.png"), dpi=110)
    pyplot.close()


def growth_table(growth):
    """What one atom or frame takes where there are very many, beside where there are many."""
    few, many = 10**3, 10**6
    rows = []
    for what, times in growth:
        if what not in ("atoms", "frames"):
            continue
        unit, _, extension, _ = media.GROWING[what]
        spent = [times[f"{count}{extension}"]["kxmd"] / count for count in (few, many)]
        rows.append([unit, *(f"{each * 1e3:.0f}" for each in spent), f"{spent[1] / spent[0]:.2f}"])
    return table(["ns for each of", "1,000", "1,000,000", "ratio"], rows)


def plot_bars(title, values, path):
    pyplot.figure(figsize=(6, 0.6 + 0.5 * len(values)))
    bars = pyplot.barh(list(values)[::-1], list(values.values())[::-1])
    pyplot.bar_label(bars, fmt="%.0f", padding=3)
    pyplot.xlabel(title)
    pyplot.margins(x=0.15)
    pyplot.tight_layout()
    pyplot.savefig(path, dpi=110)
    pyplot.close()


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        names = [line.split(":", 1)[1].strip() for line in file if line.startswith("model name")]
    return f"{len(names)} x {names[0]}" if names else platform.machine()


def kernel():
    return ".".join(platform.release().split(".")[:2])


def main(build, folder):
    pictures = os.path.join(folder, "performance")
    os.makedirs(pictures, exist_ok=True)
    work = tempfile.mkdtemp(prefix="kxmd-compare-", dir=os.path.abspath(build))  # On the disk of the sources, for links.
    try:
        comparison = Comparison(build, work)
        real = comparison.path("real")
        media.make_real_media(real, comparison.made)
        reading = comparison.reading(real)
        in_python = comparison.in_python(real)
        growth = []
        for what in media.GROWING:
            made = comparison.path(what)
            media.make_growing_media(made, what)
            times = comparison.reading(made, rounds=3, least=0.02)
            plot_growing(what, times, pictures)
            growth.append((what, times))
            shutil.rmtree(made)
        collection = comparison.whole_collection(20_000)
        plot_bars("files a second", collection, os.path.join(pictures, "collection.png"))
        starting = comparison.starting()
        thumbnails = comparison.thumbnails()
        editing = comparison.editing()
    finally:
        shutil.rmtree(work)
    with open(os.path.join(folder, "performance.md"), "w", encoding="utf-8") as file:
        file.write(report(reading, in_python, growth, collection, starting, thumbnails, editing))


def report(reading, in_python, growth, collection, starting, thumbnails, editing):
    copies, encoding = editing
    parts = [
        "# Performance\n",
        f"Written by `bench/compare` on {datetime.date.today()}: {processor()}, Linux {kernel()}. Each figure "
        "is the median of rounds in which all take turns.\n",
        "## Reading a file\n",
        "Tags and codecs by the library, tags by the others (libavformat with codecs for movies). The floor opens the "
        "file, asks for its size, reads 4 KiB at its head, for MP4 also 64 KiB at its end, and closes it.\n",
        reading_table(reading),
        "## Reading tags in Python\n",
        table(["Processor time in µs a file", *in_python["plain.mp3"], "mutagen / kxmd"],
              [[FILES[file], *(f"{each:.0f}" for each in spent.values()), f"{spent['mutagen'] / spent['kxmd']:.1f}"]
               for file, spent in in_python.items()]),
        "## As files grow\n",
        growth_table(growth),
        *(f"![{media.GROWING[what][0]}](performance/{what}.png)\n" for what, _ in growth),
        "## A collection of 20,000 files\n",
        table(["Program", "files a second"], [[name, f"{rate:,.0f}"] for name, rate in collection.items()]),
        "![files a second](performance/collection.png)\n",
        "## Starting a program, for one file\n",
        table(["Program", "wall time in ms", "processor time in ms"],
              [[name, f"{wall * 1e3:.1f}", f"{cpu * 1e3:.1f}"] for name, (wall, cpu) in starting.items()]),
        "## Thumbnails of 12 megapixels at 256 pixels\n",
        table(["Wall time in ms", *thumbnails["photo.jpg"]],
              [[name, *(f"{wall * 1e3:.0f}" for wall, _ in times.values())] for name, times in thumbnails.items()]),
        "## Covers, in copies of the file's bytes in memory\n",
        "A picture of 256 x 256 that is inserted is encoded first, by the program for pictures, which takes "
        f"{encoding:.1f} ms. Inserting and removing make a list of pieces and copy nothing; after replacing, the "
        "bytes are put in one row.\n",
        table(["Edit", "copies"], [[name, f"{ratio:.2f}"] for name, ratio in copies.items()]),
    ]
    return "\n".join(parts)


if __name__ == "__main__":
    main(*sys.argv[1:])
