"""Lets each call that the command makes of the system fail once, and looks at what is there afterwards: the old file
or the new one, whole, nothing beside it, and a word about what went wrong."""

import contextlib
import json
import os
import shutil
import stat
import subprocess
import tempfile
import unittest

from audio import attached, encode, pattern, tone
from phone_mount import phone
from preparing import MANIFEST
from support import COMMAND, CommandTestCase, preloading

SANITIZED = os.environ["KXMD_SANITIZED"] == "ON"
MOST_RUNS = 8 if SANITIZED else 60  # For each fault: of more calls, as many of them are tried, spread over all.

ERRORS = [("read", "EIO"), ("read", "EINTR"), ("write", "ENOSPC"), ("write", "short"), ("write", "EINTR"),
          ("sync", "EIO"), ("open", "EMFILE"), ("close", "EIO"), ("link", "EIO"), ("rename", "EACCES"),
          ("folder", "ENOSPC"), ("map", "ENOMEM")]
HARMLESS = {"short", "EINTR"}  # A program goes on where these come from.
CALLS = ("read", "write", "sync", "open", "close", "link", "rename", "folder")


class Run:
    """One run of the command, and what it left."""

    def __init__(self, case, arguments, fault=None, changed=""):
        environment = {**preloading("KXMD_FAULTS"), "XDG_CACHE_HOME": case.path("cache"), "G_SLICE": "always-malloc",
                       "KXMD_FAULT_PROGRAM": "kxmd", "KXMD_FAULT_COUNTS": case.path("counts"),
                       "KXMD_FAULT_FILE": changed}
        if fault:
            environment["KXMD_FAULT"] = ":".join(map(str, fault))
        finished = subprocess.run([COMMAND, *arguments], env=environment, stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=100)
        self.status, self.out, self.errors = finished.returncode, finished.stdout, finished.stderr
        self.files = case.files_below(case.out)
        self.record = self.files.pop(MANIFEST, b"").splitlines(keepends=True)

    def recorded(self):
        """The size of each target that the record lists; a line that was cut off is none."""
        sizes = {}
        for line in self.record:
            with contextlib.suppress(ValueError):
                entry = json.loads(line)
                if "targetSize" in entry:
                    sizes[entry["target"]] = entry["targetSize"]
        return sizes


