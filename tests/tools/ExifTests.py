import os
import struct

from support import CommandTestCase, png, run


def directory(entries, following=0):
    """A TIFF directory of (tag, value) pairs, little-endian."""
    fields = b"".join(struct.pack("<HHII", tag, 4, 1, value) for tag, value in entries)
    return struct.pack("<H", len(entries)) + fields + struct.pack("<I", following)


def photograph(preview):
    """A JPEG whose EXIF block has two directories, the second of which points to the preview."""
    first = directory([(0x0110, 0)], following=8 + 18)
    second_length = len(directory([(0, 0), (0, 0)]))
    address = 8 + len(first) + second_length
    second = directory([(0x0201, address), (0x0202, len(preview))])
    block = b"Exif\0\0" + b"II*\0" + struct.pack("<I", 8) + first + second + preview
    return b"\xff\xd8\xff\xe1" + struct.pack(">H", len(block) + 2) + block + b"\xff\xd9"


PREVIEW = png(6, 4)


class ExifTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.photo = self.write("photo.jpg", photograph(PREVIEW))
        self.preview = self.path("preview")

    def test_object(self):
        result = run("exif", "--json", self.photo)
        self.assertEqual((result.status, result.errors), (0, []))
        (found,) = result.objects()
        self.assertEqual(list(found), ["parsed", "thumbnailAddress", "thumbnailLength", "width", "height"])
        self.assertEqual((found["parsed"], found["thumbnailLength"]), (True, len(PREVIEW)))
        start = found["thumbnailAddress"]
        self.assertEqual(photograph(PREVIEW)[start:start + len(PREVIEW)], PREVIEW)
        # The preview is a header without pixels, which is no picture.
        self.assertEqual((found["width"], found["height"]), (0, 0))

    def test_preview_is_written_unchanged(self):
        result = run("exif", self.photo, "-o", self.preview)
        self.assertEqual((result.status, result.errors), (0, []))
        with open(self.preview, "rb") as file:
            self.assertEqual(file.read(), PREVIEW)

    def test_refused_file_is_no_error(self):
        for content in (b"", b"text", b"\xff\xd8\xff\xe2\x00\x04\x00\x00"):
            result = run("exif", "--json", self.write("a.jpg", content))
            self.assertEqual((result.status, result.errors), (0, []))
            self.assertIs(result.objects()[0]["parsed"], False)

    def test_nothing_is_written_without_a_preview(self):
        path = self.write("a.jpg", photograph(b""))
        self.assert_failure(run("exif", path, "-o", self.preview), path, "has no preview to write")
        self.assertFalse(os.path.exists(self.preview))

    def test_input_is_never_overwritten(self):
        link = self.path("link")
        os.symlink(self.photo, link)
        for output in (self.photo, link):
            self.assert_failure(run("exif", self.photo, "-o", output), output, "is the input itself")
        with open(self.photo, "rb") as file:
            self.assertEqual(file.read(), photograph(PREVIEW))

    def test_unwritable_output(self):
        output = self.path("missing/preview")
        result = run("exif", self.photo, "-o", output)
        self.assertEqual(result.status, 1)
        self.assertTrue(result.errors[0].startswith(f"kxmd: {output}: "))

    def test_unreadable_file(self):
        missing = self.path("missing")
        self.assert_failure(run("exif", missing), missing, "No such file or directory")
