import os
import resource
import shutil
import struct

from audio import attached, cover_bytes, encode, pattern, probe, samples, silent_ape, tag_arguments, tone, TAGS
from phone_mount import exfat_card, phone
from preparing import CLEAN, CONVERT, COVER, MANIFEST, PrepareTestCase
from support import atom, mp4, preloading, run, sound_entry, tag_atom, track, user_data


class PrepareChoiceTests(PrepareTestCase):
    """What is prepared, how, and under which name."""

    def steps(self, *arguments):
        files, self.summary = self.prepared(*arguments)
        return {name: file["processors"] for name, file in files.items()}

    # Recordings, films and songs.

    def make_video(self, name, *arguments):
        return encode(os.path.join(self.source, name), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac",
                      "-metadata", "make=A Phone", "-metadata", "location=+52.5+13.4/", *arguments)

    def test_video_with_any_descriptive_tag_is_no_recording(self):
        for name, tag in (("title.mov", "title=Film"), ("artist.mp4", "artist=Somebody"), ("album.mp4", "album=Tour"),
                          ("show.mp4", "show=News"), ("keyed.mov", "title=Film")):
            keyed = ("-movflags", "use_metadata_tags") if name == "keyed.mov" else ()
            self.make_video(name, "-metadata", tag, *keyed)
        self.make_video("long.mp4", "-metadata", "title=" + "x" * 300)
        chapters = self.write("chapters", b";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1000\ntitle=One\n")
        encode(os.path.join(self.source, "chapters.mp4"), *pattern(64, 64), "-i", chapters, "-map", "0:v",
               "-map_metadata", "1", "-c:v", "mpeg4")
        steps = self.steps()
        self.assertEqual({name: done for name, done in steps.items() if done}, {})
        self.assertEqual(len(steps), 7)
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_recordings_lose_what_the_camera_wrote(self):
        self.make_video("user-data.mov")
        self.make_video("keyed.mov", "-movflags", "use_metadata_tags", "-metadata",
                        "com.apple.quicktime.location.ISO6709=+52.5+13.4/", "-metadata",
                        "com.apple.quicktime.model=Nine")
        moov_first = self.make_video("first.mov", "-movflags", "+faststart")
        without_type = self.read(moov_first)
        self.put("old.mov", without_type[20:] if without_type[4:8] == b"ftyp" else b"")
        before = {name: samples(os.path.join(self.source, name)) for name in os.listdir(self.source) if name != "old.mov"}
        steps = self.steps()
        self.assertEqual(set(map(tuple, steps.values())), {(CLEAN,)}, steps)
        for name in steps:
            content = self.read(os.path.join(self.out, name))
            for private in (b"A Phone", b"+52.5", b"Nine", b"com.apple.quicktime"):
                self.assertNotIn(private, content, name)
        for name, sound in before.items():
            self.assertEqual(samples(os.path.join(self.out, name)), sound, name)

    def place_keyed(self, name):
        """A recording with the maker as keyed metadata at the end of its movie atom, which is the last."""
        content = self.read(self.place(name, "recording.mov"))
        key = b"com.apple.quicktime.make"
        keys = atom(b"keys", bytes(4), struct.pack(">II", 1, len(key) + 8), b"mdta", key)
        values = atom(b"ilst", atom(struct.pack(">I", 1), atom(b"data", struct.pack(">II", 1, 0), b"Keyed Phone")))
        meta = atom(b"meta", atom(b"hdlr", bytes(8), b"mdta", bytes(13)), keys, values)
        moov = content.rindex(b"moov") - 4
        size = struct.pack(">I", len(content) - moov + len(meta))
        return self.put(name, content[:moov] + size + content[moov + 4:] + meta)

    def test_keyed_metadata_can_be_kept(self):
        self.place_keyed("keyed.mov")
        self.assertEqual(self.steps("--keep-metadata"), {"keyed.mov": [CLEAN]})
        content = self.read(os.path.join(self.out, "keyed.mov"))
        self.assertIn(b"Keyed Phone", content)
        self.assertNotIn(b"A Phone", content)
        self.assertEqual(self.steps(), {"keyed.mov": [CLEAN]})
        self.assertNotIn(b"Keyed Phone", self.read(os.path.join(self.out, "keyed.mov")))

    def test_audio_file_with_a_video_track_is_music(self):
        encode(os.path.join(self.source, "animated.m4a"), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac",
               "-metadata", "make=Somebody", "-f", "mp4")
        self.assertNotIn(CLEAN, self.steps("--playlist", "Mix")["animated.m4a"])
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")), b".\\animated.m4a")

    # Lossless audio.

    def test_lossless_audio_of_any_kind_is_converted(self):
        tags = tag_arguments(TAGS)
        kinds = {"a.flac": "flac", "b.wav": "pcm_s24le", "c.aiff": "pcm_s16be", "d.wv": "wavpack", "e.tta": "tta",
                 "f.mka": "flac", "g.caf": "alac", "h.m4a": "alac", "i.mov": "pcm_s16le"}
        for name, codec in kinds.items():
            encode(os.path.join(self.source, name), *tone(), "-c:a", codec, *tags)
        for name, codec in {"lossy.ogg": "libvorbis", "lossy.mka": "aac", "telephone.wav": "pcm_alaw"}.items():
            encode(os.path.join(self.source, name), *tone(), "-c:a", codec)
        steps = self.steps()
        self.assertEqual({name for name, done in steps.items() if CONVERT in done},
                         {f"{letter}.m4a" for letter in "abcdefghi"})
        self.assertEqual(self.summary["converted"], 9)
        for letter in "adefgh":
            described, sound, _ = probe(os.path.join(self.out, letter + ".m4a"))
            self.assertEqual(sound["codec_name"], "aac")
            self.assertEqual((described["tags"]["title"], described["tags"]["track"]), (TAGS["title"], TAGS["track"]))
            self.assertLess(abs(float(described["duration"]) - 1), 0.06, letter)

    def test_monkeys_audio_is_converted(self):
        self.put("a.ape", silent_ape({"Title": "Träume", "Album": "Sines"}, seconds=2))
        self.place("Sines.jpg", "cover.jpg")
        self.assertEqual(self.steps("-n")["a.m4a"], [CONVERT, COVER])
        self.assertEqual(self.steps(), {"a.m4a": [CONVERT, COVER], "Sines.jpg": []})
        described, sound, _ = probe(os.path.join(self.out, "a.m4a"))
        self.assertEqual((sound["codec_name"], described["tags"]["title"]), ("aac", "Träume"))
        self.assertLess(abs(float(described["duration"]) - 2), 0.06)
        self.put("damaged.ape", silent_ape({}, is_damaged=True))
        self.assertEqual(self.steps("-q")["damaged.ape"], [])

    def test_cover_of_lossless_audio_is_kept(self):
        encode(os.path.join(self.source, "a.flac"), *attached(os.path.join(self.made, "cover.jpg"), *tone()))
        self.assertEqual(self.steps(), {"a.m4a": [CONVERT]})
        self.assertEqual(probe(os.path.join(self.out, "a.m4a"))[2]["width"], 320)

    def test_no_convert_copies_it(self):
        encode(os.path.join(self.source, "a.flac"), *tone())
        self.assertEqual(self.steps("--no-convert"), {"a.flac": []})
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    # What cannot be done.

    def test_what_cannot_be_converted_is_copied_with_a_remark(self):
        broken = encode(os.path.join(self.source, "broken.flac"), *tone(3))
        with open(broken, "r+b") as file:
            file.seek(2000)
            file.write(bytes(os.path.getsize(broken) - 2000))
        self.place("lossless.m4a")
        self.write("cache", b"is no folder")
        files, summary = self.prepared()
        self.assertEqual({name: (file["action"], file["ok"]) for name, file in files.items()},
                         {"broken.flac": ("copied", True), "lossless.m4a": ("copied", True)})
        for file in files.values():
            self.assertTrue(file["remark"].startswith("copied as it is: "), file)
        self.assertEqual(summary["leftAsTheyWere"], 2)
        self.assertEqual(self.hashes(self.out), self.hashes(self.source))

    def test_large_files_are_edited_in_little_memory(self):
        song = self.place("song.mp3")
        with open(song, "ab") as file:
            file.truncate(400 << 20)
        self.place("cover.jpg")
        limit = lambda: resource.setrlimit(resource.RLIMIT_AS, (600 << 20, 600 << 20))
        if "asan" in os.environ["KXMD_COMMAND"] or "tsan" in os.environ["KXMD_COMMAND"]:
            self.skipTest("a sanitizer needs more memory")
        result = self.prepare("--json", "-j", "1", preexec_fn=limit)
        files = {os.path.basename(file["target"]): file for file in result.objects()[:-1]}
        self.assertEqual(files["song.mp3"]["processors"], [COVER])
        self.assertEqual(files["song.mp3"]["size"], os.path.getsize(os.path.join(self.out, "song.mp3")))

    def test_what_nobody_can_decode_is_told(self):
        for name in ("a.flac", "b.wav"):
            self.put(name, os.urandom(2000))
        files, summary = self.prepared()
        for file in files.values():
            self.assertEqual((file["action"], file["remark"][:35]), ("copied", "copied as it is: cannot be converte"))
        self.assertEqual(summary["leftAsTheyWere"], 2)
        self.assertEqual({file["remark"] for file in self.prepared("--no-convert")[0].values()}, {""})

    # Covers.

    def widths(self):
        return {name: int((probe(os.path.join(self.out, name))[2] or {"width": 0})["width"])
                for name in self.hashes(self.out) if name.endswith((".mp3", ".m4a"))}

    def test_discs_of_an_album_get_its_picture(self):
        self.place("Album/cover.jpg")
        for folder in ("CD1", "Disc 2", "disk-03", "Extras"):
            self.place(f"Album/{folder}/song.mp3")
        self.assertEqual({name for name, done in self.steps().items() if COVER in done},
                         {f"Album/{folder}/song.mp3" for folder in ("CD1", "Disc 2", "disk-03")})

    def test_names_of_pictures(self):
        for folder, picture in (("a", "AlbumArtSmall.jpg"), ("b", "Front.PNG"), ("Songs", "songs.jpeg"), ("d", "photo.jpg")):
            self.place(f"{folder}/song.mp3")
            encode(os.path.join(self.source, folder, picture), *pattern(300, 300), "-frames:v", "1", "-update", "1")
        self.assertEqual({name for name, done in self.steps().items() if COVER in done},
                         {"a/song.mp3", "b/song.mp3", "Songs/song.mp3"})

    def test_picture_that_is_called_like_the_album(self):
        for name, album in (("a.m4a", "Sœurs: Live/1"), ("b.m4a", "Other"), ("c.m4a", "")):
            encode(os.path.join(self.source, name), *tone(), "-metadata", f"album={album}")
        self.place("SŒURS_ live_1.JPG", "cover.jpg")
        actions, _ = self.prepared()
        self.assertEqual({name: file["action"] for name, file in actions.items() if name.endswith("m4a")},
                         {"a.m4a": "edited", "b.m4a": "copied", "c.m4a": "copied"})
        self.assertEqual({file["action"] for file in self.prepared()[0].values()}, {"unchanged"})
        self.place("Other.jpg", "cover.jpg")
        actions, _ = self.prepared()
        self.assertEqual({name: file["action"] for name, file in actions.items() if name.endswith("m4a")},
                         {"a.m4a": "unchanged", "b.m4a": "edited", "c.m4a": "unchanged"})

    def test_picture_that_is_called_like_the_album_comes_last(self):
        """Covers that were chosen are told by their colours."""
        encode(os.path.join(self.source, "a.m4a"), *tone(), "-metadata", "album=Hits")
        def chosen():
            self.assertEqual(self.steps()["a.m4a"], [COVER])
            return cover_bytes(os.path.join(self.out, "a.m4a"))
        covers = [("Hits.jpg", "red"), ("source.jpg", "lime"), ("cover.jpg", "blue")]
        found = []
        for name, colour in covers:
            encode(os.path.join(self.source, name), "-f", "lavfi", "-i", f"color={colour}:size=300x300", "-frames:v", "1")
            found.append(chosen())
        self.assertEqual(len(set(found)), 3)
        os.remove(os.path.join(self.source, "cover.jpg"))
        self.assertEqual(chosen(), found[1])
        os.remove(os.path.join(self.source, "source.jpg"))
        self.assertEqual(chosen(), found[0])

    def test_other_pictures_are_not_opened_for_their_names(self):
        encode(os.path.join(self.source, "a.m4a"), *tone(), "-metadata", "album=Hits")
        for name, is_opened in (("Other.jpg", False), ("Hits 2.jpg", False), ("Hits.jpg", True)):
            picture = self.place(name, "cover.jpg")
            environment = {**preloading("KXMD_COUNT_OPENS", self.environment), "KXMD_COUNTED": picture}
            opens = self.prepare("--exclude", "*.jpg", env=environment).status
            self.assertEqual(opens > 0, is_opened, name)

    def test_dry_run_knows_the_albums_of_what_would_be_converted(self):
        encode(os.path.join(self.source, "a.flac"), *tone(), "-metadata", "album=Hits")
        self.place("Hits.jpg", "cover.jpg")
        self.assertEqual(self.steps("-n")["a.m4a"], [CONVERT, COVER])
        self.assertEqual(self.steps()["a.m4a"], [CONVERT, COVER])

    def test_picture_that_cannot_be_shown_hides_no_other(self):
        self.place("song.mp3")
        self.put("cover.jpg", b"\xff\xd8\xff no picture")
        self.place("folder.jpg", "cover.jpg")
        self.assertEqual(self.steps()["song.mp3"], [COVER])
        os.remove(os.path.join(self.source, "folder.jpg"))
        self.assertEqual(self.prepared()[0]["song.mp3"]["remark"],
                         "copied as it is: no picture beside it can be shown")

    def test_size_of_covers(self):
        self.place("song.mp3")
        self.place("song.m4a")
        self.place("cover.jpg")
        self.prepare("--cover-size", "300")
        self.assertEqual(self.widths(), {"song.mp3": 300, "song.m4a": 300})
        self.prepare()
        self.assertEqual(self.widths(), {"song.mp3": 256, "song.m4a": 256})

    def test_music_without_a_place_for_a_cover_gets_one(self):
        encode(os.path.join(self.source, "bare.mp3"), *tone(), "-id3v2_version", "0", "-write_xing", "0")
        encode(os.path.join(self.source, "bare.m4a"), *tone(), "-c:a", "aac", "-fflags", "+bitexact", "-flags", "+bitexact",
               "-map_metadata", "-1")
        self.place("cover.jpg")
        before = {name: samples(os.path.join(self.source, name)) for name in ("bare.mp3", "bare.m4a")}
        steps = self.steps()
        self.assertEqual((steps["bare.mp3"], steps["bare.m4a"]), ([COVER], [COVER]))
        self.assertEqual(self.widths(), {"bare.mp3": 256, "bare.m4a": 256})
        for name, sound in before.items():
            self.assertEqual(samples(os.path.join(self.out, name)), sound, name)

    def test_music_that_cannot_take_a_cover_is_told(self):
        encode(os.path.join(self.source, "a.ogg"), *tone(), "-c:a", "libvorbis")
        self.assertEqual(self.prepared()[0]["a.ogg"]["remark"], "")
        self.place("cover.jpg")
        file = self.prepared()[0]["a.ogg"]
        self.assertEqual((file["action"], file["remark"]),
                         ("copied", "copied as it is: there is no place for a cover"))

    # Playlists.

    def place_two_discs(self):
        tracks = (("a.mp3", "2", "1", "Two One"), ("b.mp3", "1", "10", "One Ten"), ("c.mp3", "1", "2", "One Two"),
                  ("d.mp3", "1", "2", "Twin"))
        for name, disc, number, title in tracks:
            encode(os.path.join(self.source, name), *tone(), "-metadata", f"disc={disc}/2", "-metadata",
                   f"track={number}/12", "-metadata", f"title={title}", "-metadata", "artist=Them")

    def test_playlist_goes_by_disc_track_and_name(self):
        self.place_two_discs()
        self.prepare("--playlist", "Mix")
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")),
                         b".\\c.mp3\r\n.\\d.mp3\r\n.\\b.mp3\r\n.\\a.mp3")

    def test_playlist_of_songs_that_were_there_before(self):
        self.place_two_discs()
        self.prepare()
        self.prepare("--playlist", "Mix")
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")).split(b"\r\n")[0], b".\\c.mp3")
        written = os.stat(os.path.join(self.out, "Mix.m3u"))
        self.prepare("--playlist", "Mix")
        again = os.stat(os.path.join(self.out, "Mix.m3u"))
        self.assertEqual((again.st_ino, again.st_mtime_ns), (written.st_ino, written.st_mtime_ns))

    def test_m3u8_tells_durations_and_titles(self):
        self.place_two_discs()
        self.put("#é\n.mp3", self.read(os.path.join(self.made, "song.mp3")))
        self.put("#é\\.mp3", self.read(os.path.join(self.made, "song.mp3")))
        result = self.prepare("--playlist", "Mix", "--playlist-format", "m3u8")
        self.assertEqual(result.errors, [f"kxmd: {self.out}/#é?.mp3: cannot be listed by its name"])
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u8")).decode().splitlines(), [
            "#EXTM3U", "#EXTINF:1,The Oscillators - Song", "./#é\\.mp3", "#EXTINF:1,Them - One Two", "c.mp3",
            "#EXTINF:1,Them - Twin", "d.mp3", "#EXTINF:1,Them - One Ten", "b.mp3", "#EXTINF:1,Them - Two One", "a.mp3"])

    def test_playlist_of_each_folder(self):
        self.place("One/b.mp3", "song.mp3")
        self.place("One/Two/a.mp3", "song.mp3")
        self.put("Three/notes.txt", b"")
        self.assertEqual(self.prepare("--playlist-each-folder").status, 0)
        lists = {name: self.read(os.path.join(self.out, name)) for name in self.hashes(self.out) if ".m3u" in name}
        self.assertEqual(lists, {"One/One.m3u": b".\\b.mp3", "One/Two/Two.m3u": b".\\a.mp3"})

    def test_protected_music_is_in_no_playlist(self):
        entry = sound_entry(2).replace(b"mp4a", b"drms")
        self.put("protected.m4p", mp4(track(b"soun", entry), user_data(tag_atom(b"\xa9nam", "Mine"))))
        self.place("song.mp3")
        for form in ("m3u", "m3u8"):
            self.prepare("--playlist", "Mix", "--playlist-format", form)
            content = self.read(os.path.join(self.out, "Mix." + form))
            self.assertIn(b"song.mp3", content)
            self.assertNotIn(b"protected", content)

    def test_names_that_no_line_can_hold_are_told(self):
        for name in ("a\nb.mp3", "c\\d.mp3", "e.mp3"):
            self.place(name, "song.mp3")
        shutil.copy(os.path.join(self.made, "song.mp3"), os.path.join(self.source.encode(), b"f\xff.mp3"))
        result = self.prepare("--playlist", "Mix")
        self.assertEqual((result.status, len(result.errors)), (0, 3), result.errors)
        self.assertEqual(self.read(os.path.join(self.out, "Mix.m3u")), b".\\e.mp3")

    # Names.

    def test_each_path_keeps_its_own_name(self):
        for album in ("One", "Two"):
            self.place(f"{album}/song.mp3")
        self.prepare(os.path.join(self.source, "One"), os.path.join(self.source, "Two"),
                     self.place("single.mp3", "song.mp3"))
        self.assertEqual(set(self.hashes(self.out)), {"One/song.mp3", "Two/song.mp3", "single.mp3"})

    def test_slash_at_the_end_means_the_contents(self):
        self.place("One/song.mp3")
        for typed in (self.source + "/One/", self.source + "/One/.", self.source + "/One//"):
            self.prepare(typed)
            self.assertEqual(set(self.hashes(self.out)), {"song.mp3"}, typed)
            shutil.rmtree(self.out)
        run("prepare", ".", "--to", self.out, env=self.environment, cwd=os.path.join(self.source, "One"))
        self.assertEqual(set(self.hashes(self.out)), {"song.mp3"})

    def test_card_gets_names_that_it_takes(self):
        names = ["What?.mp3", "What*.mp3", "a:b|c.mp3", "Quote \"x\".mp3", "Trail.", "plain.mp3", "Same.mp3", "same.mp3",
                 "Live?/x.mp3", "Live*/x.mp3"]
        for name in names:
            self.place(name, "song.mp3")
        with exfat_card(self.folder) as card:
            self.out = os.path.join(card, "Music")
            files, summary = self.prepared()
            self.assertEqual((summary["files"], summary["failed"]), (len(names), 0))
            there = self.hashes(self.out)
            self.assertEqual(len(there), len(names))
            self.assertLessEqual({"What_.mp3", "plain.mp3", "a_b_c.mp3", "Quote _x_.mp3"}, set(there))
            self.assertEqual(set(there.values()), set(self.hashes(self.source).values()))
            self.assertEqual(self.prepare("--playlist", "All: what?").status, 0)
            self.assertIn("All_ what_.m3u", os.listdir(self.out))
            self.assertEqual(set(self.steps().values().__iter__().__next__()), set())
            self.assertEqual(self.summary["unchanged"], len(names))
            # Others that go and come leave a name as it is.
            os.remove(os.path.join(self.source, "What*.mp3"))
            os.remove(os.path.join(self.source, "Same.mp3"))
            self.place("A?.mp3", "song.mp3")
            files, summary = self.prepared("--delete")
            self.assertEqual((summary["unchanged"], summary["removed"], summary["files"]), (8, 2, 9))

    def test_folders_keep_the_names_that_they_got_on_a_card(self):
        for name in ("m?x/1.mp3", "a.mp3"):
            self.place(name, "song.mp3")
        with exfat_card(self.folder) as card:
            self.out = os.path.join(card, "Music")
            self.prepare()
            self.place("m:x/2.mp3", "song.mp3")  # Comes before the other in the order of names.
            self.assertEqual(self.prepared()[1]["unchanged"], 2)
            before = set(self.hashes(self.out))
            self.assertEqual(self.prepared()[1]["unchanged"], 3)
            shutil.rmtree(os.path.join(self.source, "m?x"))
            self.assertEqual(self.prepared()[1]["unchanged"], 2)
            self.assertEqual(set(self.hashes(self.out)), before)

    def place_names(self):
        for name in ("What?.mp3", "Live: One/x.mp3", "Same.mp3", "same.mp3", "tab\t.mp3", "plain.mp3"):
            self.place(name, "song.mp3")
        shutil.copy(os.path.join(self.made, "song.mp3"), os.path.join(self.source.encode(), b"caf\xe9.mp3"))

    def would_be(self, kind):
        """The names of a dry run into a folder on a file system of that kind, and what it says of the folder."""
        environment = {**preloading("KXMD_FILE_SYSTEM_KIND", self.environment), "KXMD_KIND": str(kind)}
        result = self.prepare("-n", "--json", env=environment)
        self.assertEqual(result.status, 0)
        self.assertFalse(os.path.exists(self.out))
        return {os.path.relpath(file["target"], self.out) for file in result.objects()[:-1]}, result.errors

    def test_dry_run_shows_the_names_that_a_card_takes(self):
        self.place_names()
        self.out = self.path("nobody/made/this")
        fat, exfat = (self.would_be(kind) for kind in (0x4D44, 0x2011BAB0))
        self.assertEqual(fat[1] + exfat[1], [])
        self.assertEqual(os.listdir(self.folder), ["source"])
        with exfat_card(self.folder) as card:
            self.out = os.path.join(card, "Music")
            done, _ = self.prepared()
            self.assertEqual((fat[0], exfat[0]), (set(done), set(done)))
            self.assertIn("What_.mp3", done)

    def test_dry_run_says_when_only_writing_tells_the_names(self):
        self.place("plain.mp3", "song.mp3")
        network = 0x6969
        self.assertEqual(self.would_be(network), ({"plain.mp3"}, []))
        self.place("What?.mp3", "song.mp3")
        names, errors = self.would_be(network)
        self.assertEqual(names, {"plain.mp3", "What?.mp3"})
        self.assertEqual(errors, [f"kxmd: {self.out}: its file system may refuse names that are shown here; only a run "
                                  "that writes finds out"])
        self.assertEqual(self.would_be(0xEF53), (names, []))
        self.prepare(env=self.environment)
        self.assertEqual(self.prepare("-n").errors, [])  # It was found out.

    def test_times_of_a_card_do_not_matter(self):
        self.place("song.mp3")
        os.utime(os.path.join(self.source, "song.mp3"), ns=(0, 1_600_000_001_987_654_321))
        with exfat_card(self.folder) as card:
            self.out = card + "/Music"
            self.prepare()
            self.assertEqual(self.prepared()[1]["unchanged"], 1)

    # Phones.

    def test_phone_without_renames_links_and_permissions(self):
        for name in ("Album/song.mp3", "Album/lossless.m4a", "Album/recording.mov", "Album/cover.jpg"):
            self.place(name)
        self.prepare()
        expected = self.hashes(self.out)
        with phone(self.folder) as mounted:
            self.out = mounted.path + "/Music"
            files, summary = self.prepared("--playlist", "Mix")
            self.assertEqual(summary["failed"], 0)
            there = self.hashes(self.out)
            self.assertEqual(there.pop("Mix.m3u") is not None, True)
            self.assertEqual(there, expected)
            self.assertEqual(self.prepared("--playlist", "Mix")[1]["unchanged"], 4)
            self.place("Album/song.mp3", "good.mp3")
            self.assertEqual(self.prepared("--playlist", "Mix")[1]["unchanged"], 3)
            self.assertEqual(self.hashes(self.out)["Album/song.mp3"], self.hashes(self.source)["Album/song.mp3"])
            self.assertEqual([name for name in os.listdir(self.out) if name.startswith(".")], [MANIFEST])

    def test_full_phone_and_unplugged_phone(self):
        for i in range(6):
            self.put(f"{i}", os.urandom(50_000))
        with phone(self.folder, capacity=200_000) as mounted:
            self.out = mounted.path
            result = self.prepare("--anyway")
            self.assertEqual(result.status, 1)
            whole = self.hashes(self.source)
            for name, content in self.hashes(self.out).items():
                self.assertEqual(content, whole[name], name)
            mounted.unplug()
            result = self.prepare()
            self.assertEqual(result.status, 1)
            self.assertTrue(result.errors)

    # What is left out.

    def test_clutter_is_left_out(self):
        names = (".DS_Store", "Thumbs.db", "desktop.ini", "._song.mp3", "rip.log", "album.cue", "Rip.LOG")
        for name in (*names, "keep.txt", ".hidden"):
            self.put("Album/" + name, b"content")
        self.prepare()
        self.assertEqual(set(self.hashes(self.out)), {"Album/keep.txt", "Album/.hidden"})
        self.prepare("--all")
        self.assertEqual(set(self.hashes(self.out)), {"Album/" + name for name in (*names, "keep.txt", ".hidden")})

    def test_patterns(self):
        for name in ("a/1.txt", "a/2.jpg", "b/1.txt", "b/rip.log", "c.txt"):
            self.put(name, b"content")
        def prepared_with(*arguments):
            shutil.rmtree(self.out, ignore_errors=True)
            self.prepare(*arguments)
            return set(self.hashes(self.out))
        self.assertEqual(prepared_with("--exclude", "*.txt"), {"a/2.jpg"})
        self.assertEqual(prepared_with("--exclude", "a"), {"b/1.txt", "c.txt"})
        self.assertEqual(prepared_with("--exclude", "a/*.txt"), {"a/2.jpg", "b/1.txt", "c.txt"})
        self.assertEqual(prepared_with("--exclude", "*.txt", "--exclude", "*.jpg", "--include", "c*"), {"c.txt"})
        self.assertEqual(prepared_with("--include", "*.log"), {"a/1.txt", "a/2.jpg", "b/1.txt", "b/rip.log", "c.txt"})
        self.assertEqual(prepared_with("--exclude", "[ab]"), {"c.txt"})
        self.assertEqual(prepared_with("--exclude", "a/"), {"b/1.txt", "c.txt"})
        for empty in ("", "/"):
            self.assert_usage_error(run("prepare", self.source, "--to", self.out, "--exclude", empty))

    def test_file_that_is_named_is_never_left_out(self):
        self.prepare(self.put("rip.log", b"content"))
        self.assertEqual(set(self.hashes(self.out)), {"rip.log"})

    def test_what_is_skipped_is_counted(self):
        self.place("song.mp3")
        os.symlink("missing", os.path.join(self.source, "dangling"))
        os.symlink(".", os.path.join(self.source, "loop"))
        os.symlink("/etc/hostname", os.path.join(self.source, "elsewhere"))
        files, summary = self.prepared()
        self.assertEqual((summary["files"], summary["skipped"]), (1, 3))
        self.assertIn(b", 3 skipped, 0 failed", self.prepare().out)
