import os
import subprocess

import movies
import pictures
from pictures import BLUE, GREEN, RED, TRANSPARENT, WHITE, Picture
from support import CommandTestCase, atom, mp4, run, tag_atom, user_data

NOTHING = "has nothing to show"


class PicturesTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.out = self.path("out.png")

    def content(self, path):
        with open(path, "rb") as file:
            return file.read()

    def picture(self, *arguments, **options):
        """What the command writes as PNG."""
        result = run(*arguments, "-o", self.out, **options)
        self.assertEqual((result.status, result.errors, result.out), (0, [], b""))
        return Picture(self.content(self.out))

    def assert_nothing_written(self):
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("out")], [])

    def four_files(self):
        return [self.write(f"{i}.png", pictures.solid(8, 8, colour))
                for i, colour in enumerate((RED, GREEN, BLUE, WHITE))]

    # thumbnail

    def test_thumbnail_is_the_centred_square(self):
        # 30 by 20 with red ends, which are cut off.
        photo = self.write("a.png", pictures.encoded(
            30, 20, lambda x, y: RED if x < 5 or x >= 25 else (BLUE if y < 10 else GREEN)))
        thumbnail = self.picture("thumbnail", photo, "-s", "20x20")
        self.assertEqual(thumbnail.size, (20, 20))
        self.assertEqual(thumbnail.colours(), {BLUE, GREEN})
        self.assertEqual((thumbnail.pixel(0, 0), thumbnail.pixel(19, 19)), (BLUE, GREEN))

    def test_thumbnail_of_a_size_with_decimals(self):
        photo = self.write("a.png", pictures.solid(300, 200, GREEN))
        thumbnail = self.picture("thumbnail", photo, "-s", "100.7x96.2")
        self.assertEqual(thumbnail.size, (101, 97))
        self.assertEqual(thumbnail.pixel(50, 50), GREEN)
        # The last column and row are covered in part: by 0.7 and by 0.2.
        self.assertAlmostEqual(thumbnail.pixel(100, 50)[3], 0.7 * 255, delta=1)
        self.assertAlmostEqual(thumbnail.pixel(50, 96)[3], 0.2 * 255, delta=1)

    def test_thumbnail_is_stretched_and_enlarged(self):
        photo = self.write("a.png", pictures.encoded(4, 4, lambda x, y: RED if x < 2 else BLUE))
        thumbnail = self.picture("thumbnail", photo, "-s", "80x10")
        self.assertEqual(thumbnail.size, (80, 10))
        self.assertEqual((thumbnail.pixel(0, 5), thumbnail.pixel(79, 5)), (RED, BLUE))

    def test_thumbnail_keeps_transparency(self):
        photo = self.write("a.png", pictures.encoded(8, 8, lambda x, y: RED if y < 4 else TRANSPARENT))
        thumbnail = self.picture("thumbnail", photo, "-s", "8x8")
        self.assertEqual((thumbnail.pixel(4, 0), thumbnail.pixel(4, 7)), (RED, TRANSPARENT))

    # The extension of OUT

    def test_extension_picks_the_format(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        for name in ("out.png", "out.PNG", "out.of.Png"):
            self.assertEqual(run("thumbnail", photo, "-s", "9x7", "-o", self.path(name)).status, 0)
            self.assertEqual(Picture(self.content(self.path(name))).size, (9, 7))
        for name in ("out.jpg", "out.JPG", "out.jpeg", "out.Jpeg", "out.png.jpg"):
            self.assertEqual(run("thumbnail", photo, "-s", "9x7", "-o", self.path(name)).status, 0)
            self.assertEqual(pictures.jpeg_size(self.content(self.path(name))), (9, 7))

    def test_other_extensions_are_wrong_usage(self):
        # Found before any work: nobody says that the file is missing.
        for name in ("out", "out.", "out.gif", "out.pngx", "out.jp2", "out.png/x", "outpng", ""):
            for arguments in (("thumbnail", "-s", "1x1"), ("composite", "-s", "1x1"),
                              ("icon", "-s", "1x1"), ("poster",)):
                with self.subTest(name=name, subcommand=arguments[0]):
                    output = self.path(name) if name else name
                    result = run(*arguments, self.path("missing.png"), "-o", output)
                    self.assert_usage_error(result)
                    self.assertIn(".png, .jpg, .jpeg", result.errors[0])
        self.assert_nothing_written()

    def test_missing_arguments_are_wrong_usage(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        for subcommand in ("thumbnail", "composite", "icon"):
            self.assert_usage_error(run(subcommand, photo, "-s", "1x1"))
            self.assert_usage_error(run(subcommand, photo, "-o", self.out))
            self.assert_usage_error(run(subcommand, "-s", "1x1", "-o", self.out))
            self.assert_usage_error(run(subcommand, photo, "-s", "0x1", "-o", self.out))
        for subcommand in ("thumbnail", "icon"):
            self.assert_usage_error(run(subcommand, photo, photo, "-s", "1x1", "-o", self.out))
        self.assert_usage_error(run("poster", photo))
        self.assert_usage_error(run("poster", "-o", self.out))
        self.assert_usage_error(run("poster", photo, "-s", "1x1", "-o", self.out))
        self.assert_nothing_written()

    def test_names_that_look_like_lists_or_options(self):
        photo = self.write("[a].png", pictures.solid(8, 8, RED))
        output = self.path("[out].png")
        self.assertEqual(run("thumbnail", "-s", "2x2", "-o", output, "--", photo).status, 0)
        self.assertEqual(Picture(self.content(output)).size, (2, 2))
        self.write("-a.png", pictures.solid(8, 8, RED))
        result = run("thumbnail", "-s", "2x2", "-o", output, "--", "-a.png", cwd=self.folder)
        self.assertEqual((result.status, result.errors), (0, []))

    # Nothing to show

    def test_nothing_to_show(self):
        text = self.write("a.txt", b"text")
        for arguments in (("thumbnail", "-s", "8x8"), ("composite", "-s", "8x8"), ("poster",)):
            result = run(*arguments, text, "-o", self.out)
            self.assert_failure(result, text, NOTHING)
            self.assertEqual(result.out, b"")
        self.assert_nothing_written()

    def test_decoders_remarks_are_kept_out_of_the_errors(self):
        # A HEIF file without a picture (ISO/IEC 23008-12), of which its decoder would print a warning.
        picture = self.write("a.heic", atom(b"ftyp", b"heic", bytes(4), b"mif1heic")
                             + atom(b"meta", bytes(4), atom(b"hdlr", bytes(8), b"pict", bytes(13))))
        self.assert_failure(run("thumbnail", picture, "-s", "8x8", "-o", self.out), picture, NOTHING)

    def test_size_that_no_picture_has(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        for subcommand in ("thumbnail", "icon"):
            self.assert_failure(run(subcommand, photo, "-s", "99999x99999", "-o", self.out), photo, NOTHING)
        self.assert_nothing_written()

    def test_programs_beside_the_library_are_found_after_a_change_of_folder(self):
        drawing = self.write("a.svg", b'<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16"><rect width="16" '
                             b'height="16"/></svg>')
        library = os.path.dirname(os.environ["KXMD_LIBRARY"])
        host = [os.environ["KXMD_CHANGE_FOLDER"], self.folder, drawing]
        for search_path, folder in ((library, "/"), (".", library), ("", "/")):
            with self.subTest(search_path=search_path):
                status = subprocess.run(host, cwd=folder, env={**os.environ, "LD_LIBRARY_PATH": search_path}).returncode
                self.assertEqual(status, 0)

    def test_unreadable_file(self):
        missing = self.path("missing.png")
        for arguments in (("thumbnail", "-s", "8x8"), ("composite", "-s", "8x8"), ("poster",)):
            result = run(*arguments, missing, "-o", self.out)
            self.assert_failure(result, missing, "No such file or directory")
            self.assert_failure(run(*arguments, self.folder, "-o", self.out), self.folder, "is a folder")
        self.assert_nothing_written()

    def test_earlier_result_is_kept_when_there_is_nothing_to_show(self):
        self.write("out.png", b"earlier")
        text = self.write("a.txt", b"text")
        self.assertEqual(run("thumbnail", text, "-s", "8x8", "-o", self.out).status, 1)
        self.assertEqual(self.content(self.out), b"earlier")

    # Output

    def test_input_is_never_overwritten(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        before = self.content(photo)
        link = self.path("link.png")
        os.symlink(photo, link)
        others = self.four_files()
        for output in (photo, link):
            for arguments in (("thumbnail", photo), ("icon", photo), ("composite", *others, photo)):
                result = run(*arguments, "-s", "4x4", "-o", output)
                self.assert_failure(result, output, "is the input itself")
        self.assertEqual(self.content(photo), before)

    def test_no_half_file_is_left(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        os.mkdir(self.path("out.png"))
        for output in (self.out, self.path("missing/out.png")):
            result = run("thumbnail", photo, "-s", "8x8", "-o", output)
            self.assertEqual((result.status, len(result.errors)), (1, 1))
            self.assertTrue(result.errors[0].startswith(f"kxmd: {output}: "), result.errors)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.png", "out.png"])
        self.assertEqual(os.listdir(self.out), [])

    def test_result_replaces_an_earlier_one(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        self.write("out.png", b"earlier")
        self.assertEqual(self.picture("thumbnail", photo, "-s", "3x3").colours(), {RED})

    # composite

    def test_composite_shows_four_files_in_its_quarters(self):
        # The first at the bottom left, the second beside it.
        composite = self.picture("composite", *self.four_files(), "-s", "20x10")
        self.assertEqual(composite.size, (20, 10))
        for x, y, colour in ((0, 9, RED), (19, 9, GREEN), (0, 0, BLUE), (19, 0, WHITE)):
            self.assertEqual(composite.pixel(x, y), colour)
        self.assertEqual([composite.pixel(x, y) for x, y in ((9, 5), (10, 5), (9, 4), (10, 4))],
                         [RED, GREEN, BLUE, WHITE])

    def test_composite_leaves_files_beyond_the_fourth_out(self):
        files = self.four_files()
        fifth = self.write("5.png", pictures.solid(8, 8, (1, 2, 3, 255)))
        composite = self.picture("composite", *files, fifth, "-s", "8x8")
        self.assertEqual(composite.colours(), {RED, GREEN, BLUE, WHITE})

    def test_composite_of_fewer_than_four_is_the_first_one(self):
        files = self.four_files()
        for count in (1, 2, 3):
            self.assertEqual(self.picture("composite", *files[:count], "-s", "8x8").colours(), {RED})
        # The same file again is no other one.
        self.assertEqual(self.picture("composite", *files[:3], files[0], "-s", "8x8").colours(), {RED})

    def test_composite_counts_an_album_once(self):
        files = self.four_files()
        album = [self.write(f"{i}.m4a", mp4(user_data(tag_atom(b"\xa9ART", "A"), tag_atom(b"\xa9alb", "B"))))
                 for i in range(2)]
        # Five files, four different pictures; that of the album is made of nothing.
        composite = self.picture("composite", files[0], *album, files[1], files[2], "-s", "8x8")
        self.assertEqual([composite.pixel(x, y) for x, y in ((0, 7), (7, 7), (0, 0), (7, 0))],
                         [RED, TRANSPARENT, GREEN, BLUE])

    def test_composite_leaves_unreadable_files_out(self):
        files = self.four_files()
        missing = self.path("missing.png")
        result = run("composite", files[0], missing, *files[1:], "-s", "8x8", "-o", self.out)
        self.assert_failure(result, missing, "No such file or directory")
        composite = Picture(self.content(self.out))
        self.assertEqual((composite.pixel(0, 7), composite.pixel(7, 7)), (RED, GREEN))

    def test_composite_says_so_of_each_unreadable_file(self):
        names = [self.path("a"), self.path("b")]
        result = run("composite", *names, "-s", "8x8", "-o", self.out)
        self.assertEqual(result.status, 1)
        self.assertEqual(result.errors, [f"kxmd: {name}: No such file or directory" for name in names])
        self.assert_nothing_written()

    # icon

    def icon(self, path, size):
        """An icon of no theme, whatever the machine has."""
        nowhere = {"HOME": self.folder, "XDG_DATA_HOME": self.folder, "XDG_DATA_DIRS": self.folder}
        return self.picture("icon", path, "-s", size, env={**os.environ, **nowhere})

    def test_icon_fills_the_size(self):
        square = self.icon("song.mp3", "40x40").opaque_box()
        icon = self.icon("song.mp3", "80x40")
        self.assertEqual(icon.size, (80, 40))
        left, top, right, bottom = icon.opaque_box()
        # Stretched, not fitted: twice as wide as the same icon in a square.
        for stretched, plain in ((left, 2 * square[0]), (right, 2 * square[2]), (top, square[1]),
                                 (bottom, square[3])):
            self.assertAlmostEqual(stretched, plain, delta=2)
        self.assertEqual(self.icon("song.mp3", "100.7x96.2").size, (101, 97))

    def test_icon_of_a_folder_is_another(self):
        os.mkdir(self.path("Music.mp3"))
        folder = self.icon(self.path("Music.mp3"), "32x32")
        document = self.icon(self.path("Music2.mp3"), "32x32")
        self.assertNotEqual(folder.rows, document.rows)

    # poster

    def test_poster_is_the_poster_frame_or_the_first(self):
        frames = (RED, GREEN, BLUE)
        for poster, colour in ((2, BLUE), (1, GREEN), (0, RED), (100, RED)):
            movie = self.write("a.mov", movies.movie(16, 8, frames, poster))
            frame = self.picture("poster", movie)
            self.assertEqual((frame.size, frame.colours()), ((16, 8), {colour}))

    def test_poster_is_never_written_over_its_movie(self):
        movie = self.write("a.png", movies.movie(16, 8, (RED,)))
        self.assert_failure(run("poster", movie, "-o", movie), movie, "is the input itself")
        self.assertEqual(self.content(movie), movies.movie(16, 8, (RED,)))

    def test_poster_of_no_movie(self):
        movie = self.write("a.mp4", mp4(atom(b"mvhd", bytes(100))))
        self.assert_failure(run("poster", movie, "-o", self.out), movie, NOTHING)
        self.assert_nothing_written()
