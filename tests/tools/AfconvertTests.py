import math
import os
import resource
import signal
import struct
import subprocess
import time

from audio import (AFCONVERT, TAGS, afconvert, attached, convert, cover_bytes, encode, pattern, probe, samples,
                   tag_arguments, tone)
from support import COMMAND, CommandTestCase, run

PACKET = 1024  # Samples of an AAC packet (ISO/IEC 14496-3).


class AfconvertTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.target = self.path("target.m4a")

    def alac(self, name="source.m4a", seconds=1, **how):
        return encode(self.path(name), *tone(seconds, **how), "-c:a", "alac")

    def read(self, path):
        with open(path, "rb") as file:
            return file.read()

    def atoms(self, path):
        return run("atoms", "--json", path).objects()

    def assert_converted(self, source, **options):
        self.assertEqual(convert(source, self.target, **options), (0, []))
        return probe(self.target)

    def assert_refused(self, source, *problems):
        """Ended with 1 and one line for the source, without a trace of the target."""
        before = sorted(os.listdir(self.folder))
        status, errors = convert(source, self.target)
        self.assertEqual(status, 1)
        self.assertEqual(len(errors), 1, errors)
        self.assertTrue(errors[0].startswith(f"afconvert: {source}: "), errors)
        if problems:
            self.assertIn(errors[0].split(f"{source}: ")[1].split(":")[0], problems)
        self.assertEqual(sorted(os.listdir(self.folder)), before)

    # The command line.

    def test_help_and_version(self):
        for flag in ("-h", "--help"):
            finished = subprocess.run([AFCONVERT, flag], stdout=subprocess.PIPE, check=True)
            self.assertTrue(finished.stdout.startswith(b"Usage: afconvert "))
        finished = subprocess.run([AFCONVERT, "--version"], stdout=subprocess.PIPE, check=True)
        self.assertRegex(finished.stdout, rb"^afconvert \(kxmd\) \d+\.\d+\.\d+\n$")

    def test_wrong_usage(self):
        for arguments in ((), ("a",), ("-b", "256000"), ("-f", "m4af", "a"), ("-b", "x", "a", "b"),
                          ("-b", "0", "a", "b"), ("-b", "-1", "a", "b"), ("-b", "256000x", "a", "b"),
                          ("-b", "99999999999999999999", "a", "b"), ("-f", "caff", "a", "b"),
                          ("-d", "alac", "a", "b"), ("-q", "1", "a", "b"), ("a", "b", "c"), ("", "", "a", "b")):
            with self.subTest(arguments=arguments):
                if arguments == ("-b", "256000"):  # Two paths, as it happens.
                    self.assertEqual(afconvert(*arguments)[0], 1)
                    continue
                status, errors = afconvert(*arguments)
                self.assertEqual(status, 2)
                self.assertTrue(errors[0].startswith("afconvert: "), errors)

    def test_last_two_arguments_are_paths_whatever_they_begin_with(self):
        source = self.path("-b")
        os.rename(self.alac(), source)
        self.assertEqual(afconvert("-b", "64000", "-b", "--help", cwd=self.folder), (0, []))
        self.assertEqual(probe(self.path("--help"))[1]["codec_name"], "aac")
        self.assertTrue(os.path.exists(source))

    def test_paths_that_look_like_addresses_are_paths(self):
        whole = self.alac()
        for name in ("concat:a|b", "http:x", "data:audio,x", "%03d.m4a", "pipe:0", "file:x", "-", "a\nb", "[0]"):
            with self.subTest(name=name):
                os.link(whole, self.path(name))
                self.assertEqual(convert(name, "out-" + name, cwd=self.folder), (0, []))
                self.assertEqual(probe("file:" + self.path("out-" + name))[1]["codec_name"], "aac")
        self.assertEqual(convert("http://localhost:1/a", self.target)[0], 1)

    def test_names_cannot_steer_the_terminal(self):
        _, errors = convert("no\x1b[31m\nsuch", self.target)
        self.assertEqual(errors[0].split(": ")[1], "no?[31m?such")

    # What it makes.

    def test_makes_aac_in_mpeg4_audio(self):
        container, audio, _ = self.assert_converted(self.alac(seconds=3))
        self.assertEqual(container["tags"]["major_brand"], "M4A ")
        self.assertEqual((audio["codec_name"], audio["profile"]), ("aac", "LC"))
        self.assertEqual((audio["sample_rate"], audio["channels"]), ("44100", 2))

    def test_bit_rate(self):
        noise = ("-f", "lavfi", "-i", "anoisesrc=amplitude=0.5:duration=4:sample_rate=44100,aformat=channel_layouts=stereo")
        source = encode(self.path("noise.wav"), *noise)
        for rate in (256000, 96000):
            self.assertEqual(afconvert("-b", str(rate), source, self.target), (0, []))
            self.assertLess(abs(int(probe(self.target)[1]["bit_rate"]) - rate), rate / 5)  # An average: the encoder spends what it needs.

    def test_header_comes_first_with_a_32_bit_chunk_offset_table(self):
        self.assert_converted(self.alac())
        tags = [atom["tag"] for atom in self.atoms(self.target) if atom["depth"] == 1]
        self.assertLess(tags.index("moov"), tags.index("mdat"))
        paths = [atom["path"] for atom in self.atoms(self.target)]
        self.assertIn("ROOT.moov.trak.mdia.minf.stbl.stco", paths)
        self.assertIn("ROOT.moov.udta.meta.ilst", paths)
        self.assertFalse([path for path in paths if path.endswith(".co64")])

    def test_takes_whatever_can_be_decoded(self):
        for name, arguments in (("a.m4a", ("-c:a", "alac")), ("a.wav", ()), ("a.flac", ()), ("a.aiff", ()),
                                ("a.caf", ("-c:a", "alac")), ("a.mp3", ()), ("a.ogg", ("-c:a", "libvorbis")),
                                ("24.wav", ("-c:a", "pcm_s24le")), ("24.flac", ("-sample_fmt", "s32")),
                                ("24.m4a", ("-c:a", "alac", "-sample_fmt", "s32p")),
                                ("float.wav", ("-c:a", "pcm_f32le")), ("8.wav", ("-c:a", "pcm_u8")),
                                ("a.mka", ("-c:a", "flac")), ("a.opus", ("-c:a", "libopus"))):
            with self.subTest(name=name):
                self.assert_converted(encode(self.path(name), *tone(1, 48000), *arguments))
                heard = samples(self.target)
                loudness = math.sqrt(sum(value * value for value in heard) / len(heard))
                self.assertAlmostEqual(loudness, 0.125 / math.sqrt(2), delta=0.01)

    def test_rates(self):
        for rate, expected in ((8000, 8000), (22050, 22050), (96000, 96000), (192000, 96000), (11000, 11025)):
            with self.subTest(rate=rate):
                _, audio, _ = self.assert_converted(encode(self.path("a.wav"), *tone(1, rate)))
                self.assertEqual(int(audio["sample_rate"]), expected)
                self.assertAlmostEqual(float(audio["duration"]), 1, delta=PACKET / expected)

    def test_channels(self):
        for layout, expected in (("mono", "mono"), ("stereo", "stereo"), ("5.1", "5.1"), ("5.1(side)", "5.1"),
                                 ("quad", "quad"), ("5.0(side)", "5.0")):
            with self.subTest(layout=layout):
                _, audio, _ = self.assert_converted(encode(self.path("a.wav"), *tone(1, layout=layout)))
                self.assertEqual(audio["channel_layout"], expected)

    def test_channels_that_the_file_leaves_open(self):
        # A WAV header of the short form (no channel mask).
        frames = b"".join(struct.pack("<2h", i % 99, i % 77) for i in range(44100))
        header = b"WAVEfmt " + struct.pack("<IHHIIHH", 16, 1, 2, 44100, 176400, 4, 16)
        body = header + b"data" + struct.pack("<I", len(frames)) + frames
        source = self.write("a.wav", b"RIFF" + struct.pack("<I", len(body)) + body)
        self.assertEqual(self.assert_converted(source)[1]["channel_layout"], "stereo")

    def test_duration_is_kept_within_a_packet(self):
        for seconds in (0.01, 0.5, 1.2345, 3):
            source = self.alac(seconds=seconds)
            _, audio, _ = self.assert_converted(source)
            self.assertLessEqual(abs(float(audio["duration"]) - seconds), PACKET / 44100)
            self.assertLessEqual(abs(len(samples(self.target)) - seconds * 44100), PACKET)

    def test_encoder_delay_is_not_heard(self):
        """An edit list (ISO/IEC 14496-12, 8.6.6) leaves out what the encoder puts in front."""
        click = "aevalsrc='if(between(n,22050,22060),0.8,0)':sample_rate=44100:duration=1"
        self.assert_converted(encode(self.path("a.wav"), "-f", "lavfi", "-i", click))
        self.assertIn("ROOT.moov.trak.edts.elst", [atom["path"] for atom in self.atoms(self.target)])
        heard = samples(self.target)
        loudest = max(range(len(heard)), key=lambda i: abs(heard[i]))
        self.assertLess(abs(loudest - 22055), 30)

    def test_tags_are_kept(self):
        for name, codec in (("a.m4a", "alac"), ("a.flac", "flac"), ("a.ogg", "libvorbis"), ("a.mp3", "libmp3lame")):
            with self.subTest(name=name):
                source = encode(self.path(name), *tone(), "-c:a", codec, *tag_arguments(TAGS))
                found = self.assert_converted(source)[0]["tags"]
                self.assertEqual({key: found.get(key) for key in TAGS}, TAGS)
                info, = run("info", "--json", self.target).objects()
                self.assertEqual(info["tags"], {"Name": "Träume", "Artist": "The Oscillators", "Album": "Sines",
                                                "Album Artist": "Various Waves"})

    def test_cover_is_kept_as_it_is(self):
        for picture in ("cover.jpg", "cover.png"):
            encode(self.path(picture), *pattern(320, 320), "-frames:v", "1")
            for name, codec in (("a.m4a", "alac"), ("a.flac", "flac")):
                with self.subTest(picture=picture, name=name):
                    source = encode(self.path(name), *attached(self.path(picture), *tone()), "-c:a", codec)
                    cover = self.assert_converted(source)[2]
                    self.assertEqual((cover["width"], cover["height"]), (320, 320))
                    self.assertEqual(cover_bytes(self.target), self.read(self.path(picture)))
                    info, = run("info", "--json", self.target).objects()
                    self.assertTrue(info["cover"]["valid"])

    def test_cover_that_is_damaged_does_not_take_the_music(self):
        picture = encode(self.path("cover.jpg"), *pattern(320, 320), "-frames:v", "1")
        source = encode(self.path("a.m4a"), *attached(picture, *tone()), "-c:a", "alac")
        content = self.read(source)
        jpeg = self.read(picture)
        self.write("a.m4a", content.replace(jpeg, b"\xff" * len(jpeg)))
        self.assertAlmostEqual(float(self.assert_converted(source)[1]["duration"]), 1, delta=0.03)

    def cover_atom(self, kind, picture, claimed=0, data_claimed=0):
        """A cover whose type indicator is `kind`; its sizes claim as many bytes more than it has."""
        data = struct.pack(">I4sII", len(picture) + 16 + data_claimed, b"data", kind, 0) + picture
        return struct.pack(">I4s", len(data) + 8 + claimed, b"covr") + data

    def with_covers(self, *covers):
        """A source whose tag list ends with these atoms; the list is the end of the file."""
        content = bytearray(self.read(self.alac()))
        for kind in (b"moov", b"udta", b"meta", b"ilst"):
            start = content.rindex(kind) - 4
            size, = struct.unpack_from(">I", content, start)
            self.assertEqual(start + size, len(content))
            struct.pack_into(">I", content, start, size + sum(map(len, covers)))
        return self.write("covered.m4a", bytes(content) + b"".join(covers))

    def picture(self, name, size=320):
        return self.read(encode(self.path(name), *pattern(size, size), "-frames:v", "1"))

    def test_cover_of_undeclared_format_is_kept(self):
        """A type indicator of 0 leaves the format open; older taggers wrote that, or a wrong one."""
        for name in ("cover.jpg", "cover.png", "cover.bmp"):
            picture = self.picture(name)
            for kind in (0, 1, 12, 21, 0xFFFFFFFF):
                with self.subTest(name=name, kind=kind):
                    cover = self.assert_converted(self.with_covers(self.cover_atom(kind, picture)))[2]
                    self.assertEqual((cover["width"], cover["height"]), (320, 320))
                    self.assertEqual(cover_bytes(self.target), picture)
                    if name != "cover.bmp":
                        info, = run("info", "--json", self.target).objects()
                        self.assertTrue(info["cover"]["valid"])

    def test_first_cover_that_can_be_kept_is_kept(self):
        jpeg, png = self.picture("cover.jpg"), self.picture("cover.png")
        for covers, kept in (((self.cover_atom(13, jpeg), self.cover_atom(0, png)), jpeg),
                             ((self.cover_atom(0, b"GIF89a" + bytes(100)), self.cover_atom(0, png)), png),
                             ((self.cover_atom(0, jpeg, data_claimed=1), self.cover_atom(0, png)), png)):
            self.assert_converted(self.with_covers(*covers))
            self.assertEqual(cover_bytes(self.target), kept)

    def assert_left_out(self, source):
        _, audio, cover = self.assert_converted(source)
        self.assertAlmostEqual(float(audio["duration"]), 1, delta=0.03)
        self.assertIsNone(cover)

    def test_cover_that_is_none_is_left_out(self):
        jpeg, png = self.picture("cover.jpg"), self.picture("cover.png")
        for picture in (b"", b"\xff", b"\xff\xd8\xff", b"\xff\xd8\xff" + bytes(1000), jpeg[:100], png[:20],
                        b"BM" + bytes(1000), b"BMtext", b"GIF89a" + bytes(100), b"text" * 100, b"\0" + jpeg,
                        png.replace(b"IHDR", b"IHDr")):
            with self.subTest(picture=picture[:20]):
                self.assert_left_out(self.with_covers(self.cover_atom(0, picture)))

    def test_cover_that_claims_more_than_it_has_is_left_out(self):
        jpeg = self.picture("cover.jpg")
        length = len(jpeg) + 16
        for more in (1, 100, 1 << 31, 0xFFFFFFFF - length - 8, -length, 8 - length, 16 - length):
            with self.subTest(data=more):
                self.assert_left_out(self.with_covers(self.cover_atom(0, jpeg, data_claimed=more)))
        for claimed in (100, 1 << 31):
            with self.subTest(claimed=claimed):
                self.assert_left_out(self.with_covers(self.cover_atom(0, jpeg, claimed, claimed)))
        atom = self.cover_atom(0, jpeg)
        for length in range(len(atom) - 1, 0, -len(atom) // 12):
            self.assert_left_out(self.with_covers(atom[:length]))

    def test_huge_cover_is_left_out(self):
        jpeg = self.picture("cover.jpg")
        large = jpeg + bytes(20_000_000)
        self.assert_converted(self.with_covers(self.cover_atom(0, large)))
        self.assertEqual(cover_bytes(self.target), large)
        source = self.with_covers(self.cover_atom(0, jpeg + bytes(70_000_000)))
        self.assert_left_out(source)

    def test_cover_of_gigabytes_takes_no_memory(self):
        jpeg = self.picture("cover.jpg")
        source = self.with_covers(self.cover_atom(0, jpeg))
        more = 3_000_000_000
        with open(source, "r+b") as file:
            content = file.read()
            for kind in (b"moov", b"udta", b"meta", b"ilst", b"covr", b"data"):
                start = content.rindex(kind) - 4
                size, = struct.unpack_from(">I", content, start)
                file.seek(start)
                file.write(struct.pack(">I", size + more))
            file.truncate(len(content) + more)  # Of which the disk holds nothing.
        process = subprocess.Popen([AFCONVERT, source, self.target], stdin=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 0)
        self.assertLess(usage.ru_maxrss, 500_000)  # In KiB.
        self.assertIsNone(probe(self.target)[2])

    def test_target_takes_a_cover(self):
        picture = encode(self.path("cover.jpg"), *pattern(320, 320), "-frames:v", "1")
        self.assert_converted(self.alac())
        result = run("cover", "add", self.target, picture, "-o", self.path("covered.m4a"))
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(samples(self.path("covered.m4a")), samples(self.target))

    # What it refuses.

    def test_source_that_cannot_be_converted(self):
        video = encode(self.path("video.mp4"), *pattern(64, 64), "-an")
        for name, content in (("empty", b""), ("text", b"Dear diary " * 100), ("zeros", bytes(100000)),
                              ("id3", b"ID3\x03\0\0\0\0\0\0"), ("atoms", b"\0\0\0\x08moov" * 1000)):
            with self.subTest(name=name):
                self.assert_refused(self.write(name, content))
        self.assert_refused(video, "has no audio")
        self.assert_refused(self.path("missing"), "cannot be opened")
        self.assert_refused(self.folder, "is not a regular file")

    def test_source_that_may_wait_for_ever_is_not_opened(self):
        os.mkfifo(self.path("fifo"))
        self.assert_refused(self.path("fifo"), "is not a regular file")
        self.assert_refused("/dev/zero", "is not a regular file")
        self.assert_refused("/proc/kmsg", "is empty")  # It passes for a regular file.

    def test_hours_of_silence_in_a_few_bytes_are_refused(self):
        source = encode(self.path("silence.flac"), "-f", "lavfi", "-i", "anullsrc=r=8000:cl=mono", "-t", "5400")
        self.assertLess(os.path.getsize(source), 1_500_000)
        self.assert_refused(source, "claims more hours than its bytes can hold")
        short = encode(self.path("short.flac"), "-f", "lavfi", "-i", "anullsrc=r=8000:cl=mono", "-t", "1200")
        self.assertEqual(convert(short, self.target), (0, []))

    def test_lists_of_other_files_are_not_read(self):
        secret = encode(self.path("secret.wav"), *tone())
        for name, content in (("a.m3u8", f"#EXTM3U\n#EXTINF:1,\n{secret}\n"), ("a.ffconcat", f"ffconcat version 1.0\nfile {secret}\n"),
                              ("a.sdp", f"v=0\nm=audio 9 RTP/AVP 0\nc=IN IP4 127.0.0.1\n")):
            with self.subTest(name=name):
                self.assert_refused(self.write(name, content.encode()))

    def test_truncated_source_is_refused(self):
        whole = encode(self.path("whole.m4a"), *tone(2), "-c:a", "alac", "-movflags", "+faststart")
        flac = encode(self.path("whole.flac"), *tone(2))
        wav = encode(self.path("whole.wav"), *tone(2))
        matroska = encode(self.path("whole.mka"), *tone(20), "-c:a", "flac")
        for path in (whole, flac, wav, matroska):
            content = self.read(path)
            for part in (0.1, 0.5, 0.9):
                with self.subTest(path=path, part=part):
                    self.assert_refused(self.write("cut" + path[-5:], content[:int(len(content) * part)]))

    def test_source_without_its_last_packets_is_refused(self):
        content = self.read(encode(self.path("whole.m4a"), *tone(2), "-c:a", "alac", "-movflags", "+faststart"))
        for cut in (1, 100, 3000, 9000):
            with self.subTest(cut=cut):
                self.assert_refused(self.write("cut.m4a", content[:-cut]), "is cut off")

    def test_damaged_source_is_refused(self):
        content = bytearray(self.read(encode(self.path("whole.flac"), *tone(2))))
        middle = len(content) // 2
        content[middle:middle + 200] = bytes(200)
        self.assert_refused(self.write("damaged.flac", bytes(content)))

    def test_existing_target_is_kept_when_the_source_is_broken(self):
        self.write("target.m4a", b"as it was")
        self.assert_refused(self.write("broken", b"no audio"))
        self.assertEqual(self.read(self.target), b"as it was")

    def test_existing_target_is_replaced(self):
        self.write("target.m4a", b"as it was")
        self.assert_converted(self.alac())

    def test_source_as_target_is_refused(self):
        source = self.alac()
        before = self.read(source)
        os.link(source, self.path("link.m4a"))
        os.symlink("source.m4a", self.path("symbolic.m4a"))
        for target in (source, self.path("link.m4a"), self.path("symbolic.m4a"), self.path("./source.m4a")):
            status, errors = convert(source, target)
            self.assertEqual((status, errors), (1, [f"afconvert: {source}: is its own target"]))
        self.assertEqual(self.read(source), before)

    def test_target_that_cannot_be_written(self):
        source = self.alac()
        for target in (self.path("missing/a.m4a"), self.folder, "/dev/null", source + "/a"):
            status, errors = convert(source, target)
            self.assertEqual(status, 1)
            self.assertIn("cannot be written", errors[0])
        self.assertTrue(os.path.exists("/dev/null") and not os.path.isfile("/dev/null"))
        self.assertEqual(os.listdir(self.folder), ["source.m4a"])

    def test_full_disk_leaves_no_file(self):
        source = self.alac(seconds=5)
        for limit in (10, 5000, 60000):
            status, errors = convert(source, self.target, preexec_fn=lambda size=limit: resource.setrlimit(
                resource.RLIMIT_FSIZE, (size, size)))
            self.assertEqual(status, 1, limit)
            self.assertIn("cannot be written", errors[0])
            self.assertEqual(os.listdir(self.folder), ["source.m4a"])

    def test_target_is_readable_as_the_mask_lets_it(self):
        self.assert_converted(self.alac(), preexec_fn=lambda: os.umask(0o027))
        self.assertEqual(os.stat(self.target).st_mode & 0o777, 0o640)

    # How it ends.

    def start_long_conversion(self):
        source = encode(self.path("long.wav"), *tone(600))
        return subprocess.Popen([AFCONVERT, source, self.target], stdin=subprocess.DEVNULL)

    def test_signal_leaves_no_file(self):
        for number in (signal.SIGTERM, signal.SIGKILL):
            process = self.start_long_conversion()
            time.sleep(0.2)
            process.send_signal(number)
            self.assertEqual(process.wait(timeout=10), -number)
            self.assertEqual(os.listdir(self.folder), ["long.wav"])

    def start_from_a_shell(self, script, seconds=600):
        """A conversion in the background of a shell, which runs `script` first. Returns shell and converter."""
        source = encode(self.path("long.wav"), *tone(seconds))
        shell = subprocess.Popen(["sh", "-c", script + '"$@" & echo $!; wait', "sh", AFCONVERT, source, self.target],
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        self.addCleanup(shell.stdout.close)
        return shell, int(shell.stdout.readline())

    def is_running(self, process):
        try:
            return self.read(f"/proc/{process}/stat").split(b") ")[1][:1] != b"Z"
        except (FileNotFoundError, ProcessLookupError):
            return False

    def assert_ends(self, process):
        deadline = time.monotonic() + 10
        while self.is_running(process) and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertFalse(self.is_running(process))

    def kill(self, process):
        process.kill()
        process.wait()

    def test_ends_with_a_starter_that_asks_for_it(self):
        shell, converter = self.start_from_a_shell("export KXMD_CONVERTER_PARENT=$$; ")
        time.sleep(0.5)
        self.assertTrue(self.is_running(converter))
        self.kill(shell)
        self.assert_ends(converter)
        self.assertEqual(os.listdir(self.folder), ["long.wav"])

    def test_ends_with_a_starter_that_is_gone_at_once(self):
        shell, converter = self.start_from_a_shell("export KXMD_CONVERTER_PARENT=$$; ")
        self.kill(shell)
        self.assert_ends(converter)
        self.assertEqual(os.listdir(self.folder), ["long.wav"])

    def test_does_not_begin_for_a_starter_that_is_gone(self):
        source = self.alac()
        with subprocess.Popen(["true"]) as gone:
            environment = {**os.environ, "KXMD_CONVERTER_PARENT": str(gone.pid)}
        self.assertEqual(convert(source, self.target, env=environment), (1, []))
        self.assertEqual(os.listdir(self.folder), ["source.m4a"])

    def test_outlives_a_shell_that_is_gone(self):
        shell, converter = self.start_from_a_shell("", seconds=60)
        time.sleep(0.3)
        self.kill(shell)
        deadline = time.monotonic() + 60
        while self.is_running(converter) and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertAlmostEqual(float(probe(self.target)[1]["duration"]), 60, delta=0.03)

    def test_ends_with_the_command_that_started_it(self):
        """However early that is killed: converters know their parent before their libraries are loaded."""
        source = encode(self.path("long.wav"), *tone(600))
        environment = {**os.environ, "XDG_CACHE_HOME": self.path("cache")}
        for pause in (0, 0.01, 0.05, 0.1, 0.5):
            with self.subTest(pause=pause):
                command = subprocess.Popen([COMMAND, "convert", source, "-o", self.target], env=environment,
                                           stdin=subprocess.DEVNULL)
                converter = self.child_of(command)
                time.sleep(pause)
                self.kill(command)
                self.assert_ends(converter)
                self.assertFalse(os.path.exists(self.target))

    def child_of(self, process):
        children = f"/proc/{process.pid}/task/{process.pid}/children"
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            found = self.read(children).split()
            if found:
                return int(found[0])
        self.fail("no conversion was started")
