import contextlib
import fcntl
import os
import pty
import resource
import shutil
import signal
import subprocess
import tempfile
import time

import pictures
from audio import attached, encode, pattern, probe, samples, tone
from preparing import CLEAN, CONVERT, COVER, MANIFEST, PrepareTestCase
from support import COMMAND, atom, on_card, preloading, run

NAMES_THAT_ARE_TRIED = ".kxmd-names"


class PrepareTests(PrepareTestCase):
    # What is done to which file.

    def place_album(self):
        for name in ("lossless.m4a", "song.mp3", "song.m4a", "tiny.m4a", "good.mp3", "recording.mov", "film.mp4",
                     "cover.jpg"):
            self.place("Album/" + name)
        self.put("Album/notes.txt", b"Dear diary")

    def test_each_file_gets_what_suits_it(self):
        self.place_album()
        before = self.hashes(self.source)
        files, summary = self.prepared()
        done = {name[6:]: file["processors"] for name, file in files.items()}
        self.assertEqual(done, {
            "lossless.m4a": [CONVERT, COVER], "song.mp3": [COVER], "song.m4a": [COVER], "tiny.m4a": [COVER],
            "good.mp3": [], "recording.mov": [CLEAN], "film.mp4": [], "cover.jpg": [], "notes.txt": []})
        self.assertEqual(self.hashes(self.source), before)
        after = self.hashes(self.out)
        self.assertEqual(after.keys(), before.keys())
        for name, processors in done.items():
            same = after["Album/" + name] == before["Album/" + name]
            self.assertEqual(same, not processors, name)
        self.assertEqual({key: summary[key] for key in ("files", "failed", "converted", "coversInserted", "cleaned")},
                         {"files": 9, "failed": 0, "converted": 1, "coversInserted": 4, "cleaned": 1})
        self.assertEqual(summary["bytesOut"], sum(file["size"] for file in files.values()))
        self.assert_no_temporary_files()

    def test_film_with_lossless_sound_keeps_its_pictures(self):
        for name, *tags in (("film.mp4", "-metadata", "title=Film"), ("clip.mov",)):
            encode(os.path.join(self.source, name), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "alac", *tags)
        files, summary = self.prepared()
        self.assertEqual({name: file["processors"] for name, file in files.items()},
                         {"film.mp4": [], "clip.mov": [CLEAN]})
        for name in files:
            self.assertEqual(probe(os.path.join(self.out, name))[2]["codec_name"], "mpeg4")

    def test_objects_have_exactly_these_fields(self):
        self.place("song.mp3")
        result = self.prepare("--json")
        song, summary = result.objects()
        self.assertEqual(song, {
            "source": os.path.join(self.source, "song.mp3"), "target": os.path.join(self.out, "song.mp3"),
            "action": "copied", "processors": [], "sizeBefore": os.path.getsize(self.made + "/song.mp3"),
            "predictedSize": song["sizeBefore"], "size": song["sizeBefore"], "ok": True, "error": "", "remark": ""})
        self.assertEqual(set(summary), {
            "files", "unchanged", "renamed", "converted", "coversInserted", "cleaned", "leftAsTheyWere", "failed",
            "removed", "skipped", "bytesIn", "bytesOut", "seconds"})

    def test_sizes_are_those_of_the_files(self):
        self.place_album()
        files, summary = self.prepared()
        for name, file in files.items():
            self.assertEqual(file["sizeBefore"], os.path.getsize(file["source"]))
            self.assertEqual(file["size"], os.path.getsize(file["target"]))
            self.assertEqual(file["predictedSize"], file["size"], name)
        self.assertEqual(summary["bytesIn"], sum(file["sizeBefore"] for file in files.values()))

    def test_size_of_a_conversion_is_not_known_beforehand(self):
        self.place("lossless.m4a")
        file = self.prepared()[0]["lossless.m4a"]
        self.assertEqual(file["predictedSize"], file["sizeBefore"])
        self.assertNotEqual(file["size"], file["sizeBefore"])
        self.assertEqual((file["ok"], file["error"]), (True, ""))

    def test_prepared_files_play_and_show(self):
        self.place_album()
        self.prepare()
        for name in ("lossless.m4a", "song.mp3", "song.m4a", "tiny.m4a", "recording.mov"):
            with self.subTest(name=name):
                heard = samples(os.path.join(self.out, "Album", name))
                self.assertAlmostEqual(len(heard) / 44100, 1, delta=0.1)
        for name in ("lossless.m4a", "song.mp3", "song.m4a", "tiny.m4a", "good.mp3"):
            info, = run("info", "--json", os.path.join(self.out, "Album", name)).objects()
            self.assertEqual((info["cover"]["valid"], info["tags"]["Album"]), (True, "Sines"), name)
        self.assertEqual(probe(os.path.join(self.out, "Album/lossless.m4a"))[1]["codec_name"], "aac")
        self.assertNotIn(b"A Phone", self.read(os.path.join(self.out, "Album/recording.mov")))

    def test_each_step_can_be_left_out(self):
        self.place_album()
        for flag, left_out in (("--no-covers", COVER), ("--no-clean", CLEAN), ("--no-convert", CONVERT)):
            files, _ = self.prepared(flag)
            used = {word for file in files.values() for word in file["processors"]}
            self.assertEqual(used, {CONVERT, CLEAN, COVER} - {left_out})
        self.prepare("--no-covers", "--no-clean", "--no-convert")
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_folder_picture_in_the_order_of_its_names(self):
        for name in ("front.png", "Folder.PNG", "cover.jpeg"):
            colour = {"f": pictures.RED, "F": pictures.GREEN, "c": pictures.BLUE}[name[0]]
            self.put(name, pictures.solid(300, 300, colour))
        self.place("song.mp3")
        for gone, channel in ((None, 2), ("cover.jpeg", 1), ("Folder.PNG", 0)):
            if gone:
                os.remove(os.path.join(self.source, gone))
            self.assertEqual(self.prepared()[0]["song.mp3"]["processors"], [COVER])
            shown = self.path("shown.png")
            self.assertEqual(run("cover", "extract", os.path.join(self.out, "song.mp3"), "-o", shown).status, 0)
            pixel = pictures.Picture(self.read(shown)).pixel(128, 128)
            self.assertEqual(max(range(3), key=lambda i: pixel[i]), channel)

    def test_converted_copy_is_named_m4a(self):
        shutil.copy(os.path.join(self.made, "lossless.m4a"), os.path.join(self.source, "a.b.mp4"))
        for name in ("plain", "Op. 9 No. 2", ".mp4", "LOUD.M4A"):
            shutil.copy(os.path.join(self.made, "lossless.m4a"), os.path.join(self.source, name))
        self.assertEqual(sorted(self.prepared()[0]),
                         [".mp4.m4a", "LOUD.m4a", "Op. 9 No. 2.m4a", "a.b.m4a", "plain.m4a"])

    def test_file_that_an_edit_would_break_is_copied_and_reported(self):
        self.place("fragments.m4a")
        self.place("cover.jpg")
        files, _ = self.prepared()
        file = files["fragments.m4a"]
        self.assertEqual((file["ok"], file["processors"], file["size"]), (True, [], file["sizeBefore"]))
        self.assertTrue(file["error"].startswith("copied as it is: "), file)
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    # Files that cannot be prepared.

    def test_file_that_fails_does_not_stop_the_others(self):
        self.place("a.mp3", "song.mp3")
        os.symlink("missing", os.path.join(self.source, "dangling.mp3"))
        os.mkfifo(os.path.join(self.source, "fifo.mp3"))
        os.mkdir(os.path.join(self.source, "folder.mp3"))
        broken = encode(os.path.join(self.source, "broken.m4a"), *tone(), "-c:a", "alac", "-movflags", "+faststart")
        os.truncate(broken, os.path.getsize(broken) - 5000)
        self.place("z.mp3", "song.mp3")
        result = self.prepare()
        self.assertEqual(result.status, 1)
        self.assertEqual(sorted(self.listed()), ["a.mp3", "broken.m4a", "z.mp3"])
        own = [line for line in result.errors if line.startswith("kxmd: ")]
        self.assertEqual(len(own), 2, result.errors)
        for name in ("dangling.mp3: No such file or directory", "fifo.mp3: is not a regular file"):
            self.assertIn(f"kxmd: {self.source}/{name}", own)
        self.assertIn(b"bytes), copied as it is: cannot be converted", result.out)
        self.assertIn(b"1 left as it was, 2 skipped, 0 failed", result.out)

    def test_damaged_files_are_copied_as_they_are(self):
        song, music = (self.read(os.path.join(self.made, name)) for name in ("song.mp3", "song.m4a"))
        for length in range(0, 600, 41):
            self.put(f"{length}.mp3", song[:length])
            self.put(f"{length}.m4a", music[:length])
            self.put(f"{length}b.m4a", music[-length - 700:])
        result = self.prepare()
        self.assertEqual(result.status, 0, result.errors)
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_path_that_is_missing(self):
        missing = self.path("missing")
        result = run("prepare", missing, "--to", self.out)
        self.assertEqual((result.status, result.errors), (1, [f"kxmd: {missing}: No such file or directory"]))

    def test_source_that_changes_meanwhile_is_reported(self):
        path = self.put("large.bin", b"")
        os.truncate(path, 256 << 20)  # Which takes some tenths of a second to copy.
        process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out], env=self.environment,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        while process.poll() is None:
            os.utime(path)
            time.sleep(0.001)
        _, errors = process.communicate()
        self.assertEqual(process.returncode, 1)
        self.assertEqual(errors.decode(), f"kxmd: {path}: changed while it was read\n")
        self.assertEqual(self.listed(), [])

    def test_full_disk_leaves_whole_files_only(self):
        small = os.path.getsize(self.place("small.mp3", "song.mp3"))
        self.put("large.bin", bytes(10 * small))
        for name in ("large.mp3", "other.mov"):
            self.put(name, self.read(os.path.join(self.made, "song.mp3")) + bytes(10 * small))
        result = self.prepare(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2 * small, 2 * small)))
        self.assertEqual(result.status, 1)
        self.assertEqual(len(result.errors), 3, result.errors)
        self.assertEqual(self.hashes(self.out), {"small.mp3": self.hashes(self.source)["small.mp3"]})
        self.assertEqual(self.prepare().status, 0)
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_read_only_card_is_left_as_it_is(self):
        """A card whose switch is set, or that the system made read-only after an error."""
        self.place_album()
        self.assertEqual(self.prepare().status, 0)
        before = self.hashes(self.out)
        self.put("new.txt", b"for which there is no place")
        card = ("mount --bind \"$1\" \"$1\" && mount -o remount,bind,ro \"$1\" || exit 99\n"
                "shift; exec \"$@\"")
        words = ("unshare", "-m", "sh", "-c", card, "sh", self.out, COMMAND, "prepare", self.source + "/", "--to", self.out)
        finished = subprocess.run(words, env=self.environment, capture_output=True, text=True, check=False)
        if finished.returncode == 99 or "unshare" in finished.stderr:
            self.skipTest("no file system can be mounted here")
        self.assertEqual(finished.returncode, 1)
        self.assertIn("Read-only file system", finished.stderr)
        self.assertEqual(self.hashes(self.out), before)

    # Targets.

    def test_second_run_replaces_the_files(self):
        self.place_album()
        self.prepare()
        first = self.hashes(self.out)
        self.assertEqual(self.prepare().status, 0)
        self.assertEqual(self.hashes(self.out), first)

    def test_target_within_the_source_is_not_prepared_again(self):
        self.place("song.mp3")
        self.out = os.path.join(self.source, "out")
        for _ in range(2):
            self.assertEqual(list(self.prepared()[0]), ["song.mp3"])
        self.assertEqual(self.listed(), ["song.mp3"])

    def test_source_that_is_the_target_is_refused(self):
        self.place("song.mp3")
        before = self.hashes(self.source)
        os.symlink(self.source, self.path("link"))
        for source, target in ((self.source, self.source), (self.path("link"), self.source),
                               (self.source, self.source + "/./")):
            result = run("prepare", source, "--to", target)
            self.assertEqual((result.status, result.errors), (1, [f"kxmd: {source}: is the folder that is written to"]))
        self.assertEqual(self.hashes(self.source), before)

    def test_no_source_is_written_over(self):
        first, second = self.place("a/x.mp3", "song.mp3"), self.put("b/x.mp3", b"another")
        result = run("prepare", first, second, "--to", os.path.join(self.source, "b"))
        self.assertEqual((result.status, len(result.errors)), (1, 2))
        self.assertIn("its target is one of the files that are read", result.errors[0])
        self.assertEqual(self.read(second), b"another")

    def test_two_files_with_one_target(self):
        first, second = self.place("a/x.mp3", "song.mp3"), self.put("b/x.mp3", b"another")
        result = self.prepare(first, second)
        self.assertEqual(result.errors, [f"kxmd: {second}: another file has the same target"])
        self.assertEqual(self.read(os.path.join(self.out, "x.mp3")), self.read(first))

    def test_two_names_of_one_folder(self):
        first, second = self.place("a/x.mp3", "song.mp3"), self.put("b/x.mp3", b"another")
        os.makedirs(os.path.join(self.out, "a"))
        os.symlink("a", os.path.join(self.out, "b"))
        result = self.prepare()
        self.assertEqual(result.errors, [f"kxmd: {second}: another file has the same target"])
        self.assertEqual(self.read(os.path.join(self.out, "a/x.mp3")), self.read(first))

    def test_converted_copy_does_not_take_the_place_of_a_file(self):
        for name in ("a.mov", "a.mp4", "b.mp4"):
            self.place(name, "lossless.m4a")
        self.place("b.m4a", "song.m4a")
        for jobs in ("1", "8"):
            files, _ = self.prepared("-j", jobs)
            self.assertEqual({name: os.path.basename(file["source"]) for name, file in files.items()},
                             {"a.m4a": "a.mov", "a.mp4.m4a": "a.mp4", "b.m4a": "b.m4a", "b.mp4.m4a": "b.mp4"})
            self.assertEqual(sorted(self.listed()), sorted(files))
            shutil.rmtree(self.out)

    def test_converted_copies_take_longer_names_until_one_is_free(self):
        for name in ("a", "b.m4a", "b.mov"):
            self.place(name, "lossless.m4a")
        for name in ("a.m4a", "b.mov.m4a"):
            self.place(name, "song.m4a")
        for jobs in ("1", "8"):
            files, _ = self.prepared("-j", jobs)
            self.assertEqual({name: os.path.basename(file["source"]) for name, file in files.items()},
                             {"a.m4a": "a.m4a", "a.m4a.m4a": "a", "b.m4a": "b.m4a", "b.mov.m4a": "b.mov.m4a",
                              "b.mov.m4a.m4a": "b.mov"})
            shutil.rmtree(self.out)

    def test_copies_are_as_private_as_their_sources(self):
        self.addCleanup(os.umask, os.umask(0o022))
        for mode in (0o600, 0o640, 0o644):
            for name in ("song.mp3", "good.mp3", "lossless.m4a", "recording.mov"):
                os.chmod(self.place(f"{mode:o}/{name}"), mode)
        self.prepared()
        for where, _, names in os.walk(self.out):
            for name in names:
                mode = os.stat(os.path.join(where, name)).st_mode & 0o777
                self.assertEqual(f"{mode:o}", "600" if name == MANIFEST else os.path.basename(where), name)

    def test_place_that_cannot_be_written_to_is_named(self):
        path = self.place("song.mp3")
        place = os.path.join(self.out, "song.mp3")
        os.makedirs(place)
        self.assert_failure(self.prepare(), path, f"cannot be written to {place}: is a folder")

    def test_slashes_after_the_target_change_nothing(self):
        self.place("song.mp3")
        self.out += "//"
        file, _ = self.prepare("--json").objects()
        self.assertEqual(file["target"], self.path("out/song.mp3"))

    def test_source_given_twice(self):
        first = self.place("x.mp3", "song.mp3")
        result = self.prepare(self.source + "/", self.source + "/")
        self.assertEqual((result.status, result.errors),
                         (1, [f"kxmd: {first}: another file has the same target"]))
        self.assertEqual(self.listed(), ["x.mp3"])

    def test_names_of_any_bytes(self):
        names = [b"a\nb.mp3", b"\x1b[31m.mp3", b"caf\xe9.mp3", "日本.mp3".encode(), b"-n.mp3", b"n" * 251 + b".mp3", b"\\"]
        for name in names:
            shutil.copy(os.path.join(self.made, "song.mp3"), os.path.join(self.source.encode(), name))
        result = self.prepare()
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(sorted(os.listdir(self.out.encode())), sorted([*names, MANIFEST.encode()]))
        lines = result.out.split(b"\n")
        self.assertEqual(len(lines), len(names) + 2)
        self.assertNotIn(b"\x1b", result.out)
        self.assertEqual(len(self.prepare("--json").objects()), len(names) + 1)

    def test_standard_files_that_are_closed_get_into_no_target(self):
        def close_standard_files():
            for descriptor in (0, 1, 2):
                os.close(descriptor)

        self.place_album()
        self.assertEqual(self.prepare().status, 0)
        expected = self.hashes(self.out)
        shutil.rmtree(self.out)
        process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out], env=self.environment,
                                   preexec_fn=close_standard_files)
        taken = set()
        while process.poll() is None:
            with contextlib.suppress(OSError):  # While the program is loaded the last is closed.
                taken.update(os.readlink(f"/proc/{process.pid}/fd/{descriptor}") for descriptor in (2, 1, 0))
        self.assertEqual(taken, {"/dev/null"})
        self.assertEqual(process.returncode, 1)  # Nobody took the report.
        self.assertEqual(self.hashes(self.out), expected)

    def test_order_is_that_of_the_bytes_of_the_names(self):
        for name in ("b", "a/z", "a/B", "B", "a.x", "é"):
            self.put(name, b"x")
        self.assertEqual(list(self.prepared()[0]), ["B", "a/B", "a/z", "a.x", "b", "é"])

    def test_number_of_jobs_changes_nothing(self):
        self.place_album()
        for i in range(40):
            self.place(f"More/{i}.mp3", "song.mp3")
        outputs = []
        for jobs in ("1", "8"):
            result = self.prepare("-j", jobs)
            outputs.append((result.out.splitlines()[:-1], self.hashes(self.out)))
            shutil.rmtree(self.out)
        self.assertEqual(outputs[0], outputs[1])

    def test_links_to_files_are_followed_and_those_to_folders_are_not(self):
        self.place("song.mp3")
        os.symlink("song.mp3", os.path.join(self.source, "link.mp3"))
        os.symlink(".", os.path.join(self.source, "loop"))
        result = self.prepare("--json")
        first, second, summary = result.objects()
        self.assertEqual([os.path.basename(file["target"]) for file in (first, second)], ["link.mp3", "song.mp3"])
        self.assertEqual((result.status, summary["skipped"]), (0, 1))
        self.assertEqual(result.errors, [f"kxmd: {self.source}/loop: is a link to a folder, and not followed"])
        self.assertFalse(os.path.islink(os.path.join(self.out, "link.mp3")))

    def test_links_lead_to_no_file_elsewhere(self):
        secret = self.write("secret", b"of another folder")
        for leads_to in (secret, "../secret"):
            link = os.path.join(self.source, "song.mp3")
            os.symlink(leads_to, link)
            result = self.prepare()
            self.assert_failure(result, link, "is a link to a file elsewhere, and not followed")
            self.assertEqual(self.listed(), [])
            self.assertEqual(len(run("prepare", self.path("missing"), self.source + "/", "--to", self.out).errors), 2)
            self.assertEqual(self.listed(), [])
            self.assertEqual(self.prepare("--follow-links").errors, [])
            self.assertEqual(self.read(os.path.join(self.out, "song.mp3")), b"of another folder")
            os.remove(link)
            shutil.rmtree(self.out)

    def test_links_lead_to_whatever_is_prepared_as_well(self):
        one, other = self.path("one"), self.path("other")
        for folder in (one, other, other + " folder"):
            os.mkdir(folder)
        self.write("other/file", b"content")
        self.write("other folder/file", b"of a folder whose name only begins like that of the other")
        os.symlink("../other/file", os.path.join(one, "within"))
        os.symlink("../other folder/file", os.path.join(one, "without"))
        result = self.prepare(one + "/", other + "/")
        self.assert_failure(result, os.path.join(one, "without"))
        self.assertEqual(sorted(self.listed()), ["file", "within"])

    def test_path_that_is_given_may_be_a_link(self):
        os.symlink(self.write("file", b"content"), self.path("link"))
        self.assertEqual(self.prepare(self.path("link")).errors, [])
        self.assertEqual(self.read(os.path.join(self.out, "link")), b"content")

    def test_every_folder_is_entered_once_where_links_are_followed(self):
        self.put("a/song", b"one")
        os.mkdir(self.path("elsewhere"))
        self.write("elsewhere/song", b"two")
        os.symlink(self.path("elsewhere"), os.path.join(self.source, "b"))
        os.symlink("..", os.path.join(self.source, "a/loop"))
        os.symlink("a", os.path.join(self.source, "c"))
        self.assertEqual(self.prepare("--follow-links").errors, [])
        self.assertEqual(sorted(self.hashes(self.out)), ["a/song", "b/song"])

    # Playlists.

    def test_playlist(self):
        for name in ("b/2.mp3", "b/c/1.mp3"):
            self.place(name, "song.mp3")
        self.place("é.m4a", "song.m4a")
        self.place("film.mp4")
        self.put("notes.txt", b"Dear diary")
        self.assertEqual(self.prepare("--playlist", "Mix").status, 0)
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")),
                         ".\\b\\2.mp3\r\n.\\b\\c\\1.mp3\r\n.\\é.m4a".encode())

    def test_playlist_lists_sound_of_any_kind(self):
        bare = self.read(encode(self.path("bare.mp3"), *tone(), "-id3v2_version", "0"))
        self.assertNotEqual(bare[:3], b"ID3")
        self.put("bare.mp3", bare)
        for name, codec in (("a.flac", "flac"), ("a.ogg", "libvorbis"), ("a.opus", "libopus"), ("a.wav", "pcm_s16le")):
            encode(os.path.join(self.source, name), *tone(), "-c:a", codec)
        self.place("film.mp4")
        self.put("others.m3u", b"#EXTM3U\r\na.mp3\r\n")
        self.put("cover.jpg", self.read(os.path.join(self.made, "cover.jpg")))
        self.assertEqual(self.prepare("--playlist", "Mix").status, 0)
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")).split(b"\r\n"),
                         [b".\\a.m4a", b".\\a.ogg", b".\\a.opus", b".\\a.wav.m4a", b".\\bare.mp3"])

    def test_playlist_replaces_a_link_and_not_what_it_leads_to(self):
        self.place("song.mp3")
        self.write("precious", b"as it was")
        os.mkdir(self.out)
        for leads_to in ("song.mp3", "../precious"):
            os.symlink(leads_to, os.path.join(self.out, "Mix.m3u"))
            self.assertEqual(self.prepare("--playlist", "Mix").errors, [])
            self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")), b".\\song.mp3")
            self.assertGreater(os.path.getsize(os.path.join(self.out, "song.mp3")), 1000)
            os.remove(os.path.join(self.out, "Mix.m3u"))
        self.assertEqual(self.read(self.path("precious")), b"as it was")

    def test_playlist_without_audio(self):
        self.put("notes.txt", b"Dear diary")
        result = self.prepare("--playlist", "Mix")
        self.assert_failure(result, os.path.join(self.out, "Mix.m3u"), "there is no audio to list")
        self.assertEqual(self.listed(), ["notes.txt"])

    def test_folder_that_cannot_be_made_tells_why(self):
        self.place("Album/song.mp3")
        os.mkdir(self.out)
        self.write(os.path.join(self.out, "Album"), b"in the way")
        self.assertEqual(self.prepare().errors[0], f"kxmd: {self.out}/Album: Not a directory")

    def test_playlist_does_not_take_the_place_of_a_file(self):
        self.place("song.mp3")
        self.put("Mix.m3u", b"another")
        result = self.prepare("--playlist", "Mix")
        self.assertEqual(result.errors, [f"kxmd: {self.source}/Mix.m3u: another file has the same target"])
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")), b".\\song.mp3")

    def test_name_of_a_playlist_is_no_path(self):
        for name in ("../x", "a/b", "/x", "", ".", ".."):
            self.assert_usage_error(self.prepare("--playlist", name))
        self.assertFalse(os.path.exists(self.out))
        self.place("song.mp3")
        self.assertEqual(self.prepare("--playlist", "[Live]").status, 0)
        self.assertIn("[Live].m3u", self.listed())

    def test_forgotten_value_takes_no_option(self):
        self.place("song.mp3")
        for option in ("--playlist", "--exclude", "--include"):
            result = self.prepare(option, "-n")
            self.assert_usage_error(result)
            self.assertIn('"-n" looks like an option', result.errors[0])
            self.assertEqual(result.errors[1], 'Try "kxmd prepare --help" for more.')
        self.assertFalse(os.path.exists(self.out))

    def test_locked_folder_is_found_out_before_the_work(self):
        self.place("Album/lossless.m4a")
        os.mkdir(self.out, 0o555)
        for folder in (self.folder, self.made):
            os.chmod(folder, 0o755)
        somebody = {"user": 65534} if os.geteuid() == 0 else {}  # Whom permissions bind.
        cache = tempfile.mkdtemp(prefix="kxmd-tests-")
        self.addCleanup(shutil.rmtree, cache)
        os.chmod(cache, 0o777)
        environment = {**os.environ, "XDG_CACHE_HOME": cache}
        try:
            run("--version", **somebody)
        except PermissionError:
            self.skipTest("the command lies where others may not look")
        for flags in ((), ("-n",)):
            result = self.prepare(*flags, env=environment, **somebody)
            self.assertEqual(result.errors, [f"kxmd: {self.out}: Permission denied"])
            self.assertEqual(result.status, 1)
            self.assertEqual(b"would convert" in result.out, bool(flags))
        result = run("thumbnail", "-s", "9x9", "-r", self.source, "--to", self.out, env=environment, **somebody)
        self.assertEqual(result.errors, [f"kxmd: {self.out}: Permission denied"])
        os.chmod(self.out, 0o755)
        self.prepare()
        os.chmod(self.out, 0o555)  # Nothing is to be written.
        for name in os.listdir(self.out):
            os.chmod(os.path.join(self.out, name), 0o755)
        self.assertEqual(self.prepare(env=environment, **somebody).errors, [])

    def test_measurements_that_stay_are_told(self):
        content = atom(b"ftyp", b"qt  ", bytes(4), b"qt  ") + atom(
            b"moov", *(atom(b"trak", atom(b"mdia", atom(b"hdlr", bytes(8), kind, bytes(13))))
                       for kind in (b"vide", b"meta")), atom(b"udta", atom(b"\xa9mak", bytes(9))))
        self.put("a.mov", content)
        self.put("b.mov", content.replace(b"\0meta", b"\0tmcd"))
        remarks = {name: file["remark"] for name, file in self.prepared()[0].items()}
        self.assertEqual(remarks, {"a.mov": "its track of measurements stays, which may tell places", "b.mov": ""})
        shutil.rmtree(self.out)
        self.assertEqual(self.prepared("--keep-metadata")[0]["a.mov"]["remark"], "")

    # What it says.

    def test_line_for_each_file_and_a_summary(self):
        self.place("Album/song.mp3")
        self.place("Album/cover.jpg")
        result = self.prepare()
        picture, song, summary = result.out.decode().splitlines()
        size = os.path.getsize(os.path.join(self.out, "Album/song.mp3"))
        self.assertEqual(picture, f"copied: Album/cover.jpg ({os.path.getsize(self.made + '/cover.jpg')} bytes)")
        self.assertEqual(song, f"cover inserted: Album/song.mp3 ({size} bytes)")
        self.assertRegex(summary, r"^2 files: 0 converted, 1 cover inserted, 0 cleaned, 0 failed; "
                                  r"\d+ bytes in, \d+ bytes out, \d+\.\d s$")

    def test_terminal_shows_a_bar_and_what_needs_attention(self):
        for i in range(5):
            self.place(f"{i}.mp3", "good.mp3")
        self.place("a/fragments.m4a")
        self.place("a/cover.jpg")
        os.symlink("missing", os.path.join(self.source, "dangling"))
        leader, follower = pty.openpty()
        process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out], stdin=subprocess.DEVNULL,
                                   stdout=follower, stderr=follower, env={**self.environment, "TERM": "xterm"})
        os.close(follower)
        shown = b""
        while True:
            try:
                piece = os.read(leader, 4096)
            except OSError:  # The other end is closed.
                break
            if not piece:
                break
            shown += piece
        os.close(leader)
        self.assertEqual(process.wait(), 1)
        self.assertIn(b" of 7 files, ", shown)
        lines = [line.split(b"\x1b[K")[-1].decode() for line in shown.split(b"\r\n")]
        kept = [line for line in lines if line]
        self.assertEqual(len(kept), 3, kept)
        self.assertIn("dangling: No such file or directory", kept[0])
        self.assertTrue(kept[1].startswith("copied: a/fragments.m4a ("), kept)
        self.assertIn("copied as it is: ", kept[1])
        self.assertTrue(kept[2].startswith("7 files: "), kept)

    def test_wrong_usage(self):
        for arguments in ((), (self.source,), ("--to", self.out), (self.source, "--to", self.out, "-j", "0"),
                          (self.source, "--to", ""), (self.source, "--to", self.out, "-j", "x"), (self.source, "--to", self.out, "-j", "-1")):
            with self.subTest(arguments=arguments):
                self.assert_usage_error(run("prepare", *arguments))
        self.assertFalse(os.path.exists(self.out))

    def test_target_that_is_no_folder(self):
        self.write("out", b"a file")
        self.assertEqual(self.prepare().status, 1)
        self.assertEqual(self.read(self.out), b"a file")

    # Large collections, and how a run ends.

    def place_collection(self, count):
        """Files in folders of a hundred: mostly to be copied, some with covers to be inserted."""
        song = self.read(os.path.join(self.made, "song.mp3"))
        for i in range(count):
            folder = os.path.join(self.source, str(i // 100))
            os.makedirs(folder, exist_ok=True)
            if i % 100 == 0:
                self.place(f"{i // 100}/cover.jpg")
            elif i % 10 == 0:
                self.put(f"{i // 100}/{i}.mp3", song)
            else:
                os.link(os.path.join(self.made, "good.mp3"), os.path.join(folder, f"{i}.mp3"))

    def test_two_thousand_files(self):
        self.place_collection(2000)
        before = self.hashes(self.source)
        files, summary = self.prepared()
        self.assertEqual((summary["files"], summary["failed"], summary["coversInserted"]), (2000, 0, 180))
        self.assertEqual((len(files), self.hashes(self.source)), (2000, before))
        self.assertTrue(all(file["predictedSize"] == file["size"] for file in files.values()))

    def start(self, *arguments, **options):
        return subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out, *arguments], env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, **options)

    def wait_for_some_files(self):
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline and not any(
                names for where, _, names in os.walk(self.out) if not where.endswith(NAMES_THAT_ARE_TRIED)):
            time.sleep(0.005)

    def test_killed_in_the_middle(self):
        self.place_collection(1000)
        before = self.hashes(self.source)
        whole, _ = self.prepared()
        expected = self.hashes(self.out)
        shutil.rmtree(self.out)
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            with self.subTest(number=number):
                process = self.start()
                self.wait_for_some_files()
                process.send_signal(number)
                self.assertEqual(process.wait(timeout=30), -number)
                found = self.hashes(self.out)
                self.assertLess(len(found), len(expected))
                if number == signal.SIGKILL:  # Hidden parts only where a file cannot do without a name.
                    found = {name: content for name, content in found.items()
                             if ".kxmd-part-" not in name and NAMES_THAT_ARE_TRIED not in name}
                    shutil.rmtree(os.path.join(self.out, NAMES_THAT_ARE_TRIED), ignore_errors=True)
                self.assertEqual(found, {name: expected[name] for name in found})
                self.assertEqual(self.hashes(self.source), before)
                if number != signal.SIGKILL:
                    self.assert_no_temporary_files()
                shutil.rmtree(self.path("cache"), ignore_errors=True)
        self.assertEqual(self.prepare().status, 0)
        self.assertEqual(self.hashes(self.out), expected)

    def test_phone_card_is_left_without_parts(self):
        self.place_collection(1000)
        self.environment = on_card(self.environment)
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number=number):
                process = self.start()
                self.wait_for_some_files()
                process.send_signal(number)
                self.assertEqual(process.wait(timeout=30), -number)
                self.assertEqual([name for name in self.hashes(self.out) if ".kxmd-part-" in name], [])
        result = self.prepare()
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(self.hashes(self.out).keys(), self.hashes(self.source).keys())

    def test_signal_ends_conversions_and_removes_their_files(self):
        encode(os.path.join(self.source, "long.m4a"), *tone(900), "-c:a", "alac")
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL):
            with self.subTest(number=number):
                process = self.start()
                converters = self.converters_of(process)
                time.sleep(0.3)  # Until the converter's libraries are loaded, it does not know its parent.
                process.send_signal(number)
                self.assertEqual(process.wait(timeout=30), -number)
                deadline = time.monotonic() + 10
                while time.monotonic() < deadline and any(self.is_running(converter) for converter in converters):
                    time.sleep(0.02)
                self.assertFalse([converter for converter in converters if self.is_running(converter)])
                self.assertEqual(self.listed(), [])
                if number != signal.SIGKILL:
                    self.assert_no_temporary_files()

    def test_interrupt_of_the_whole_group_is_no_failure_of_a_file(self):
        for i in range(4):
            encode(os.path.join(self.source, f"{i}.m4a"), *tone(300), "-c:a", "alac")
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGINT, signal.SIGTERM):
            process = self.start("-j", "4", "--json", start_new_session=True, stderr=subprocess.PIPE)
            self.converters_of(process)
            os.killpg(process.pid, number)  # As a terminal does.
            _, errors = process.communicate(timeout=30)
            self.assertEqual((process.returncode, errors), (-number, b""))
            self.assertEqual(self.listed(), [])

    def converters_of(self, process):
        """Waits until a converter is under way."""
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            found = subprocess.run(["ps", "-o", "pid=,comm=", "--ppid", str(process.pid)], stdout=subprocess.PIPE,
                                   check=False).stdout.decode().split("\n")
            converters = [line.split()[0] for line in found if "afconvert" in line]
            if converters:
                return converters
            time.sleep(0.01)
        self.fail("no conversion was started")

    def is_running(self, process):
        try:
            return self.read(f"/proc/{process}/stat").split(b") ")[1][:1] != b"Z"
        except FileNotFoundError:
            return False

    def test_ignored_signal_stays_ignored(self):
        self.place_collection(300)
        process = self.start(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        self.wait_for_some_files()
        process.send_signal(signal.SIGHUP)
        self.assertEqual(process.wait(timeout=60), 0)

    def test_folders_of_killed_runs_are_removed(self):
        """And no others: neither one that is in use nor one that is not the command's."""
        self.place("lossless.m4a")
        temporary = self.path("cache/kxmd/tmp")
        for name in ("run-killed", "run-alive", "other"):
            os.makedirs(os.path.join(temporary, name))
            self.write(os.path.join(temporary, name, "file"), b"")
        alive = os.open(os.path.join(temporary, "run-alive"), os.O_RDONLY)
        self.addCleanup(os.close, alive)
        fcntl.flock(alive, fcntl.LOCK_SH)
        self.assertEqual(self.prepare().status, 0)
        self.assertEqual(sorted(os.listdir(temporary)), ["other", "run-alive"])

    def test_what_hosts_forgot_is_removed_after_two_days(self):
        self.place("lossless.m4a")
        temporary = self.path("cache/kxmd/tmp")
        for name, days in (("metadata-video-old", 3), ("metadata-video-new", 1)):
            os.makedirs(os.path.join(temporary, name))
            self.write(os.path.join(temporary, name, "file"), b"")
            self.make_old(os.path.join(temporary, name), days)
        for name, days in (("converted-old", 3), ("converted-new", 1)):
            self.make_old(self.write(os.path.join(temporary, name), b""), days)
        self.prepare()
        self.assertEqual(sorted(os.listdir(temporary)), ["converted-new", "metadata-video-new"])

    def make_old(self, path, days):
        long_ago = time.time() - days * 24 * 3600
        os.utime(path, (long_ago, long_ago))

    def test_too_few_threads_slow_the_work_down_only(self):
        self.place_collection(50)
        self.environment = preloading("KXMD_FEW_THREADS", self.environment)
        for most in range(5):  # The first waits for signals.
            self.environment["KXMD_MOST_THREADS"] = str(most)
            result = self.prepare("-j", "8")
            self.assertEqual((result.status, result.errors), (0, []))
            self.assertEqual(self.hashes(self.out).keys(), self.hashes(self.source).keys())
            shutil.rmtree(self.out)

    def test_reader_that_goes_away_does_not_stop_the_work(self):
        self.place_collection(300)
        process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out, "--json"],
                                   env=self.environment, stdout=subprocess.PIPE)
        process.stdout.readline()
        process.stdout.close()
        self.assertEqual(process.wait(timeout=60), 1)
        self.assertEqual(len(self.hashes(self.out)), 300)
