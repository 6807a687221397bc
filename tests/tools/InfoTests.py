import base64
import json
import os
import struct
import subprocess
from fractions import Fraction

from audio import encode, pattern, tag_arguments, tone
from support import (CommandTestCase, atom, frame, id3v23, mp4, nested, png, preloading, run, sound_entry,
                     tag_atom, text_frame, track, user_data, video_entry)

EMPTY = {
    "size": 0, "detectedType": 0, "metaType": 0, "tags": {}, "containsVideo": False,
    "video": [], "audio": [], "cover": {"valid": True, "insertable": False, "embeddedBytes": 0}, "probe": None,
}


def song_with_cover(width, height):
    cover = atom(b"covr", atom(b"data", struct.pack(">II", 14, 0), png(width, height)))
    return mp4(track(b"soun", sound_entry(2)),
               user_data(tag_atom(b"\xa9nam", "Blue"), tag_atom(b"\xa9ART", "Ann"),
                         tag_atom(b"\xa9alb", "Sky"), tag_atom(b"aART", "Bob"), cover))


class InfoTests(CommandTestCase):
    def info(self, path, *flags):
        result = run("info", "--json", *flags, path)
        self.assertEqual(result.status, 0, result.errors)
        [told] = result.objects()
        return told

    def probe(self, path, *flags):
        """What is told beside our own answers, which it does not change."""
        plain, told = self.info(path), self.info(path, "--probe", *flags)
        found = told.pop("probe")
        plain.pop("probe", None)
        self.assertEqual(told, plain)
        return found

    def assert_probe_is_of_ffprobe(self, path):
        """The same as another program says that asks the same library."""
        found = self.probe(path)
        shown = json.loads(subprocess.run(
            ["ffprobe", "-v", "error", "-of", "json", "-show_format", "-show_streams", path],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout)
        self.assertEqual(found["duration"], float(shown["format"]["duration"]), path)
        self.assertIn(found["container"], shown["format"]["format_name"].split(","), path)
        streams = [stream for stream in shown["streams"] if not stream["disposition"]["attached_pic"]]
        self.assertEqual(len(found["streams"]), len(streams), path)
        for ours, theirs in zip(found["streams"], streams):
            self.assertEqual(ours["kind"], theirs["codec_type"])
            self.assertEqual(ours["codec"], theirs["codec_name"])
            self.assertEqual(ours["profile"] or "unknown", theirs.get("profile", "unknown"))
            self.assertEqual(ours["bitRate"], int(theirs.get("bit_rate", 0)))
            self.assertEqual(ours["language"], theirs.get("tags", {}).get("language", ""))
            if ours["kind"] == "audio":
                self.assertEqual((ours["sampleRate"], ours["channels"]),
                                 (int(theirs["sample_rate"]), theirs["channels"]))
            if ours["kind"] == "video":
                self.assertEqual((ours["width"], ours["height"]), (theirs["width"], theirs["height"]))
                rate = theirs["avg_frame_rate" if theirs["avg_frame_rate"] != "0/0" else "r_frame_rate"]
                self.assertAlmostEqual(ours["frameRate"], float(Fraction(rate)))
        return found

    def test_folders_are_looked_into(self):
        os.makedirs(self.path("a/b"))
        song = id3v23(text_frame(b"TIT2", "Song"))
        paths = [self.write(name, song) for name in ("a/1.mp3", "a/b/2.mp3", "3.mp3")]
        found = run("info", "--json", "-r", self.path("a"), self.path("3.mp3")).objects()
        self.assertEqual([(info["path"], info["tags"]["Name"]) for info in found], [(path, "Song") for path in paths])
        self.assertEqual(run("info", "--json", self.path("a")).status, 1)

    def test_several_at_once_are_told_in_order(self):
        paths = [self.write(f"{i:03}.mp3", id3v23(text_frame(b"TIT2", f"Song {i}"))) for i in range(100)]
        paths[40] = self.path("missing.mp3")
        alone, together = run("info", "--json", *paths), run("info", "--json", "-j", "3", *paths)
        self.assertEqual([info["path"] for info in alone.objects()], paths)
        self.assertEqual((together.status, together.out, together.errors), (1, alone.out, alone.errors))

    def test_path_that_is_no_text_comes_with_its_bytes(self):
        path = os.path.join(self.folder.encode(), b"a\xff.mp3")
        with open(path, "wb") as file:
            file.write(id3v23(text_frame(b"TIT2", "Song")))
        info, = run("info", "--json", path).objects()
        self.assertEqual(base64.b64decode(info["pathBytes"]), path)
        self.assertTrue(info["path"].endswith("a\ufffd.mp3"))
        self.assertNotIn("pathBytes", run("info", "--json", self.write("b.mp3", b"")).objects()[0])

    def test_probe_of_music(self):
        tags = {"title": "Träume", "artist": "The Oscillators", "album": "Sines", "album_artist": "Waves"}
        for name in ("a.flac", "a.ogg", "a.opus", "a.wav", "a.aiff", "a.wma", "a.mka", "a.mp3", "a.m4a"):
            options = ("-write_id3v2", "1") if name == "a.aiff" else ()
            path = encode(self.path(name), *tone(rate=48000), *options, *tag_arguments(tags))
            found = self.assert_probe_is_of_ffprobe(path)
            kept = ("title", "artist", "album") if name == "a.wav" else tags
            self.assertEqual({key: found["tags"].get(key) for key in kept},
                             {key: tags[key] for key in kept}, name)
            bits = {"a.flac": 16, "a.wav": 16, "a.aiff": 16}.get(name, 0)
            self.assertEqual(found["streams"][0]["bits"], bits, name)
            self.assertEqual(found["pictures"], [], name)

    def test_probe_of_movies(self):
        for name in ("a.mkv", "a.avi", "a.ts", "a.mp4", "a.mov"):
            path = encode(self.path(name), *pattern(64, 48), *tone(), "-c:v", "mpeg4", "-c:a", "aac")
            self.assert_probe_is_of_ffprobe(path)
        self.assertEqual(self.probe(self.path("a.mov"))["container"], "mov")
        self.assertEqual(self.probe(self.path("a.mp4"))["container"], "mp4")

    def test_probe_of_subtitles_and_languages(self):
        text = self.write("a.srt", b"1\n00:00:00,000 --> 00:00:01,000\nWords\n")
        path = encode(self.path("a.mkv"), *tone(), "-i", text, "-map", "0", "-map", "1",
                      "-metadata:s:0", "language=fre", "-metadata:s:1", "language=ger")
        found = self.assert_probe_is_of_ffprobe(path)
        self.assertEqual([(stream["kind"], stream["language"]) for stream in found["streams"]],
                         [("audio", "fre"), ("subtitle", "ger")])

    def test_probe_of_turned_movie(self):
        plain = encode(self.path("plain.mp4"), *pattern(64, 48), "-c:v", "mpeg4")
        with open(plain, "rb") as file:
            content = file.read()
        matrix = lambda a, b, c, d: struct.pack(">9i", a << 16, b << 16, 0, c << 16, d << 16, 0, 0, 0, 1 << 30)
        position = content.index(matrix(1, 0, 0, 1), content.index(b"tkhd"))
        for clockwise, turn in ((0, (1, 0, 0, 1)), (90, (0, 1, -1, 0)), (180, (-1, 0, 0, -1)),
                                (270, (0, -1, 1, 0))):
            path = self.write("turned.mp4", content[:position] + matrix(*turn) + content[position + 36:])
            [stream] = self.probe(path)["streams"]
            self.assertEqual((stream["rotation"], stream["width"], stream["height"]), (clockwise, 64, 48))

    def test_probe_of_covers(self):
        picture = encode(self.path("cover.jpg"), *pattern(320, 240), "-frames:v", "1")
        size = os.path.getsize(picture)
        front = {"kind": "front", "type": "image/jpeg", "width": 320, "height": 240, "bytes": size}
        for name, kinds in (("a.mp3", ["front", "back"]), ("a.flac", ["front", "back"]), ("a.m4a", ["front"])):
            comments = [word for i, kind in enumerate(kinds) for word in
                        ("-map", "1:v", f"-metadata:s:v:{i}", f"comment=Cover ({kind})",
                         f"-disposition:v:{i}", "attached_pic")]
            path = encode(self.path(name), *tone(), "-i", picture, "-map", "0:a", *comments, "-c:v", "copy")
            self.assertEqual(self.probe(path)["pictures"], [{**front, "kind": kind} for kind in kinds], name)

    def test_unknown_type_is_probed_without_being_asked_for(self):
        path = encode(self.path("a.flac"), *tone())
        self.assertEqual(self.info(path)["probe"]["container"], "flac")
        self.assertIsNone(self.info(self.write("text", b"Dear diary"))["probe"])
        self.assertNotIn("probe", self.info(self.write("a.m4a", song_with_cover(320, 200))))

    def test_report_of_unknown_type(self):
        path = encode(self.path("a.flac"), *tone(rate=48000), "-metadata", "title=Sine")
        result = run("info", path)
        self.assertEqual(result.status, 0)
        for line in ("  Type          flac\n", "  Duration      1 s\n", "  Title         Sine\n",
                     "  Audio         flac, 48000 Hz, 2 channels, 16 bit\n"):
            self.assertIn(line, result.out.decode())

    def test_each_file_is_opened_once(self):
        for name, content in (("a.m4a", song_with_cover(320, 200)), ("text", b"Dear diary"), ("a.mp3", b"ID3 not")):
            path = self.write(name, content)
            counting = {**preloading("KXMD_COUNT_OPENS"), "KXMD_COUNTED": path}
            self.assertEqual(run("-q", "info", "--json", path, env=counting).status, 1, name)

    def test_json_of_a_song(self):
        content = song_with_cover(320, 200)
        path = self.write("a.m4a", content)
        told = self.info(path)
        self.assertEqual(list(told), ["path", "size", "detectedType", "metaType", "tags",
                                      "containsVideo", "video", "audio", "cover"])
        self.assertEqual(told["path"], path)
        self.assertEqual(told["size"], len(content))
        self.assertEqual((told["detectedType"], told["metaType"]), (2, 2))
        self.assertEqual(list(told["tags"].items()), [
            ("Name", "Blue"), ("Artist", "Ann"), ("Album", "Sky"), ("Album Artist", "Bob")])
        self.assertIs(told["containsVideo"], False)
        self.assertEqual(told["video"], [])
        self.assertEqual(list(told["cover"]), ["valid", "insertable", "embeddedBytes"])
        self.assertIs(told["cover"]["valid"], True)
        self.assertIs(told["cover"]["insertable"], True)
        self.assertEqual(told["cover"]["embeddedBytes"], 8 + 16 + len(png(320, 200)))

    def test_json_of_codecs(self):
        path = self.write("a.mp4", mp4(track(b"vide", video_entry(320, 240, 77, 30)),
                                       track(b"soun", sound_entry(1))))
        told = self.info(path)
        self.assertIs(told["containsVideo"], True)
        [video] = told["video"]
        self.assertEqual(list(video), ["codec", "profile", "profileLevel", "bitRate", "width",
                                       "height", "audioChannels", "description"])
        self.assertEqual((video["codec"], video["profile"], video["profileLevel"]), (7, 77, 30))
        self.assertEqual((video["width"], video["height"]), (320, 240))
        self.assertTrue(video["description"].startswith("Codec: "), video)
        [audio] = told["audio"]
        self.assertEqual((audio["codec"], audio["audioChannels"], audio["width"]), (5, 1, 0))

    def test_whole_numbers_have_no_fraction(self):
        path = self.write("a.mp4", mp4(track(b"vide", video_entry(320, 240, 77, 30))))
        line = run("info", "--json", path).out
        self.assertIn(b'"bitRate":0,"width":320,"height":240,', line)

    def test_small_cover_is_not_valid(self):
        told = self.info(self.write("a.m4a", song_with_cover(199, 400)))
        self.assertIs(told["cover"]["valid"], False)

    def test_json_of_an_mp3(self):
        told = self.info(self.write("a.mp3", id3v23(text_frame(b"TIT2", "Caf\xe9"))))
        self.assertEqual((told["detectedType"], told["metaType"]), (1, 1))
        self.assertEqual(told["tags"], {"Name": "Café"})

    def test_json_of_texts_that_need_escapes(self):
        # A quote, the escapes of JSON, controls (C0, DEL, C1) and a letter beyond ASCII.
        text = 'a"b\\c/d\t\x1b[2J\x7f\x9b\xe9~ '
        line = run("info", "--json", self.write("a.mp3", id3v23(text_frame(b"TIT2", text)))).out
        self.assertIn(b'"tags":{"Name":"a\\"b\\\\c/d\\t\\u001b[2J\\u007f\\u009b\xc3\xa9~ "},', line)
        self.assertEqual(json.loads(line)["tags"]["Name"], text)

    def test_detected_type_differs_from_meta_type(self):
        # An unsynchronised tag is refused; the file is still told to be MP3 by its first bytes.
        content = id3v23(text_frame(b"TIT2", "Blue"), flags=0x80)
        told = self.info(self.write("a.mp3", content), "-q")
        self.assertEqual((told["detectedType"], told["metaType"]), (1, 0))
        self.assertEqual(told["size"], len(content))

    def test_jpeg_is_detected(self):
        told = self.info(self.write("a.jpg", b"\xff\xd8\xff\xe1" + bytes(64)))
        self.assertEqual((told["detectedType"], told["metaType"], told["size"]), (3, 0, 68))

    def test_unknown_and_empty_files_are_good(self):
        self.assertEqual(self.info(self.write("a.txt", b"words"))["size"], 5)
        self.assertEqual(self.info(self.write("empty", b""))["size"], 0)

    def test_missing_file_prints_an_object(self):
        path = self.path("none.m4a")
        result = run("info", "--json", path)
        self.assert_failure(result, path, "No such file or directory")
        self.assertEqual(result.objects(), [{"path": path, **EMPTY}])

    def test_failed_file_does_not_stop_the_others(self):
        first, missing = self.write("a.txt", b"a"), self.path("none")
        last = self.write("b.mp3", id3v23(text_frame(b"TPE1", "Ann")))
        result = run("info", "--json", first, missing, last)
        self.assert_failure(result, missing)
        self.assertEqual([told["path"] for told in result.objects()], [first, missing, last])
        self.assertEqual(result.objects()[2]["tags"], {"Artist": "Ann"})

    def test_fifo_does_not_hang(self):
        path = self.path("fifo")
        os.mkfifo(path)
        result = run("info", "--json", path)
        self.assert_failure(result, path, "is not a regular file")
        self.assertEqual(result.objects(), [{"path": path, **EMPTY}])

    def test_folder_is_refused(self):
        self.assert_failure(run("info", "--json", self.folder), self.folder, "is a folder")

    def test_path_that_is_not_utf8(self):
        path = os.fsencode(self.folder) + b"/caf\xe9.txt"
        with open(path, "wb") as file:
            file.write(b"words")
        result = run("info", "--json", path)
        self.assertEqual(result.status, 0, result.errors)
        [told] = result.objects()
        self.assertEqual(told["path"], self.folder + "/caf\ufffd.txt")
        self.assertEqual(told["size"], 5)

    def test_missing_path_that_is_not_utf8(self):
        path = os.fsencode(self.folder) + b"/\xff"
        result = run("info", "--json", path)
        self.assert_failure(result, self.path("?"))

    def test_path_with_a_line_end_gives_one_error_line(self):
        self.assert_failure(run("info", self.path("a\nb")), self.path("a?b"))

    def test_path_in_brackets(self):
        self.write("[Live]", b"abc")
        self.write("{}", b"abcd")
        result = run("info", "--json", "[Live]", "{}", "[a,b]", cwd=self.folder)
        self.assertEqual([(told["path"], told["size"]) for told in result.objects()],
                         [("[Live]", 3), ("{}", 4), ("[a,b]", 0)])

    def test_path_after_a_double_dash(self):
        self.write("--json", b"abc")
        result = run("info", "--json", "--", "--json", cwd=self.folder)
        self.assertEqual(result.objects()[0]["size"], 3)

    def test_path_named_like_a_subcommand(self):
        self.write("atoms", b"abc")
        self.write("info", b"abcd")
        result = run("info", "--json", "info", "atoms", cwd=self.folder)
        self.assertEqual([told["size"] for told in result.objects()], [4, 3])

    def test_report_for_people(self):
        path = self.write("a.m4a", song_with_cover(320, 200))
        result = run("info", path)
        self.assertEqual(result.status, 0)
        lines = result.out.decode().splitlines()
        self.assertEqual(lines[0], path)
        self.assertIn("  Name          Blue", lines)
        self.assertIn("  Album Artist  Bob", lines)
        self.assertEqual(lines[-1], "")
        values = {line[16] for line in lines[1:-1]}
        self.assertNotIn(" ", values)  # Each value begins in the same column.

    def test_report_does_not_steer_the_terminal(self):
        path = self.write("a.mp3", id3v23(text_frame(b"TIT2", "a\x1b[2Jb\x9bc\nd")))
        lines = run("info", path).out.decode().splitlines()
        self.assertIn("  Name          a?[2Jb?c?d", lines)

    def test_report_of_a_missing_file_is_the_error_alone(self):
        path = self.path("none")
        result = run("info", path)
        self.assert_failure(result, path)
        self.assertEqual(result.out, b"")

    def test_deep_tree_needs_no_stack(self):
        result = run("info", "--json", self.write("deep.mp4", nested(1000000)), stack=512)
        self.assertEqual(result.status, 0, result.errors)
        self.assertEqual(result.objects()[0]["metaType"], 2)

    def test_pictures_of_an_mp3(self):
        picture = frame(b"APIC", b"\x00image/png\x00\x00\x00" + png(256, 256))
        told = self.info(self.write("a.mp3", id3v23(text_frame(b"TIT2", "Blue"), picture)))
        self.assertEqual(told["cover"],
                         {"valid": True, "insertable": True, "embeddedBytes": len(picture)})
