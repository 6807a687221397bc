import filecmp
import os
import resource
import shutil
import signal
import struct
import subprocess
import sys
import time

import pictures
from audio import attached, encode, pattern, samples, tone
from support import (COMMAND, CommandTestCase, atom, mp4, on_card, preloading, run, sound_entry, tag_atom, track, user_data,
                     video_entry)

TITLE = tag_atom(b"\xa9nam", "Title")


class EditTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.out = self.path("out")
        self.picture = self.write("picture.png", pictures.solid(300, 200, pictures.RED))

    def read(self, path):
        with open(path, "rb") as file:
            return file.read()

    def music(self, name, *codec):
        """Music that takes a cover."""
        return encode(self.path(name), *tone(), *codec, "-metadata", "title=Title")

    def both(self):
        return self.music("a.m4a", "-c:a", "aac"), self.music("a.mp3")

    def assert_done(self, result, path, **sizes):
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(result.objects(), [{"path": path, **sizes}])

    def assert_refused(self, result, path):
        """Ended with 1, one line and an object that both give the reason, and nothing written."""
        self.assertEqual((result.status, len(result.errors)), (1, 1), result.errors)
        size = os.path.getsize(path)
        found, = result.objects()
        reason = found.pop("reason")
        self.assertEqual(found, {"path": path, "ok": False, "bytesBefore": size, "bytesAfter": size})
        self.assertEqual(result.errors[0], f"kxmd: {path}: {reason}")
        self.assertFalse(os.path.exists(self.out))
        return reason

    # Covers.

    def test_added_cover_is_extracted_at_its_own_size(self):
        for path in self.both():
            with self.subTest(path=path):
                content = self.read(path)
                result = run("cover", "add", "--json", path, self.picture, "-o", self.out)
                self.assert_done(result, path, ok=True, bytesBefore=len(content),
                                 bytesAfter=os.path.getsize(self.out))
                self.assertGreater(os.path.getsize(self.out), len(content))
                self.assertEqual(self.read(path), content)
                info, = run("info", "--json", self.out).objects()
                self.assertEqual((info["tags"]["Name"], info["cover"]["valid"]), ("Title", True))
                self.assertEqual(samples(self.out), samples(path))

                extracted = self.path("extracted.png")
                result = run("cover", "extract", "--json", self.out, "-o", extracted)
                size = os.path.getsize(self.out)
                self.assert_done(result, self.out, ok=True, bytesBefore=size, bytesAfter=size)
                found = pictures.Picture(self.read(extracted))
                self.assertEqual(found.size, (300, 200))
                self.assertGreater(found.pixel(150, 100)[0], 240)
                os.remove(self.out)

    def test_removed_cover_leaves_the_file_as_it_was_without(self):
        for path in self.both():
            with self.subTest(path=path):
                covered, bare = self.path("covered"), self.path("bare")
                self.assertEqual(run("cover", "add", path, self.picture, "-o", covered).status, 0)
                result = run("cover", "remove", "--json", covered, "-o", bare)
                self.assert_done(result, covered, ok=True, bytesBefore=os.path.getsize(covered),
                                 bytesAfter=os.path.getsize(bare))
                self.assertEqual(self.read(bare), self.read(path))

    def test_cover_replaces_those_before(self):
        for name, codec in (("a.m4a", "aac"), ("a.mp3", "libmp3lame")):
            with self.subTest(name=name):
                source = encode(self.path(name), *attached(self.picture, *tone()), "-c:a", codec)
                green = self.write("green.png", pictures.solid(20, 20, pictures.GREEN))
                self.assertEqual(run("cover", "add", source, green, "-o", self.out).status, 0)
                extracted = self.path("e.png")
                self.assertEqual(run("cover", "extract", self.out, "-o", extracted).status, 0)
                self.assertEqual(pictures.Picture(self.read(extracted)).size, (20, 20))

    def test_text_says_what_was_done_in_one_line(self):
        path = self.music("a.mp3")
        size = os.path.getsize(path)
        result = run("cover", "add", path, self.picture, "-o", self.out)
        self.assertEqual(result.out.decode(),
                         f"cover added: {size} bytes before, {os.path.getsize(self.out)} after\n")
        result = run("cover", "remove", path, "-o", self.out)
        self.assertEqual(result.out.decode(), f"covers removed: {size} bytes before, {size} after\n")

    def test_file_without_a_cover_has_none_to_extract(self):
        for path in self.both():
            self.assertIn("no cover", self.assert_refused(
                run("cover", "extract", "--json", path, "-o", self.path("out.png")), path))

    def test_file_that_takes_no_cover_is_refused(self):
        table = track(b"soun", sound_entry(2))
        for name, content in (("text", b"Dear diary"), ("empty", b""), ("jpeg", b"\xff\xd8\xff\xe0" + bytes(20)),
                              ("no-tags.m4a", mp4(table)), ("no-table.m4a", mp4(user_data(TITLE))),
                              ("id3v2.1.mp3", b"ID3\x01\0\0\0\0\0\x20" + bytes(100))):
            with self.subTest(name=name):
                path = self.write(name, content)
                reason = self.assert_refused(
                    run("-q", "cover", "add", "--json", path, self.picture, "-o", self.out), path)
                self.assertIn(reason, ("has no place for a cover", "is neither an MP3 file with tags nor an MP4 file"))

    def test_file_that_is_no_music_is_refused_even_by_force(self):
        for name, content in (("text", b"Dear diary"), ("empty", b""), ("jpeg", b"\xff\xd8\xff\xe0" + bytes(20))):
            for action, *picture in (("remove",), ("add", self.picture)):
                with self.subTest(name=name, action=action):
                    path = self.write(name, content)
                    result = run("cover", action, "--json", "--force", path, *picture, "-o", self.out)
                    self.assertEqual(self.assert_refused(result, path),
                                     "is neither an MP3 file with tags nor an MP4 file")

    def test_cover_too_large_for_the_size_of_a_frame_is_refused(self):
        frame = b"TT2" + (6).to_bytes(3, "big") + b"\0Title"
        path = self.write("v22.mp3", b"ID3\2\0\0" + bytes((0, 0, 0, len(frame))) + frame + bytes(400))
        # Noise of 20 million pixels is more than the 16 MiB that 24 bits can tell.
        width, height = 5000, 4000
        header = struct.pack("<2sIIIIiiHHIIiiII", b"BM", 54 + 3 * width * height, 0, 54, 40, width, height, 1, 24,
                             0, 0, 0, 0, 0, 0)
        noise = self.write("noise.bmp", header + os.urandom(3 * width * height))
        self.assert_refused(run("cover", "add", "--json", path, noise, "-o", self.out), path)
        self.assertEqual(run("cover", "add", path, self.picture, "-o", self.out).status, 0)

    def test_file_larger_than_any_disk_leaves_nothing(self):
        path = self.music("a.mp3")
        os.truncate(path, 1 << 43)
        result = run("cover", "remove", "--json", path, "-o", self.out, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (100000, 100000)))
        self.assert_failure(result, self.out, "File too large")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mp3", "picture.png"])

    def test_file_that_is_not_a_picture_is_refused(self):
        path = self.music("a.mp3")
        for name, content in (("text.png", b"Dear diary"), ("empty.png", b"")):
            picture = self.write(name, content)
            self.assert_failure(run("cover", "add", path, picture, "-o", self.out), picture,
                                "is not a picture that can be read")
        self.assertFalse(os.path.exists(self.out))

    def test_file_that_cannot_be_read(self):
        os.mkfifo(self.path("fifo"))
        for path in (self.path("missing"), self.folder, self.path("fifo"), "/dev/zero"):
            for action in (("cover", "extract", path, "-o", self.path("out.png")),
                           ("cover", "remove", path, "-o", self.out),
                           ("cover", "add", path, self.picture, "-o", self.out),
                           ("clean", path, "-o", self.out), ("convert", path, "-o", self.out)):
                with self.subTest(action=action):
                    self.assert_failure(run(*action), path)
        picture = self.path("missing.png")
        self.assert_failure(run("cover", "add", self.music("a.mp3"), picture, "-o", self.out), picture)
        self.assertFalse(os.path.exists(self.out))

    def test_objects_tell_what_standard_error_tells(self):
        music, missing = self.music("a.mp3"), self.path("missing")
        size = os.path.getsize(music)
        unread = {"path": missing, "ok": False, "bytesBefore": 0, "bytesAfter": 0, "reason": "cannot be read"}
        unwritten = {"path": music, "ok": False, "bytesBefore": size, "bytesAfter": size,
                     "reason": "its output cannot be written"}
        for action, *others in (("cover", "extract"), ("cover", "remove"), ("cover", "add"), ("clean",), ("convert",)):
            picture = [self.picture] if "add" in others else []
            out = "out.png" if "extract" in others else "out"
            with self.subTest(action=action, others=others):
                words = (action, *others, "--json")
                self.assertEqual(run(*words, missing, *picture, "-o", self.path(out)).objects(), [unread])
                nowhere = self.path("no-folder/" + out)
                result = run(*words, music, *picture, "-o", nowhere)
                self.assert_failure(result, nowhere, "No such file or directory")
                self.assertEqual(result.objects(), [unwritten])
        words = ("cover", "add", "--json", music)
        result = run(*words, missing, "-o", self.out)
        self.assert_failure(result, missing)
        self.assertEqual(result.objects(), [{**unwritten, "reason": "there is no picture to insert"}])
        self.assertFalse(os.path.exists(self.out))

    def test_place_of_the_result_is_looked_at_before_the_work(self):
        nowhere = self.path("no-folder/out")
        for action in ("clean", "convert"):  # What the converter says of the text comes first, were it run.
            self.assert_failure(run(action, self.write("text", b"Dear diary"), "-o", nowhere), nowhere)

    def test_cover_that_reaches_into_the_sound_is_refused_unless_forced(self):
        content = self.read(self.music("a.mp3"))
        tag = b"ID3\3\0\0" + bytes((0, 0, 0, 60))
        cover = b"APIC" + (500).to_bytes(4, "big") + bytes(2)
        path = self.write("wild.mp3", tag + cover + bytes(50) + content[content.index(b"\xff\xfb"):])
        for words in (("add", self.picture), ("remove",)):
            command = ("cover", words[0], "--json", path, *words[1:], "-o", self.out)
            self.assertEqual(self.assert_refused(run(*command), path), "a cover runs past the end of the tag")
        forced = run("cover", "remove", "--json", "--force", path, "-o", self.out)
        self.assert_done(forced, path, ok=True, bytesBefore=os.path.getsize(path),
                         bytesAfter=os.path.getsize(path) - 510)

    def test_tag_that_others_read_in_another_way_is_refused(self):
        title = b"TIT2" + bytes((0, 0, 0, 6, 0, 0)) + b"\0Title"
        extended = bytes((0, 0, 0, 6, 1, 0))
        path = self.write("extended.mp3", b"ID3\4\0\x40" + bytes((0, 0, 0, 36)) + extended + bytes(4) + title + bytes(300))
        self.assertEqual(self.assert_refused(run("-q", "cover", "add", "--json", path, self.picture, "-o", self.out), path),
                         "frames of its tag would not be found by other programs")

    def test_edit_that_would_break_the_media_is_refused_unless_forced(self):
        path = self.music("a.m4a", "-c:a", "aac", "-movflags", "frag_keyframe+empty_moov")
        for action in (("add", path, self.picture), ("remove", path)):
            with self.subTest(action=action):
                name, *inputs = action
                command = ("cover", name, "--json", *inputs, "-o", self.out)
                if name == "add":
                    self.assertIn("fragment", self.assert_refused(run(*command), path))
                forced = run(*command, "--force")
                self.assert_done(forced, path, ok=True, bytesBefore=os.path.getsize(path),
                                 bytesAfter=os.path.getsize(self.out))
                os.remove(self.out)

    # Where the result goes.

    def test_result_is_never_written_over_an_input(self):
        music = self.music("a.mp3")
        os.link(music, self.path("link"))
        os.symlink("a.mp3", self.path("symbolic"))
        before, picture = self.read(music), self.read(self.picture)
        for out in (music, self.path("link"), self.path("symbolic"), self.path("./a.mp3")):
            for action in (("cover", "remove", music), ("cover", "add", music, self.picture), ("clean", music),
                           ("convert", music)):
                with self.subTest(out=out, action=action):
                    self.assert_failure(run(*action, "-o", out), out, "is the input itself")
        self.assert_failure(run("cover", "add", music, self.picture, "-o", self.picture), self.picture,
                            "is the input itself")
        self.assertEqual((self.read(music), self.read(self.picture)), (before, picture))

    def test_result_goes_where_a_link_leads(self):
        music = self.music("a.mp3")
        os.mkdir(self.path("elsewhere"))
        behind = self.path("elsewhere/behind")
        os.symlink("behind", self.path("elsewhere/second"))
        for before in (None, b"as it was"):
            for link in ("elsewhere/behind", "elsewhere/second", behind):
                if before:
                    self.write("elsewhere/behind", before)
                os.symlink(link, self.out)
                self.assertEqual(run("cover", "remove", music, "-o", self.out).errors, [])
                self.assertTrue(os.path.islink(self.out))
                self.assertFalse(os.path.islink(behind))
                self.assertEqual(self.read(behind), self.read(music))
                os.remove(self.out)
                os.remove(behind)
        os.symlink("out", self.out)
        self.assert_failure(run("cover", "remove", music, "-o", self.out), self.out,
                            "Too many levels of symbolic links")

    def test_replaced_file_stays_as_private_as_it_was(self):
        music = self.music("a.mp3")
        for mode in (0o600, 0o640, 0o444, 0o777):
            self.write("out", b"as it was")
            os.chmod(self.out, mode)
            self.assertEqual(run("cover", "remove", music, "-o", self.out).errors, [])
            self.assertEqual(os.stat(self.out).st_mode & 0o7777, mode)
            os.remove(self.out)

    def test_result_is_as_private_as_its_input(self):
        self.addCleanup(os.umask, os.umask(0o022))
        music, recording = self.music("a.mp3"), self.recording()
        for mode in (0o600, 0o640, 0o644):
            for action in (("cover", "remove", music), ("clean", recording)):
                os.chmod(action[-1], mode)
                self.assertEqual(run(*action, "-o", self.out).errors, [])
                self.assertEqual(os.stat(self.out).st_mode & 0o777, mode)
                os.remove(self.out)

    def test_picture_takes_away_who_may_read_and_no_more(self):
        self.addCleanup(os.umask, os.umask(0o022))
        music, picture = self.music("a.mp3"), shutil.copy(self.picture, self.path("picture.jpg"))
        for of_music, of_picture, of_result in ((0o644, 0o444, 0o644), (0o644, 0o600, 0o600), (0o444, 0o644, 0o444),
                                                (0o664, 0o640, 0o660)):
            os.chmod(music, of_music)
            os.chmod(picture, of_picture)
            self.assertEqual(run("cover", "add", music, picture, "-o", self.out).errors, [])
            self.assertEqual(os.stat(self.out).st_mode & 0o777 & ~0o022, of_result & ~0o022)
            os.remove(self.out)

    def test_result_replaces_nothing_but_files(self):
        music = self.music("a.mp3")
        os.mkfifo(self.path("fifo"))
        for out in (self.folder, self.path("fifo"), "/dev/null", self.path("missing/out")):
            with self.subTest(out=out):
                self.assert_failure(run("cover", "remove", music, "-o", out), out)
        self.assertFalse(os.path.isfile("/dev/null"))

    def test_disk_that_is_full_at_close_leaves_what_was_there(self):
        music = self.music("a.mp3")
        for place, environment in (("disk", os.environ), ("card", on_card())):
            environment = preloading("KXMD_FULL_AT_CLOSE", environment)
            for before in (None, b"before"):
                with self.subTest(place=place, before=before):
                    if before:
                        self.write("out", before)
                    result = run("cover", "add", music, self.picture, "-o", self.out, env=environment)
                    self.assertEqual((result.status, result.errors),
                                     (1, [f"kxmd: {self.out}: No space left on device"]))
                    self.assertEqual(self.read(self.out) if before else os.path.exists(self.out), before or False)
                    self.assertEqual(len(os.listdir(self.folder)), 3 if before else 2)
            os.remove(self.out)

    def test_full_disk_leaves_what_was_there(self):
        music = self.music("a.mp3")
        self.write("out", b"as it was")
        result = run("cover", "remove", music, "-o", self.out, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (1000, 1000)))
        self.assert_failure(result, self.out, "File too large")
        self.assertEqual(self.read(self.out), b"as it was")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mp3", "out", "picture.png"])

    def test_longest_name_is_no_obstacle(self):
        music = self.music("a.mp3")
        for length in (200, 255):
            out = self.path("n" * length)
            for _ in range(2):
                self.assertEqual(run("cover", "remove", music, "-o", out).errors, [])
            self.assertEqual(self.read(out), self.read(music))

    def test_phone_card_takes_results(self):
        music = self.music("a.mp3")
        for _ in range(2):  # There it is replaced.
            self.assertEqual(run("cover", "add", music, self.picture, "-o", self.out, env=on_card()).errors, [])
        self.assertEqual(run("convert", encode(self.path("b.m4a"), *tone(), "-c:a", "alac"), "-o", self.path("b.out"),
                             env=on_card()).errors, [])
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mp3", "b.m4a", "b.out", "out", "picture.png"])
        self.assertEqual(samples(self.out), samples(music))

    def test_wrong_usage(self):
        music = self.music("a.mp3")
        for arguments in (("cover",), ("cover", "frobnicate", music), ("cover", "remove", music), ("clean", music),
                          ("cover", "add", music, "-o", self.out), ("cover", "extract", music, "-o", "a.gif"),
                          ("cover", "extract", "--force", music, "-o", "a.png"), ("convert", music),
                          ("convert", "--force", music, "-o", self.out), ("clean", music, "-o", ""),
                          ("clean", music, music, "-o", self.out)):
            with self.subTest(arguments=arguments):
                self.assert_usage_error(run(*arguments))
        self.assertFalse(os.path.exists(self.out))

    # Videos.

    def recording(self, name="clip.mov", *how):
        return encode(self.path(name), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac",
                      "-metadata", "make=A Phone", "-metadata", "comment=Home", *how)

    def test_clean_removes_user_data(self):
        path = self.recording()
        size = os.path.getsize(path)
        result = run("clean", "--json", path, "-o", self.out)
        after = os.path.getsize(self.out)
        self.assert_done(result, path, changed=True, bytesBefore=size, predicted=after, bytesAfter=after)
        self.assertLess(after, size)
        self.assertNotIn(b"A Phone", self.read(self.out))
        self.assertEqual(samples(self.out), samples(path))

    def test_clean_copies_what_has_nothing_to_remove(self):
        for name, content in (("text", b"Dear diary"), ("empty", b""), ("plain.mp4", mp4(track(b"vide", video_entry(8, 8, 66, 10))))):
            with self.subTest(name=name):
                path = self.write(name, content)
                result = run("clean", "--json", path, "-o", self.out)
                self.assert_done(result, path, changed=False, bytesBefore=len(content), predicted=len(content),
                                 bytesAfter=len(content))
                self.assertEqual(self.read(self.out), content)

    def test_clean_corrects_the_last_bytes(self):
        """The file ends with its only chunk offset."""
        extra, movie = user_data(TITLE), track(b"vide", video_entry(8, 8, 66, 10))
        path = self.write("table-last.mp4", mp4(extra, movie)[:-4] + struct.pack(">I", 5000))
        self.assertEqual(run("clean", "--force", path, "-o", self.out).errors, [])
        self.assertEqual(self.read(self.out), mp4(movie)[:-4] + struct.pack(">I", 5000 - len(extra)))

    def test_clean_that_would_break_the_media_is_refused_unless_forced(self):
        path = self.recording("fragmented.mp4", "-movflags", "frag_keyframe+empty_moov")
        self.assert_refused(run("clean", "--json", path, "-o", self.out), path)
        forced = run("clean", "--json", "--force", path, "-o", self.out)
        self.assertEqual((forced.status, forced.objects()[0]["changed"]), (0, True))

    def test_clean_that_removes_nothing_of_what_it_found_is_refused_unless_forced(self):
        udta = struct.pack(">I", 5000) + b"udta" + bytes(8)
        moov = struct.pack(">I", 6000) + b"moov" + track(b"vide", video_entry(8, 8, 66, 10)) + udta
        path = self.write("short.mp4", atom(b"ftyp", b"M4V ", bytes(4)) + moov)
        self.assert_refused(run("clean", "--json", path, "-o", self.out), path)
        forced = run("clean", "--json", "--force", path, "-o", self.out)
        size = os.path.getsize(path)
        self.assert_done(forced, path, changed=False, bytesBefore=size, predicted=size - 5000 + 2 ** 64,
                         bytesAfter=size)
        self.assertEqual(self.read(self.out), self.read(path))

    # Large files.

    def enlarge(self, path, size=200 << 20):
        """Makes a file so large, with zeros behind the media."""
        content = self.read(path)
        start, end = 0, len(content)
        if not content.startswith(b"ID3"):
            start, = (start for kind, start, _ in self.atoms(content) if kind == b"mdat")
            end = start + int.from_bytes(content[start:start + 4], "big")
        with open(path, "r+b") as file:
            file.seek(size - len(content) + end)
            file.write(content[end:])
            file.truncate(size)
            file.seek(end)
            file.write(bytes(min(len(content) - end, size - len(content))))
            if start:
                file.seek(start)
                file.write(struct.pack(">I", size - len(content) + end - start))
        return path

    def atoms(self, content):
        position = 0
        while position < len(content):
            size, kind = struct.unpack_from(">I4s", content, position)
            yield kind, position, size
            position += size

    def peak_memory(self, *arguments):
        """Of the command, in MiB, as its own parent hears of it; what a tests' process took would count as well."""
        measure = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True, "
                   "stdout=subprocess.DEVNULL); print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
        return int(subprocess.check_output([sys.executable, "-c", measure, COMMAND, *arguments])) >> 10

    def large_and_small(self, make, *codec):
        """Files of the same media, moov at the end and at the start."""
        for place in ((), ("-movflags", "+faststart")) if "-c:a" in codec else ((),):
            yield self.enlarge(make("large.mov", *codec, *place)), make("small.mov", *codec, *place)

    def test_large_music_is_not_held_in_memory(self):
        cover, bare, small_cover = self.path("cover"), self.path("bare"), self.path("small")
        for codec in (("-c:a", "aac", "-f", "ipod"), ("-f", "mp3")):
            for large, small in self.large_and_small(self.music, *codec):
                with self.subTest(codec=codec):
                    most = self.peak_memory("cover", "add", small, self.picture, "-o", small_cover) + 16
                    self.assertLess(self.peak_memory("cover", "add", large, self.picture, "-o", cover), most)
                    self.assertLess(self.peak_memory("cover", "remove", cover, "-o", bare), most)
                    self.assertTrue(filecmp.cmp(bare, large, shallow=False))
                    self.assertEqual(os.path.getsize(cover) - os.path.getsize(large),
                                     os.path.getsize(small_cover) - os.path.getsize(small))
                    extracted = self.path("e.png")
                    self.assertEqual(run("cover", "extract", cover, "-o", extracted).errors, [])
                    self.assertEqual(pictures.Picture(self.read(extracted)).size, (300, 200))
                    self.assertEqual(samples(cover)[:20000], samples(small)[:20000])

    def test_large_video_is_not_held_in_memory(self):
        for large, small in self.large_and_small(self.recording, "-c:a", "aac"):
            most = self.peak_memory("clean", small, "-o", self.out) + 16
            removed = os.path.getsize(small) - os.path.getsize(self.out)
            self.assertGreater(removed, 0)
            self.assertLess(self.peak_memory("clean", large, "-o", self.out), most)
            self.assertEqual(os.path.getsize(large) - os.path.getsize(self.out), removed)
            self.assertEqual(samples(self.out), samples(small))

    # Conversions.

    def test_convert_makes_aac(self):
        path = encode(self.path("a.m4a"), *tone(), "-c:a", "alac", "-metadata", "title=Title")
        size = os.path.getsize(path)
        result = run("convert", "--json", path, "-o", self.out)
        self.assert_done(result, path, changed=True, bytesBefore=size, predicted=size,
                         bytesAfter=os.path.getsize(self.out))
        info, = run("info", "--json", self.out).objects()
        self.assertIn("AAC", info["audio"][0]["description"])
        self.assertEqual(info["tags"]["Name"], "Title")

    def test_convert_refuses_what_is_no_audio(self):
        path = self.write("text", b"Dear diary")
        result = run("convert", "--json", path, "-o", self.out)
        self.assertEqual(result.status, 1)
        self.assertTrue(result.errors[0].startswith(f"[Metadata] afconvert: {path}: "), result.errors)
        self.assertEqual(result.errors[1:], [f"kxmd: {path}: cannot be converted"])
        self.assertEqual(result.objects()[0]["ok"], False)
        self.assertFalse(os.path.exists(self.out))

    def test_convert_hears_of_the_end_of_the_converter(self):
        lossless = encode(self.path("a.m4a"), *tone(), "-c:a", "alac")
        forget = lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # As some programs leave it behind.
        self.assertEqual(run("convert", lossless, "-o", self.out, preexec_fn=forget).errors, [])

    def test_nothing_is_left_in_the_cache_folder(self):
        environment = {**os.environ, "XDG_CACHE_HOME": self.path("cache")}
        lossless = encode(self.path("a.m4a"), *tone(), "-c:a", "alac")
        for action in (("convert", lossless), ("clean", self.recording()), ("convert", self.picture)):
            run(*action, "-o", self.out, env=environment)
            self.assertEqual(os.listdir(self.path("cache/kxmd/tmp")), [])

    def test_without_a_temporary_folder_nothing_is_converted(self):
        self.write("cache", b"no folder")
        path, environment = self.recording(), {**os.environ, "XDG_CACHE_HOME": self.path("cache")}
        self.assert_failure(run("convert", path, "-o", self.out, env=environment), path,
                            "there is no temporary folder to work in")
        self.assertEqual(run("clean", path, "-o", self.out, env=environment).errors, [])

    def test_small_files_are_done_at_once(self):
        path = self.write("text", b"Dear diary")
        start = time.monotonic()
        for _ in range(10):
            run("clean", path, "-o", self.out)
        self.assertLess(time.monotonic() - start, 8)
