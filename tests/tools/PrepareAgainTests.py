import base64
import fcntl
import json
import os
import random
import shutil
import signal
import subprocess
import time

from audio import encode, pattern, probe, tone
from preparing import CONVERT, COVER, MANIFEST, PrepareTestCase
from support import COMMAND, run

DAY = 86400


class PrepareAgainTests(PrepareTestCase):
    """Runs into a folder that holds what an earlier run prepared."""

    def actions(self, *arguments, **options):
        files, self.summary = self.prepared(*arguments, **options)
        return {name: file["action"] for name, file in files.items()}

    def lines(self):
        return self.read(os.path.join(self.out, MANIFEST)).decode().splitlines()

    def state(self):
        """All that a run which does nothing must not change: bytes, times, numbers of files."""
        state = {}
        for where, _, names in os.walk(self.out):
            for path in [where, *(os.path.join(where, name) for name in names)]:
                status = os.lstat(path)
                state[path] = (status.st_ino, status.st_size, status.st_mtime_ns, status.st_ctime_ns)
        return state

    def touch(self, name, days=1):
        path = os.path.join(self.source, name)
        status = os.stat(path)
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns - days * DAY * 10**9))

    def place_three(self):
        self.place("Album/song.mp3")
        self.place("Album/lossless.m4a")
        self.place("Album/good.mp3")

    # What is up to date.

    def test_second_run_writes_nothing(self):
        self.place_three()
        self.place("Album/cover.jpg")
        self.assertEqual(set(self.actions().values()), {"edited", "converted", "copied"})
        before = self.state()
        self.assertEqual(set(self.actions().values()), {"unchanged"})
        self.assertEqual(self.state(), before)
        self.assertEqual((self.summary["unchanged"], self.summary["bytesIn"], self.summary["bytesOut"]), (4, 0, 0))

    def test_only_what_is_new_or_changed_is_done(self):
        self.place_three()
        self.prepare()
        self.place("Album/new.mp3", "song.mp3")
        self.place("Album/song.mp3", "good.mp3")
        self.touch("Album/good.mp3")
        self.assertEqual(self.actions(), {
            "Album/good.mp3": "copied", "Album/lossless.m4a": "unchanged", "Album/new.mp3": "copied",
            "Album/song.mp3": "copied"})

    def test_target_that_is_missing_or_of_another_size_is_made_again(self):
        self.place_three()
        self.prepare()
        before = self.hashes(self.out)
        os.remove(os.path.join(self.out, "Album/song.mp3"))
        with open(os.path.join(self.out, "Album/lossless.m4a"), "ab") as file:
            file.write(b"x")
        self.assertEqual(self.actions(), {
            "Album/good.mp3": "unchanged", "Album/lossless.m4a": "converted", "Album/song.mp3": "copied"})
        self.assertEqual(self.hashes(self.out), before)

    def test_times_of_targets_do_not_matter(self):
        self.place_three()
        self.prepare()
        for name in self.hashes(self.out):
            os.utime(os.path.join(self.out, name), (0, 0))
        self.assertEqual(set(self.actions().values()), {"unchanged"})

    def test_targets_have_the_times_of_their_sources(self):
        self.place_three()
        self.touch("Album/song.mp3", 300)
        self.prepare()
        for name in self.hashes(self.source):
            self.assertEqual(os.stat(os.path.join(self.out, name)).st_mtime_ns,
                             os.stat(os.path.join(self.source, name)).st_mtime_ns, name)

    def test_other_options_do_again_what_depends_on_them(self):
        self.place_three()
        self.place("Album/cover.jpg")
        self.place("Album/film.mp4")
        self.place("Album/recording.mov")
        self.prepare()
        self.assertEqual(self.actions("--cover-size", "300"), {
            "Album/cover.jpg": "unchanged", "Album/film.mp4": "unchanged", "Album/good.mp3": "copied",
            "Album/lossless.m4a": "converted", "Album/recording.mov": "unchanged", "Album/song.mp3": "edited"})
        self.assertEqual(self.actions("--cover-size", "300", "--no-clean"), {
            "Album/cover.jpg": "unchanged", "Album/film.mp4": "copied", "Album/good.mp3": "unchanged",
            "Album/lossless.m4a": "unchanged", "Album/recording.mov": "copied", "Album/song.mp3": "unchanged"})
        self.prepare()
        self.prepare("--cover-size", "300")
        self.assertEqual(set(self.actions("--cover-size", "300").values()), {"unchanged"})

    def test_another_picture_beside_the_music_does_it_again(self):
        self.place_three()
        self.assertEqual(self.actions()["Album/song.mp3"], "copied")
        self.place("Album/cover.jpg")
        self.assertEqual(self.actions(), {"Album/cover.jpg": "copied", "Album/good.mp3": "unchanged",
                                          "Album/lossless.m4a": "converted", "Album/song.mp3": "edited"})
        self.touch("Album/cover.jpg")
        self.assertEqual(self.actions()["Album/song.mp3"], "edited")

    def test_checksums_tell_by_contents(self):
        self.place_three()
        self.prepare("--checksum")
        before = self.state()
        self.assertEqual(set(self.actions("--checksum").values()), {"unchanged"})
        self.assertEqual(self.state(), before)
        self.touch("Album/song.mp3")
        self.assertEqual(set(self.actions("--checksum").values()), {"unchanged"})
        self.assertEqual(set(self.actions().values()), {"unchanged"})  # The new time is known by now.
        path = os.path.join(self.source, "Album/song.mp3")
        status = os.stat(path)
        with open(path, "r+b") as file:
            file.seek(-1, os.SEEK_END)
            file.write(b"!")
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))
        self.assertEqual(self.actions("--checksum")["Album/song.mp3"], "copied")
        self.assertEqual(self.hashes(self.out)["Album/song.mp3"], self.hashes(self.source)["Album/song.mp3"])

    # The record.

    def test_record_is_a_line_of_json_for_each_file(self):
        self.place("Album/song.mp3")
        self.prepare()
        rules, song = map(json.loads, self.lines())
        status = os.stat(os.path.join(self.source, "Album/song.mp3"))
        self.assertEqual(rules["manifest"], 1)
        self.assertEqual({key: song[key] for key in ("source", "size", "modified", "target", "targetSize")}, {
            "source": os.path.join(self.source, "Album/song.mp3"), "size": status.st_size,
            "modified": status.st_mtime_ns, "target": "Album/song.mp3", "targetSize": status.st_size})

    def test_record_that_was_cut_off_or_damaged_costs_only_what_is_missing(self):
        for i in range(8):
            self.place(f"{i}.mp3", "song.mp3")
        self.prepare()
        whole = self.read(os.path.join(self.out, MANIFEST))
        for damaged in (whole[:-7], whole[:-1], whole + b'{"target":', b"\xff\0nonsense\n" + whole, whole * 2,
                        whole + b'{"target":"../outside","targetSize":1}\n[]\n3\n', b""):
            self.write(os.path.join(self.out, MANIFEST), damaged)
            actions = self.actions()
            self.assertEqual(set(actions), {f"{i}.mp3" for i in range(8)})
            self.assertLessEqual(list(actions.values()).count("copied"), 8 if not damaged else 1, damaged[-50:])
            self.assertEqual(set(self.actions().values()), {"unchanged"})
            self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_record_does_not_grow_for_ever(self):
        for i in range(60):
            self.put(f"{i}.txt", b"text")
        for days in range(1, 8):
            for i in range(60):
                self.touch(f"{i}.txt", days)
            self.prepare()
        self.assertLessEqual(len(self.lines()), 240)
        self.assertEqual(set(self.actions().values()), {"unchanged"})

    def test_names_of_any_bytes_are_recorded(self):
        name = b"caf\xe9\n\x1b.mp3"
        shutil.copy(os.path.join(self.made, "song.mp3"), os.path.join(self.source.encode(), name))
        result = self.prepare("--json")
        file, _ = result.objects()
        self.assertEqual(base64.b64decode(file["pathBytes"]), os.path.join(self.source.encode(), name))
        self.assertEqual(base64.b64decode(file["targetBytes"]), os.path.join(self.out.encode(), name))
        self.assertNotIn(b"\x1b", result.out)
        self.assertEqual(self.prepare("--json").objects()[0]["action"], "unchanged")

    def test_record_that_is_no_file_is_an_error(self):
        self.place_three()
        os.mkdir(self.out)
        os.mkfifo(os.path.join(self.out, MANIFEST))
        self.assert_failure(self.prepare(), os.path.join(self.out, MANIFEST), "cannot be read: is not a regular file")

    def test_record_of_a_later_version_is_left_alone(self):
        self.place_three()
        os.mkdir(self.out)
        path = self.write(os.path.join(self.out, MANIFEST), b'{"manifest":2}\n')
        self.assert_failure(self.prepare(), path, "cannot be read: was written by a later version")
        self.assertEqual(self.read(path), b'{"manifest":2}\n')

    def test_record_made_by_hand_harms_no_other_files(self):
        """Its paths stay in the folder, and its rules are no stranger than those of a file system."""
        self.place_three()
        self.write("mine.txt", b"x")
        os.mkdir(self.out)
        self.write("out/mine.txt", b"x")
        entry = '{"source":"%s/gone","size":1,"modified":1,"target":"%s","targetSize":1}\n'
        lines = '{"manifest":1,"longest":0,"refused":"abcdefgimnosu."}\n'
        for target in ("mine.txt\\u0000z", "../mine.txt", "Album/../../mine.txt", self.path("mine.txt")):
            lines += entry % (self.source, target)
        self.write(os.path.join(self.out, MANIFEST), lines.encode())
        self.assertEqual(self.prepare("--delete-many").status, 0)
        self.assertEqual(self.read(self.path("mine.txt")) + self.read(self.path("out/mine.txt")), b"xx")
        self.assertEqual(set(self.hashes(self.out)),
                         {"mine.txt", "Album/good.mp3", "Album/lossless.m4a", "Album/song.mp3"})

    def test_record_is_read_the_same_in_any_form(self):
        self.place_three()
        self.place("Album/cover.jpg")
        self.prepare("--playlist", "Mix")
        path = os.path.join(self.out, MANIFEST)
        plain = self.lines()
        self.write(path, b"".join(json.dumps(json.loads(line), indent=None).encode() + b"\n" for line in plain))
        self.assertEqual(set(self.actions("--playlist", "Mix").values()), {"unchanged"})
        self.assertEqual(len(self.lines()), len(plain))

    # Other names.

    def test_source_that_lies_in_the_target_is_not_moved_or_removed(self):
        song = self.put("A/B/x", b"x")
        self.put("A/B/y", b"y")
        self.prepare()
        prepared = os.path.join(self.out, "A/B/x")
        self.assertEqual(self.prepare(song, os.path.join(self.out, "A") + "/").errors, [])
        self.assertEqual(set(self.hashes(self.out)), {"x", "A/B/x", "A/B/y", "B/x", "B/y"})
        os.remove(os.path.join(self.out, "x"))
        self.prepare()
        self.touch("A/B/x")  # Prepared under another name now, as what is not up to date.
        self.assertEqual(self.prepare(song, os.path.join(self.out, "A") + "/").errors, [])
        self.assertEqual(self.read(prepared), b"x")
        self.prepare()
        os.remove(song)
        self.assertEqual(self.prepare(self.source + "/", os.path.join(self.out, "A") + "/", "--delete-many").errors, [])
        self.assertEqual(self.read(prepared), b"x")

    def test_another_file_with_the_time_of_one_that_is_gone(self):
        self.put("x/01", b"AAA")
        self.put("y/02", b"CCC")
        for name in ("x/01", "y/02"):
            os.utime(os.path.join(self.source, name), (0, 10**9))
        self.prepare()
        os.rename(os.path.join(self.source, "x/01"), self.path("kept"))
        os.utime(self.put("y/01", b"BBB"), (0, 10**9))
        self.assertEqual(self.actions()["y/01"], "copied")
        self.assertEqual(self.read(os.path.join(self.out, "y/01")), b"BBB")

    def test_collection_that_moved_is_up_to_date(self):
        self.place_three()
        self.prepare()
        before = self.hashes(self.out)
        moved = self.path("moved")
        os.rename(self.source, moved)
        self.source = moved
        self.assertEqual(set(self.actions().values()), {"unchanged"})
        self.assertEqual(set(self.actions().values()), {"unchanged"})
        self.assertEqual(self.hashes(self.out), before)

    def test_file_that_moved_is_renamed(self):
        self.place_three()
        self.prepare()
        inode = os.stat(os.path.join(self.out, "Album/lossless.m4a")).st_ino
        os.makedirs(os.path.join(self.source, "Best"))
        os.rename(os.path.join(self.source, "Album/lossless.m4a"), os.path.join(self.source, "Best/lossless.m4a"))
        self.assertEqual(self.actions()["Best/lossless.m4a"], "renamed")
        self.assertEqual(os.stat(os.path.join(self.out, "Best/lossless.m4a")).st_ino, inode)
        self.assertEqual(set(self.hashes(self.out)), {"Album/good.mp3", "Album/song.mp3", "Best/lossless.m4a"})
        self.assertEqual(set(self.actions().values()), {"unchanged"})

    def test_folder_whose_name_is_kept_now_is_renamed(self):
        self.place_three()
        self.prepare()
        self.assertEqual(set(self.actions(self.source).values()), {"renamed"})
        self.assertEqual(set(self.hashes(self.out)),
                         {f"source/Album/{name}" for name in ("good.mp3", "lossless.m4a", "song.mp3")})
        self.assertNotIn("Album", os.listdir(self.out))

    def test_file_that_is_prepared_under_two_names_is_up_to_date_under_both(self):
        self.place("Album/song.mp3")
        self.place("Album/lossless.m4a")
        self.place("Album/cover.jpg")
        encode(os.path.join(self.source, "Album/a.flac"), *tone())
        folder = os.path.join(self.source, "Album")
        names = {"song.mp3", "lossless.m4a", "cover.jpg", "a.m4a"}
        both = names | {"Album/" + name for name in names}
        for paths in ((folder, folder + "/"), (folder + "/", folder)):
            self.assertEqual(set(self.actions(*paths)), both)
            before, lines = self.state(), self.lines()
            for again in (paths, paths[::-1], (folder,), (folder + "/",)):
                self.assertEqual(set(self.actions(*again).values()), {"unchanged"}, again)
            self.assertEqual((self.state(), self.lines()), (before, lines))
            shutil.rmtree(self.out)

    def test_file_that_gets_a_second_name_keeps_the_first(self):
        self.place("Album/song.mp3")
        folder = os.path.join(self.source, "Album")
        self.prepare(folder)
        self.assertEqual(self.actions(folder, folder + "/"), {"Album/song.mp3": "unchanged", "song.mp3": "copied"})
        self.assertEqual(set(self.actions(folder, folder + "/").values()), {"unchanged"})
        self.touch("Album/song.mp3")
        self.assertEqual(set(self.actions(folder, folder + "/").values()), {"copied"})
        self.assertEqual(set(self.actions(folder, folder + "/").values()), {"unchanged"})
        os.remove(os.path.join(self.source, "Album/song.mp3"))
        self.place("Album/good.mp3")
        self.actions(folder, folder + "/", "--delete-many")
        self.assertEqual(set(self.hashes(self.out)), {"Album/good.mp3", "good.mp3"})

    def test_what_changes_its_name_leaves_no_twin(self):
        encode(os.path.join(self.source, "a.flac"), *tone())
        self.prepare("--no-convert")
        self.assertEqual(set(self.hashes(self.out)), {"a.flac"})
        self.assertEqual(self.actions(), {"a.m4a": "converted"})
        self.assertEqual(set(self.hashes(self.out)), {"a.m4a"})
        self.assertEqual(self.actions("--no-convert"), {"a.flac": "copied"})
        self.assertEqual(set(self.hashes(self.out)), {"a.flac"})

    def test_twin_that_was_changed_stays(self):
        encode(os.path.join(self.source, "a.flac"), *tone())
        self.prepare("--no-convert")
        self.write(os.path.join(self.out, "a.flac"), b"somebody else's")
        self.prepare()
        self.assertEqual(set(self.hashes(self.out)), {"a.flac", "a.m4a"})

    def test_two_files_that_swap_their_names(self):
        self.put("a.txt", b"first")
        self.put("b.txt", b"the second")
        self.prepare()
        os.rename(os.path.join(self.source, "a.txt"), self.path("kept"))
        os.rename(os.path.join(self.source, "b.txt"), os.path.join(self.source, "a.txt"))
        os.rename(self.path("kept"), os.path.join(self.source, "b.txt"))
        self.prepare()
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    # Removing.

    def place_many(self):
        for name in ("a/1", "a/2", "a/3", "b/1", "b/2", "b/3", "b/4"):
            self.put(name, name.encode())

    def test_nothing_is_removed_unasked(self):
        self.place_many()
        self.prepare()
        os.remove(os.path.join(self.source, "a/1"))
        self.actions()
        self.assertIn("a/1", self.hashes(self.out))
        self.assertEqual(self.summary["removed"], 0)

    def test_removes_what_the_sources_have_no_more(self):
        self.place_many()
        self.write("out-own", b"")
        self.prepare()
        self.write("out/a/own", b"never prepared")
        shutil.rmtree(os.path.join(self.source, "a"))
        os.mkdir(os.path.join(self.source, "a"))
        self.put("a/new", b"new")
        actions = self.actions("--delete-many")
        self.assertEqual({name for name, action in actions.items() if action == "deleted"}, {"a/1", "a/2", "a/3"})
        self.assertEqual(self.summary["removed"], 3)
        self.assertEqual(set(self.hashes(self.out)), {"a/new", "a/own", "b/1", "b/2", "b/3", "b/4"})

    def test_folders_that_get_empty_are_removed(self):
        self.place_many()
        self.prepare()
        shutil.rmtree(os.path.join(self.source, "a"))
        self.prepare("--delete-many")
        self.assertEqual(self.listed(), ["b"])

    def place_albums(self):
        for album in ("One", "Two", "Three", "Four"):
            self.place(f"{album}/song.mp3")
        self.prepare("--playlist-each-folder", "--playlist", "Mix")

    def test_playlists_of_folders_without_files_are_removed(self):
        self.place_albums()
        shutil.rmtree(os.path.join(self.source, "Two"))
        self.prepare("--playlist-each-folder")
        self.assertIn("Two/Two.m3u", self.hashes(self.out))
        self.assertEqual(self.actions("--delete", "--dry-run")["Two/Two.m3u"], "would-deleted")
        self.assertEqual(self.actions("--delete")["Two/Two.m3u"], "deleted")
        self.assertEqual(self.summary["removed"], 2)
        self.assertFalse(os.path.exists(os.path.join(self.out, "Two")))
        self.assertEqual({name for name in self.hashes(self.out) if ".m3u" in name},
                         {"Four/Four.m3u", "Mix.m3u", "One/One.m3u", "Three/Three.m3u"})
        self.assertEqual(set(self.actions("--delete").values()), {"unchanged"})

    def lists(self):
        return {name for name in self.hashes(self.out) if ".m3u" in name}

    def test_playlists_stay_where_one_of_their_songs_is_left(self):
        for album in ("One", "Two"):
            self.place(f"{album}/other.mp3", "song.mp3")
        self.place_albums()
        before = self.lists()
        for name in ("One/song.mp3", "Two/other.mp3"):
            os.remove(os.path.join(self.source, name))
        self.assertEqual(list(self.actions("--delete").values()).count("deleted"), 2)
        self.assertEqual(self.lists(), before)

    def test_playlists_without_a_song_are_removed_though_other_files_are_left(self):
        for form, backslash in (("m3u", "One/a\\b.mp3"), ("m3u8", "One/#a\\b.mp3")):
            for name in ("One/song.mp3", "One/Disc/#2.mp3", "Two/song.mp3", "Three/song.mp3", backslash):
                self.place(name, "song.mp3")
            self.place("One/booklet.jpg", "tiny.jpg")
            one = os.path.join(self.source, "One")
            self.prepare(one, "--playlist", "First", "--playlist-format", form)
            self.prepare("--playlist", "All", "--playlist-each-folder", "--playlist-format", form)
            everything = self.hashes(self.out)
            for name in ("One/song.mp3", "One/Disc/#2.mp3", backslash):
                os.remove(os.path.join(self.source, name))
            self.prepare()
            self.assertEqual(self.hashes(self.out), everything)  # Nobody asked for it.
            gone = {f"First.{form}", f"One/One.{form}", f"One/Disc/Disc.{form}"}
            would = self.actions("-n", "--delete-many")
            self.assertEqual({name for name, action in would.items() if "m3u" in name and action == "would-deleted"}, gone)
            self.assertEqual(self.hashes(self.out), everything)
            self.actions("--delete-many")
            self.assertEqual(self.lists(), {f"All.{form}", f"Three/Three.{form}", f"Two/Two.{form}"})
            self.assertEqual(set(self.actions("--delete").values()), {"unchanged"})
            shutil.rmtree(self.out)

    def test_playlist_without_a_song_is_removed_where_it_would_be_written(self):
        self.place_albums()
        self.put("notes.txt", b"text")
        one = os.path.join(self.source, "One")
        both = (one, os.path.join(self.source, "notes.txt"), "--playlist", "Rock")
        self.prepare(*both)
        os.remove(os.path.join(self.source, "One/song.mp3"))
        self.put("One/notes.txt", b"text")
        self.prepare(*both)
        self.assertIn("Rock.m3u", self.lists())
        result = self.prepare(*both, "--delete")
        self.assertEqual(result.errors, [f"kxmd: {self.out}/Rock.m3u: there is no audio to list"])
        self.assertNotIn("Rock.m3u", self.lists())

    def test_playlist_that_is_written_anew_is_not_removed(self):
        self.place_albums()
        song, other = (os.path.join(self.source, "Two", name) for name in ("song.mp3", "other.mp3"))
        self.prepare(os.path.join(self.source, "Two"), "--playlist", "Rock", "--playlist-each-folder")
        os.rename(song, other)
        self.touch("Two/other.mp3")
        actions = self.actions(os.path.join(self.source, "Two"), "--playlist", "Rock", "--playlist-each-folder",
                               "--delete")
        self.assertEqual(actions, {"Two/other.mp3": "copied", "Two/song.mp3": "deleted"})
        self.assertEqual(self.read(os.path.join(self.out, "Rock.m3u")), b".\\Two\\other.mp3")
        self.assertEqual(self.read(os.path.join(self.out, "Two/Two.m3u")), b".\\other.mp3")

    def test_playlist_of_somebody_else_stays_without_a_song(self):
        self.place_albums()
        self.write("out/mine.m3u", b".\\Two\\song.mp3")
        with open(os.path.join(self.out, "Mix.m3u"), "wb") as file:
            file.write(b".\\Two\\song.mp3")  # Of another size than the record tells.
        shutil.rmtree(os.path.join(self.source, "Two"))
        self.assertEqual(self.prepare("--delete").errors, [])
        self.assertLessEqual({"mine.m3u", "Mix.m3u"}, self.lists())

    def test_playlist_that_was_changed_or_is_anothers_stays(self):
        self.place_albums()
        shutil.rmtree(os.path.join(self.source, "Two"))
        with open(os.path.join(self.out, "Two/Two.m3u"), "ab") as file:
            file.write(b"\r\nmine.mp3")
        with open(os.path.join(self.out, "Two/mine.m3u"), "wb") as file:
            file.write(b"mine.mp3")
        result = self.prepare("--delete")
        self.assertEqual(result.errors, [
            f"kxmd: {self.out}/Two/Two.m3u: is not removed: it was changed since it was prepared"])
        self.assertEqual({name for name in self.hashes(self.out) if name.startswith("Two")},
                         {"Two/Two.m3u", "Two/mine.m3u"})
        self.assertEqual(self.prepare("--delete").status, 0)

    def test_playlists_of_what_lay_elsewhere_stay(self):
        self.place_albums()
        self.assertEqual(self.prepare(self.source + "/One", "--delete").status, 0)
        self.assertEqual({name for name in self.hashes(self.out) if "/" in name and ".m3u" in name},
                         {f"{album}/{album}.m3u" for album in ("One", "Two", "Three", "Four")})

    def test_playlists_are_no_part_of_a_third(self):
        self.place_albums()
        shutil.rmtree(os.path.join(self.source, "Two"))
        shutil.rmtree(os.path.join(self.source, "Three"))
        result = self.prepare("--delete")
        self.assertIn("2 of 4 files would be", result.errors[0])
        self.assertIn("Two/Two.m3u", self.hashes(self.out))

    def test_files_that_are_not_as_recorded_stay(self):
        self.place_many()
        self.prepare()
        self.write(os.path.join(self.out, "a/1"), b"changed on the phone")
        os.remove(os.path.join(self.source, "a/1"))
        result = self.prepare("--delete")
        self.assert_failure(result, os.path.join(self.out, "a/1"),
                            "is not removed: it was changed since it was prepared")
        self.assertEqual(self.read(os.path.join(self.out, "a/1")), b"changed on the phone")

    def test_more_than_a_third_is_rather_a_mistake(self):
        self.place_many()
        self.prepare()
        for name in ("a/1", "a/2", "a/3"):
            os.remove(os.path.join(self.source, name))
        result = self.prepare("--delete")
        self.assert_failure(result, self.out, "nothing is removed, since 3 of 7 files would be; use "
                                              "--delete-many to remove that many")
        self.assertEqual(len(self.hashes(self.out)), 7)
        self.put("a/1", b"a/1")
        self.assertEqual(list(self.actions("--delete").values()).count("deleted"), 2)

    def test_nothing_is_removed_when_a_source_is_missing_empty_or_unreadable(self):
        self.place_many()
        other = self.path("other")
        self.prepare()
        os.remove(os.path.join(self.source, "a/1"))
        said = f"kxmd: {self.out}: nothing is removed, since a source is missing, empty or cannot be read"
        os.rename(os.path.join(self.source, "b"), self.path("unplugged"))
        self.assertIn(said, self.prepare(os.path.join(self.source, "b"), self.source + "/", "--delete").errors)
        os.mkdir(os.path.join(self.source, "b"))
        self.assertIn(said, self.prepare(self.source + "/b/", "--delete").errors)
        self.assertIn(said, self.prepare(self.source + "/", other, "--delete").errors)
        self.assertEqual(len(self.hashes(self.out)), 7)

    def test_what_moved_is_renamed_and_not_removed(self):
        self.place_many()
        self.prepare()
        os.rename(os.path.join(self.source, "a"), os.path.join(self.source, "c"))
        self.assertEqual(self.actions("-n", "--delete"), {
            **{f"c/{i}": "would-renamed" for i in "123"}, **{f"b/{i}": "would-unchanged" for i in "1234"}})
        actions = self.actions("--delete-many")
        self.assertEqual({name for name, action in actions.items() if action == "renamed"}, {"c/1", "c/2", "c/3"})
        self.assertEqual(self.summary["removed"], 0)
        self.assertEqual(set(self.hashes(self.out)), {f"b/{i}" for i in "1234"} | {f"c/{i}" for i in "123"})

    def test_what_a_link_led_to_may_be_there_again(self):
        self.place_many()
        os.rename(os.path.join(self.source, "a"), self.path("disk"))
        os.symlink(self.path("disk"), os.path.join(self.source, "a"))
        self.prepare("--follow-links")
        os.rename(self.path("disk"), self.path("unplugged"))
        self.prepare("--follow-links", "--delete-many")
        self.assertEqual(len(self.hashes(self.out)), 7)

    def test_file_that_became_a_folder_makes_room(self):
        self.place_many()
        self.prepare()
        os.remove(os.path.join(self.source, "a/1"))
        self.put("a/1/new", b"new")
        self.assertEqual(self.prepare("--delete").errors, [])
        self.assertIn("a/1/new", self.hashes(self.out))

    def test_removal_that_fails_is_tried_again(self):
        self.place_many()
        self.prepare()
        os.remove(os.path.join(self.source, "a/1"))
        script = ('mount --bind "$1/a" "$1/a" && mount -o remount,bind,ro "$1/a" || exit 99\nshift; exec "$@"')
        words = ("unshare", "-m", "sh", "-c", script, "sh", self.out, COMMAND, "prepare", self.source + "/", "--to",
                 self.out, "--delete", "--json")
        done = subprocess.run(words, env=self.environment, capture_output=True, stdin=subprocess.DEVNULL)
        if done.returncode == 99 or b"unshare" in done.stderr:
            self.skipTest("file systems cannot be mounted here")
        *files, summary = map(json.loads, done.stdout.decode().splitlines())
        self.assertEqual((done.returncode, files[0]["action"], summary["failed"]), (1, "failed", 1))
        self.assertEqual(self.actions("--delete")["a/1"], "deleted")

    def test_what_lay_elsewhere_is_not_removed(self):
        self.place_many()
        self.prepare(self.source + "/a", self.source + "/b")
        shutil.rmtree(os.path.join(self.source, "a"))
        self.prepare(self.source + "/b", "--delete-many")
        self.assertEqual(len(self.hashes(self.out)), 7)

    def test_what_is_left_out_is_not_removed(self):
        self.place_many()
        self.prepare()
        self.prepare("--delete-many", "--exclude", "a")
        self.assertEqual(len(self.hashes(self.out)), 7)

    # Dry runs and space.

    def test_dry_run_tells_all_and_does_nothing(self):
        self.place_three()
        self.place("Album/cover.jpg")
        encode(os.path.join(self.source, "Album/a.flac"), *tone(3))
        would, summary = self.prepared("-n")
        self.assertFalse(os.path.exists(self.out))
        done, _ = self.prepared()
        self.assertEqual({name: file["action"] for name, file in would.items()},
                         {name: "would-" + file["action"] for name, file in done.items()})
        for name, file in done.items():
            self.assertEqual(would[name]["processors"], file["processors"], name)
            if file["action"] == "converted":
                self.assertLess(abs(would[name]["predictedSize"] - file["size"]), 0.2 * file["size"] + 30000, name)
            else:
                self.assertEqual(would[name]["predictedSize"], file["size"], name)
        self.assertGreaterEqual(summary["bytesNeeded"], sum(file["predictedSize"] for file in would.values()))
        self.assertGreater(summary["bytesAvailable"], 0)
        before = self.state()
        os.remove(os.path.join(self.source, "Album/good.mp3"))
        self.touch("Album/song.mp3")
        self.assertEqual(self.actions("-n", "--delete"), {
            "Album/a.m4a": "would-unchanged", "Album/cover.jpg": "would-unchanged",
            "Album/lossless.m4a": "would-unchanged", "Album/song.mp3": "would-edited",
            "Album/good.mp3": "would-deleted"})
        self.assertEqual(self.state(), before)

    def on_small_disk(self, kilobytes, *arguments):
        """A run into a file system of that size, in a name space of its own; skipped where that is forbidden."""
        os.makedirs(self.out, exist_ok=True)
        script = f'mount -t tmpfs -o size={kilobytes}k tmpfs "$1" || exit 99; shift; "$@"; status=$?; ls -A "$0"; exit $status'
        words = ("unshare", "-m", "sh", "-c", script, self.out, self.out, COMMAND, "prepare", self.source + "/", "--to",
                 self.out, *arguments)
        done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, env=self.environment, timeout=100)
        if done.returncode == 99 or b"unshare" in done.stderr:
            self.skipTest("file systems cannot be mounted here")
        return done

    def test_run_that_does_not_fit_says_by_how_much_and_does_nothing(self):
        self.put("a", bytes(200_000))
        self.put("b", bytes(100_000))
        done = self.on_small_disk(256)
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertRegex(done.stderr.decode(), r"lacks \d+ bytes: \d+ are needed, \d+ are free; use --anyway to start")
        done = self.on_small_disk(256, "--anyway", "-j", "1")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"\na\n", b"\n" + done.stdout)

    def test_run_that_fits_closely_begins(self):
        self.put("a", bytes(100_000))
        self.put("b", bytes(100_000))
        done = self.on_small_disk(256)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_old_file_is_there_until_the_new_one_is(self):
        for name in ("a", "b", "c"):
            self.put(name, bytes(80_000))
        self.prepare()
        self.put("a", bytes(90_000))
        before = self.hashes(self.out)
        shutil.move(self.out, self.path("full"))
        script = (f'mount -t tmpfs -o size=260k tmpfs "{self.out}" && cp -a "{self.path("full")}/." "{self.out}" || exit 99; '
                  f'"$0" prepare "{self.source}/" --to "{self.out}"; echo $?')
        os.mkdir(self.out)
        done = subprocess.run(("unshare", "-m", "sh", "-c", script, COMMAND), stdin=subprocess.DEVNULL,
                              capture_output=True, env=self.environment, timeout=100)
        if b"unshare" in done.stderr or done.returncode == 99:
            self.skipTest("file systems cannot be mounted here")
        self.assertEqual(done.stdout, b"1\n")
        self.assertIn(b" lacks ", done.stderr)
        self.assertEqual(len(before), 3)

    def test_conversions_that_fit_begin(self):
        encode(os.path.join(self.source, "a.wav"), *tone(10))  # 1.7 MB, and less than 0.4 MB as AAC.
        done = self.on_small_disk(800)
        self.assertEqual(done.returncode, 0, done.stderr)

    # Interruptions.

    def test_killed_many_times_it_ends_with_the_same_files(self):
        for album in range(12):
            for track in range(6):
                self.place(f"{album}/{track}.mp3", "good.mp3" if track % 2 else "song.mp3")
            self.place(f"{album}/cover.jpg")
            self.place(f"{album}/recording.mov")
        self.prepare(env={**self.environment})
        undisturbed = self.hashes(self.out)
        shutil.rmtree(self.out)
        kills = 0
        for _ in range(50):
            process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out],
                                       env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(random.uniform(0, 0.2))
            process.kill()
            kills += process.wait() == -signal.SIGKILL
        self.assertGreater(kills, 0)
        result = self.prepare()
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(self.hashes(self.out), undisturbed)
        self.assertEqual(set(self.actions().values()), {"unchanged"})

    def test_interrupted_run_goes_on(self):
        encode(os.path.join(self.made, "long.m4a"), *tone(20), "-c:a", "alac")
        for i in range(20):
            self.place(f"{i:02}.m4a", "long.m4a")
        process = subprocess.Popen([COMMAND, "prepare", self.source + "/", "--to", self.out, "-j", "1"],
                                   env=self.environment, stdout=subprocess.DEVNULL)
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and not (os.path.exists(os.path.join(self.out, MANIFEST))
                                                   and len(self.lines()) > 3):
            time.sleep(0.05)
        process.terminate()
        process.wait()
        done = sum('"targetSize"' in line for line in self.lines())
        self.assertEqual(list(self.actions().values()).count("unchanged"), done)
        self.assertLess(done, 20)

    def test_second_run_at_once_says_so_and_leaves(self):
        self.place_three()
        os.mkdir(self.out)
        folder = os.open(self.out, os.O_RDONLY | os.O_DIRECTORY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        result = self.prepare()
        self.assert_failure(result, self.out, "is being prepared by another run")
        self.assertEqual(os.listdir(self.out), [])
        fcntl.flock(folder, fcntl.LOCK_UN)
        self.assertEqual(self.prepare().status, 0)