class FaultTests(CommandTestCase):
    @classmethod
    def setUpClass(cls):
        """A source of each kind, encoded once."""
        cls.made = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.made)
        path = lambda name: os.path.join(cls.made, name)
        album = ("-metadata", "album=Sines", "-metadata", "title=Song")
        encode(path("cover.jpg"), *pattern(320, 320), "-frames:v", "1")
        encode(path("song.mp3"), *tone(), *album)
        encode(path("song.m4a"), *tone(), "-c:a", "aac", *album)
        encode(path("covered.m4a"), *attached(path("cover.jpg"), *tone()), "-c:a", "aac", *album)
        encode(path("lossless.m4a"), *tone(), "-c:a", "alac", *album)
        encode(path("recording.mov"), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac",
               "-metadata", "comment=Home")

    def setUp(self):
        super().setUp()
        self.source, self.out = self.path("source"), self.path("out")
        shutil.copytree(self.made, self.source)
        os.mkdir(self.out)
        self.sources = self.files_below(self.source)
        self.addCleanup(self.assert_device_is_as_it_was, os.stat("/dev/null"))

    def assert_device_is_as_it_was(self, before):
        """Root may change it for everybody."""
        now = os.stat("/dev/null")
        if now.st_mode != before.st_mode:
            os.chmod("/dev/null", stat.S_IMODE(before.st_mode))
        self.assertEqual((now.st_mode, now.st_mtime_ns), (before.st_mode, before.st_mtime_ns))

    def of(self, name):
        return os.path.join(self.source, name)

    def to(self, name):
        return os.path.join(self.out, name)

    def files_below(self, folder):
        found = {}
        for where, folders, names in os.walk(folder):
            for name in names:
                with open(os.path.join(where, name), "rb") as file:
                    found[os.path.relpath(os.path.join(where, name), folder)] = file.read()
            if not folders and not names and where != folder:
                found[os.path.relpath(where, folder) + "/"] = None
        return found

    def put_out(self, files):
        """Makes the target folder hold these files, and no more."""
        shutil.rmtree(self.out)
        os.mkdir(self.out)
        for name, content in files.items():
            os.makedirs(os.path.dirname(self.to(name)), exist_ok=True)
            self.write(self.to(name), content)

    def counts(self):
        with open(self.path("counts")) as file:
            return {name: int(number) for name, number in map(str.split, file)}

    def numbers(self, count):
        """All calls, or as many of them as there is time for."""
        return sorted({round(i * (count - 1) / (MOST_RUNS - 1)) + 1 for i in range(MOST_RUNS)}
                      if count > MOST_RUNS else range(1, count + 1))

    def temporary_files(self):
        return self.files_below(self.path("cache/kxmd/tmp"))

    def assert_files(self, run, old, new, what):
        """Each is the old one or the new one, and nothing else is there."""
        for name, content in run.files.items():
            self.assertIn(name, sorted(new), what)
            if name.endswith(".m3u") and content != old.get(name):  # Lists what could be prepared.
                self.assertLessEqual(set(content.split(b"\r\n")), set(new[name].split(b"\r\n")), what)
            else:
                # Without a cover, and that is said, where the picture beside it cannot be read.
                copied = self.sources.get(name) if run.errors or b"copied as it is" in run.out else None
                self.assertTrue(content in (old.get(name), new[name], copied), f"{what}: {name}")
        self.assertLessEqual(old.keys(), run.files.keys(), what)
        for name, size in run.recorded().items():  # The record is never ahead.
            self.assertEqual(len(run.files[name]), size, what)

    def assert_survives(self, arguments, old, new, fault):
        calls, number, kind = fault
        self.put_out(old)
        run = Run(self, arguments, fault)
        what = f"{' '.join(arguments)}, {fault}: ended with {run.status}, {run.errors}"
        self.assertTrue(self.files_below(self.source) == self.sources, what)
        if kind == "SIGKILL":
            return self.assert_mended(arguments, old, new, what)
        self.assert_files(run, old, new, what)
        self.assertEqual(self.temporary_files(), {}, what)
        if run.status == 0:
            self.assertTrue(run.files == new or run.errors or b"copied as it is" in run.out, what)
        elif kind == "SIGTERM":
            self.assertEqual(run.status, -15, what)
        elif calls == "allocate":
            self.assertEqual(run.status, 1, what)
            self.assertTrue(run.errors, what)
        else:
            self.assertEqual(run.status, 1, what)
            self.assertTrue(run.errors, what)
            self.assertNotIn(kind, HARMLESS, what)

    def assert_mended(self, arguments, old, new, what):
        """What a killed run left is taken away by the next one."""
        for name, content in old.items():
            self.assertTrue(self.files_below(self.out).get(name) in (content, new[name]), what)
        run = Run(self, arguments)
        self.assertEqual(run.status, 0, what)
        self.assertTrue(run.files == new, what)
        self.assertEqual(self.temporary_files(), {}, what)

    def attack(self, *arguments, faults):
        """Every fault, with nothing in the target folder and with older files there."""
        self.put_out({})
        first = Run(self, arguments)
        self.assertEqual(first.status, 0, first.errors)
        new, counts = first.files, self.counts()
        self.assertTrue(new)
        old = {name: b"old" for name in new}
        for calls, kind in faults:
            numbers = self.numbers(counts[calls])
            for number in numbers:
                self.assert_survives(arguments, {} if number % 2 else old, new, (calls, number, kind))
            print("faults:", calls, kind, len(numbers))
        # A second time where there is a file to replace, which takes more of some calls.
        self.put_out(old)
        Run(self, arguments)
        for calls, count in self.counts().items():
            for number in range(counts[calls] + 1, count + 1 if count - counts[calls] < 10 else 0):
                for kind in (kind for some, kind in faults if some == calls):
                    self.assert_survives(arguments, old, new, (calls, number, kind))

    def attack_by_errors(self, *arguments):
        self.attack(*arguments, faults=ERRORS)

    def attack_by_signals(self, *arguments):
        self.attack(*arguments, faults=[(calls, kind) for kind in ("SIGTERM", "SIGKILL") for calls in CALLS])

    def attack_by_lack_of_memory(self, *arguments):
        if SANITIZED:
            self.skipTest("a sanitizer has an allocator of its own")
        self.attack(*arguments, faults=[("allocate", "ENOMEM")])

    def test_cover_that_is_added_survives_errors(self):
        for name in ("song.mp3", "song.m4a"):
            self.attack_by_errors("cover", "add", self.of(name), self.of("cover.jpg"), "-o", self.to(name))

    def test_cover_that_is_added_survives_signals(self):
        self.attack_by_signals("cover", "add", self.of("song.m4a"), self.of("cover.jpg"), "-o", self.to("a.mov"))

    def test_cover_that_is_removed_survives_errors(self):
        self.attack_by_errors("cover", "remove", self.of("covered.m4a"), "-o", self.to("a.m4a"))

    def test_cover_that_is_removed_survives_a_lack_of_memory(self):
        self.attack_by_lack_of_memory("cover", "remove", self.of("covered.m4a"), "-o", self.to("a.mov"))

    def test_cover_that_is_extracted_survives_errors(self):
        self.attack_by_errors("cover", "extract", self.of("covered.m4a"), "-o", self.to("a.png"))

    def test_cleaning_survives_errors(self):
        self.attack_by_errors("clean", self.of("recording.mov"), "-o", self.to("a.mov"))

    def test_cleaning_survives_signals(self):
        self.attack_by_signals("clean", self.of("recording.mov"), "-o", self.to("a.mov"))

    def test_cleaning_survives_a_lack_of_memory(self):
        self.attack_by_lack_of_memory("clean", self.of("recording.mov"), "-o", self.to("a.mov"))

    def test_preparation_survives_errors(self):
        self.attack_by_errors(*self.preparation())

    def test_preparation_survives_signals(self):
        self.attack_by_signals(*self.preparation())

    def test_preparation_survives_a_lack_of_memory(self):
        self.attack_by_lack_of_memory(*self.preparation())

    def test_phone_has_one_whole_file_after_signals(self):
        """Where nothing can be renamed."""
        song = self.of("song.mp3")
        with phone(self.folder) as found:
            self.out = found.path
            arguments = ("cover", "add", song, self.of("cover.jpg"), "-o", self.to("a.mp3"))
            for old in (None, b"old"):
                self.put_on_phone(old)
                new = Run(self, arguments).files["a.mp3"]
                for calls, count in self.counts().items():
                    for number in self.numbers(count) if calls in CALLS else ():
                        for kind in ("SIGTERM", "SIGKILL"):
                            self.put_on_phone(old)
                            run = Run(self, arguments, (calls, number, kind))
                            what = f"{old}, {calls}, {number}, {kind}: {run.status}, {run.files.keys()}"
                            self.assertIn(run.status, (0, -15, -9), what)
                            if old:
                                self.assertTrue({old, new} & set(run.files.values()), what)
                            elif kind == "SIGTERM":
                                self.assertTrue(run.files in ({}, {"a.mp3": new}), what)
                            self.assertTrue(Run(self, arguments).files == {"a.mp3": new}, what)

    def put_on_phone(self, content):
        for name in os.listdir(self.out):
            os.remove(self.to(name))
        if content:
            self.write(self.to("a.mp3"), content)

    # Reading.

    def assert_read_errors_are_told(self, *arguments):
        whole = Run(self, arguments)
        self.assertEqual(whole.status, 0)
        for number in range(1, self.counts()["read"] + 1):
            run = Run(self, arguments, ("read", number, "EIO"))
            if (run.status, run.out) == (0, whole.out):  # A read of nothing that matters.
                continue
            self.assertEqual(run.status, 1, (arguments, number, run.out))
            self.assertIn(b"cannot be read: Input/output error", run.errors, (arguments, number))

    def test_read_errors_are_told(self):
        for name in ("song.mp3", "song.m4a", "covered.m4a"):
            self.assert_read_errors_are_told("info", "--json", self.of(name))
            self.assert_read_errors_are_told("info", self.of(name))
        self.assert_read_errors_are_told("atoms", self.of("recording.mov"))
        self.assert_read_errors_are_told("frames", self.of("song.mp3"))
        self.assert_read_errors_are_told("exif", "--json", self.of("cover.jpg"))
        self.assert_read_errors_are_told("cache-name", "--file", self.of("song.m4a"), "-s", "9x9")

    def test_read_error_shows_no_content(self):
        """What was found until then may be wrong: the object is that of a file that cannot be opened."""
        arguments = ("info", "--json", self.of("song.mp3"))
        Run(self, arguments)
        runs = [Run(self, arguments, ("read", number, "EIO")) for number in range(1, self.counts()["read"] + 1)]
        failed = [json.loads(run.out) for run in runs if run.status]
        self.assertTrue(failed)
        for found in failed:
            self.assertEqual((found["metaType"], found["size"], found["tags"]), (0, 0, {}))

    def test_read_errors_are_told_on_a_page(self):
        arguments = ("sheet", self.of("song.mp3"), "-o", self.to("page.html"))
        Run(self, arguments)
        runs = [Run(self, arguments, ("read", number, "EIO")) for number in range(1, self.counts()["read"] + 1)]
        failed = [run for run in runs if run.status]
        self.assertTrue(failed)
        for run in failed:
            self.assertIn(b"cannot be read: Input/output error", run.errors)
            self.assertIn(b'"remark":"cannot be read","isFailed":true,"size":0}', run.files["page.html"])

    def test_music_that_cannot_be_read_is_not_copied_as_it_is(self):
        os.mkdir(self.path("one"))
        shutil.copy(self.of("lossless.m4a"), self.path("one"))
        arguments = ("prepare", self.path("one") + "/", "--to", self.out, "--json")
        self.assertEqual(Run(self, arguments).status, 0)
        for number in range(1, self.counts()["read"] + 1):
            self.put_out({})
            run = Run(self, arguments, ("read", number, "EIO"))
            *files, summary = map(json.loads, run.out.splitlines())
            if run.status == 0:
                self.assertEqual(summary["converted"], 1, number)
            else:
                self.assertEqual((run.status, summary["failed"], run.files), (1, 1, {}), number)

    def test_source_that_changes_is_noticed(self):
        song, recording, to = self.of("song.mp3"), self.of("recording.mov"), self.to("out.png")
        for source, *arguments in ((song, "cover", "add", song, self.of("cover.jpg"), "-o", to),
                                   (self.of("covered.m4a"), "cover", "remove", self.of("covered.m4a"), "-o", to),
                                   (self.of("covered.m4a"), "cover", "extract", self.of("covered.m4a"), "-o", to),
                                   (recording, "clean", recording, "-o", to),
                                   (recording, "prepare", recording, "--to", self.out)):
            self.put_out({})
            Run(self, arguments)
            noticed = []
            for number in range(1, self.counts()["read"] + 1):
                self.put_out({})
                run = Run(self, arguments, ("read", number, "change"), changed=source)
                noticed.append(run.status == 1)
                if noticed[-1]:
                    self.assertIn(f"kxmd: {source}: ", run.errors.decode())
                    self.assertIn("changed while it was read\n", run.errors.decode())
                    self.assertEqual(run.files, {})
            # From the moment when the source was opened, up to the last read.
            self.assertIn(True, noticed, arguments)
            self.assertNotIn(False, noticed[noticed.index(True):], arguments)

    # Power.

    def assert_synced(self, *arguments, libraries=("KXMD_SYNC_ORDER_LIBRARY",)):
        """How many files got their names, each after its bytes."""
        environment = {**os.environ, "XDG_CACHE_HOME": self.path("cache"), "KXMD_SYNC_ORDER": self.path("order")}
        for library in libraries:
            environment = preloading(library, environment)
        subprocess.run([COMMAND, *arguments], env=environment, check=True, stdout=subprocess.DEVNULL)
        with open(self.path("order")) as file:
            *problems, named = file.read().splitlines()
        self.assertEqual(problems, [], arguments)
        return int(named.split()[0])

    def test_names_come_after_their_bytes(self):
        for i in range(100):
            shutil.copy(self.of("song.mp3"), self.of(f"{i}.mp3"))
        card = ("KXMD_SYNC_ORDER_LIBRARY", "KXMD_PHONE_CARD")
        for libraries in (card[:1], card):
            for jobs in ("1", "4"):
                self.put_out({})
                arguments = ("prepare", self.source + "/", "--to", self.out, "--playlist", "All", "-j", jobs)
                self.assertGreater(self.assert_synced(*arguments, libraries=libraries), 100)
                os.remove(self.to(MANIFEST))
                self.assertGreater(self.assert_synced(*arguments, libraries=libraries), 100)  # Over those.
            for _ in range(2):
                self.assertGreater(self.assert_synced("clean", self.of("recording.mov"), "-o", self.to("a.mov"),
                                                      libraries=libraries), 0)

    def preparation(self):
        """Of everything but lossless audio: each conversion takes long, and its own program writes the file."""
        os.remove(self.of("lossless.m4a"))
        self.sources = self.files_below(self.source)
        return ("prepare", self.source + "/", "--to", self.out, "--playlist", "All", "-j", "1")


if __name__ == "__main__":
    unittest.main()
