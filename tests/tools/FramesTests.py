import os

from support import CommandTestCase, frame, id3v23, png, run, text_frame

TAG = id3v23(text_frame(b"TIT2", "Caf\xe9"),
             frame(b"TXXX", b"\x00a\x00b", flags=0x4000),
             frame(b"APIC", b"\x00image/png\x00\x00\x00" + png(320, 240)))


class FramesTests(CommandTestCase):
    def test_json(self):
        result = run("frames", "--json", self.write("a.mp3", TAG))
        self.assertEqual(result.status, 0, result.errors)
        title, other, picture = result.objects()
        self.assertEqual(list(title.items()), [
            ("offset", 10), ("size", 15), ("headerSize", 10), ("dataSize", 5), ("tag", "TIT2"),
            ("flags", 0), ("id3Version", 0x300), ("content", "Café"), ("coverWidth", 0),
            ("coverHeight", 0)])
        self.assertEqual(list(other.items()), [
            ("offset", 25), ("size", 14), ("headerSize", 10), ("dataSize", 4), ("tag", "TXXX"),
            ("flags", 0x4000), ("id3Version", 0x300), ("coverWidth", 0), ("coverHeight", 0)])
        self.assertEqual((picture["tag"], picture["coverWidth"], picture["coverHeight"]),
                         ("APIC", 320, 240))

    def test_sizes_of_pictures_are_whole_numbers(self):
        result = run("frames", "--json", self.write("a.mp3", TAG))
        self.assertIn(b'"coverWidth":320,"coverHeight":240}', result.out)

    def test_list_for_people(self):
        result = run("frames", self.write("a.mp3", TAG))
        self.assertEqual(result.status, 0)
        lines = result.out.decode().splitlines()
        self.assertEqual(lines, ["    Offset       Size  Frame",
                                 "        10         15  TIT2  Café",
                                 "        25         14  TXXX",
                                 f"        39{len(TAG) - 32 - 39:11}  APIC  320 x 240"])

    def test_refused_tag_prints_nothing(self):
        path = self.write("a.mp3", id3v23(text_frame(b"TIT2", "Blue"), flags=0x80))
        for flags in ((), ("--json",)):
            result = run("frames", "-q", *flags, path)
            self.assert_failure(result, path, "has no ID3v2 tag that can be read")
            self.assertEqual(result.out, b"")

    def test_file_without_tag_prints_nothing(self):
        for content in (b"", b"ID", b"\xff\xfb\x90\x00" + bytes(400)):
            path = self.write("a.mp3", content)
            result = run("frames", "--json", path)
            self.assert_failure(result, path)
            self.assertEqual(result.out, b"")

    def test_log_lines_go_to_standard_error(self):
        path = self.write("a.mp3", id3v23(text_frame(b"TIT2", "Blue"), flags=0x80))
        self.assertEqual(run("frames", path).errors[0],
                         "[Metadata] Unsynchronization not supported")

    def test_quiet_hides_log_lines(self):
        path = self.write("a.mp3", id3v23(text_frame(b"TIT2", "Blue"), flags=0x80))
        for arguments in (("-q", "frames", path), ("frames", "-q", path), ("frames", path, "--quiet")):
            errors = run(*arguments).errors
            self.assertEqual(errors, [f"kxmd: {path}: has no ID3v2 tag that can be read"])

    def test_missing_file_and_fifo(self):
        missing, fifo = self.path("none"), self.path("fifo")
        os.mkfifo(fifo)
        self.assert_failure(run("frames", missing), missing, "No such file or directory")
        self.assert_failure(run("frames", fifo), fifo, "is not a regular file")
