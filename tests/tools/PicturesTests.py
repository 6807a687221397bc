import os
import struct
import subprocess

import movies
import pictures
from audio import encode
from pictures import BLUE, GREEN, RED, TRANSPARENT, WHITE, Picture
from support import CommandTestCase, atom, mp4, run, sound_entry, tag_atom, track, user_data

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

    def test_thumbnail_that_fits_keeps_its_shape(self):
        photo = self.write("a.png", pictures.encoded(40, 20, lambda x, y: RED if x < 20 else BLUE))
        for size, shown in (("20x20", (20, 10)), ("100x10", (20, 10)), ("10x100", (10, 5)), ("99x99", (40, 20))):
            thumbnail = self.picture("thumbnail", photo, "-s", size, "--fit")
            self.assertEqual(thumbnail.size, shown, size)
            self.assertEqual((thumbnail.pixel(0, 0), thumbnail.pixel(shown[0] - 1, 0)), (RED, BLUE), size)

    # Many thumbnails

    def thumbnails_below(self, folder):
        return {os.path.relpath(os.path.join(where, name), folder): Picture(self.content(os.path.join(where, name)))
                for where, _, names in os.walk(folder) for name in names}

    def test_thumbnails_of_many_are_named_after_their_files(self):
        paths = self.four_files()
        target = self.path("new/folder")
        result = run("thumbnail", *paths, "-s", "6x4", "--to", target + "/")
        self.assertEqual((result.status, result.errors, result.out), (0, [], b""))
        shown = self.thumbnails_below(target)
        self.assertEqual({name: (picture.size, picture.pixel(1, 1)) for name, picture in shown.items()},
                         {f"{i}.png.png": ((6, 4), colour) for i, colour in enumerate((RED, GREEN, BLUE, WHITE))})
        for jobs in ("1", "7"):
            again = self.path(jobs)
            self.assertEqual(run("thumbnail", *paths, "-s", "6x4", "--to", again, "-j", jobs).status, 0)
            self.assertEqual({name: self.content(os.path.join(again, name)) for name in shown},
                             {name: self.content(os.path.join(target, name)) for name in shown})

    def test_thumbnails_of_many_that_fit(self):
        photo = self.write("a.png", pictures.solid(40, 20, RED))
        self.assertEqual(run("thumbnail", photo, photo, "-s", "20x20", "--fit", "--to", self.path("to")).status, 1)
        self.assertEqual(self.thumbnails_below(self.path("to"))["a.png.png"].size, (20, 10))

    def test_thumbnails_of_tracks_of_one_album_are_their_own(self):
        paths = []
        for i, colour in enumerate((RED, GREEN)):
            cover = atom(b"covr", atom(b"data", struct.pack(">II", 14, 0), pictures.solid(8, 8, colour)))
            paths.append(self.write(f"{i}.m4a", mp4(track(b"soun", sound_entry(2)),
                                                    user_data(tag_atom(b"\xa9alb", "Sky"), cover))))
        self.assertEqual(run("thumbnail", *paths, "-s", "8x8", "--to", self.path("to")).status, 0)
        shown = self.thumbnails_below(self.path("to"))
        self.assertEqual([shown[f"{i}.m4a.png"].pixel(4, 4) for i in range(2)], [RED, GREEN])

    def test_thumbnails_of_folders(self):
        for name in ("in/b.png", "in/deep/a.png", "in/deep/words.txt"):
            os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
            self.write(name, pictures.solid(8, 8, RED) if name.endswith("png") else b"words")
        target = self.path("in/to")  # Not entered itself.
        for _ in range(2):
            result = run("thumbnail", "-r", self.path("in"), "-s", "4x4", "--to", target)
            self.assert_failure(result, self.path("in/deep/words.txt"), NOTHING)
            self.assertEqual(set(self.thumbnails_below(target)), {"b.png.png", "deep/a.png.png"})

    def test_thumbnails_that_fail_cost_no_others(self):
        good, target = self.write("good.png", pictures.solid(8, 8, RED)), self.path("to")
        os.mkdir(self.path("twice"))
        bad, missing = self.write("bad.png", b"words"), self.path("missing.png")
        twice = self.write("twice/good.png", pictures.solid(8, 8, BLUE))
        result = run("thumbnail", bad, missing, self.folder, good, twice, "-s", "4x4", "--to", target)
        self.assertEqual(result.status, 1)
        self.assertEqual(len(result.errors), 4, result.errors)
        for error, (path, problem) in zip(result.errors, [
                (bad, NOTHING), (missing, "No such file"), (self.folder, "is a folder"),
                (twice, "another file has the same target")]):
            self.assertIn(f"kxmd: {path}: {problem}", error)
        shown = self.thumbnails_below(target)
        self.assertEqual({name: picture.pixel(1, 1) for name, picture in shown.items()}, {"good.png.png": RED})

    def test_what_is_no_file_takes_no_name_from_one(self):
        for name in ("missing", "folder", "given"):
            os.mkdir(self.path(name))
        os.mkdir(self.path("folder/a.png"))
        given = self.write("given/a.png", pictures.solid(8, 8, RED))
        result = run("thumbnail", self.path("missing/a.png"), self.path("folder/a.png"), given, "-s", "4x4",
                     "--to", self.path("to"))
        self.assertEqual((result.status, len(result.errors)), (1, 2))
        self.assertEqual(set(self.thumbnails_below(self.path("to"))), {"a.png.png"})

    def test_thumbnails_are_never_written_over_a_file_that_is_shown(self):
        content = pictures.solid(8, 8, RED)
        first, second = self.write("a", content), self.write("a.png", content)
        result = run("thumbnail", first, second, "-s", "4x4", "--to", self.folder)
        self.assert_failure(result, first, "its target is one of the files that are read")
        self.assertEqual(self.content(second), content)
        self.assertEqual(Picture(self.content(self.path("a.png.png"))).size, (4, 4))

    def test_thumbnails_of_private_files_are_private(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        os.chmod(photo, 0o600)
        self.assertEqual(run("thumbnail", photo, "-s", "4x4", "--to", self.path("to")).status, 0)
        self.assertEqual(os.stat(self.path("to/a.png.png")).st_mode & 0o777, 0o600)

    def test_one_file_goes_to_a_file_and_many_to_a_folder(self):
        photo = self.write("a.png", pictures.solid(8, 8, RED))
        for arguments in ((photo, photo, "-o", self.out), ("-r", photo, "-o", self.out),
                          (photo, "-o", self.out, "--to", self.path("to")), (photo, "--to", ""),
                          (photo, "--to", self.path("to"), "-j", "0"), ("--to", self.path("to"))):
            self.assert_usage_error(run("thumbnail", "-s", "4x4", *arguments))
        self.assert_nothing_written()
        self.assertFalse(os.path.exists(self.path("to")))

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

    def test_thumbnail_is_a_png_whatever_its_name(self):
        photo = self.write("a.png", pictures.solid(8, 6, RED))
        for name in (".thumbnail.X1Y2Z3", "out.jpg", "out.png"):
            for arguments in (("--png", "-o", self.path(name)), ("-o", self.path(name), "--png")):
                result = run("thumbnail", photo, "--fit", "-s", "4x4", *arguments)
                self.assertEqual((result.status, result.errors), (0, []))
                self.assertEqual(Picture(self.content(self.path(name))).size, (4, 3))
                os.remove(self.path(name))
        self.assert_usage_error(run("icon", photo, "-s", "4x4", "--png", "-o", self.path("out")))

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

    def test_pictures_of_uncommon_formats(self):
        for name in ("a.bmp", "a.j2k", "a.jp2", "a.exr", "a.jxl", "a.qoi", "a.ppm", "a.pgm", "a.tiff", "a.webp"):
            with self.subTest(name=name):
                picture = encode(self.path(name), "-f", "lavfi", "-i", "color=gray:size=64x48,format=rgb24",
                                 "-frames:v", "1")
                thumbnail = self.picture("thumbnail", "--fit", "-s", "32x32", picture)
                self.assertEqual(thumbnail.size, (32, 24))
                # OpenEXR holds light, and half of it is brighter than the middle (IEC 61966-2-1).
                expected = 188 if name == "a.exr" else 128
                for value in thumbnail.pixel(16, 12)[:3]:
                    self.assertAlmostEqual(value, expected, delta=3)

    # poster

    def test_poster_is_the_poster_frame_or_the_first(self):
        frames = (RED, GREEN, BLUE)
        for poster, colour in ((2, BLUE), (1, GREEN), (0, RED), (100, RED)):
            movie = self.write("a.mov", movies.movie(16, 8, frames, poster))
            frame = self.picture("poster", movie)
            self.assertEqual((frame.size, frame.colours()), ((16, 8), {colour}))

    def stream(self, name, group):
        """A stream without an index: half a second of red frames, then blue ones, in groups of so many."""
        colour = "color=red:size=64x48:rate=20:duration={},format=yuv420p"
        path = encode(self.path(name), "-f", "lavfi", "-i", colour.format(0.5),
                      "-f", "lavfi", "-i", colour.replace("red", "blue").format(3.5),
                      "-filter_complex", "[0][1]concat", "-c:v", "mpeg2video", "-q:v", "2", "-bf", "0",
                      "-sc_threshold", "1000000000", "-g", str(group))
        return path

    def test_poster_of_a_stream_without_an_index_is_its_first_frame(self):
        for name in ("a.ts", "a.mpg"):
            for group in (3, 10, 200):
                with self.subTest(name=name, group=group):
                    poster = self.picture("poster", self.stream(name, group))
                    red, green, blue, _ = poster.pixel(32, 24)
                    self.assertTrue(red > 200 and green < 50 and blue < 50, poster.pixel(32, 24))

    def test_stream_of_one_group_of_pictures_is_shown(self):
        for name in ("a.ts", "a.mpg"):
            thumbnail = self.picture("thumbnail", "-s", "32x32", self.stream(name, 200))
            self.assertEqual(thumbnail.size, (32, 32))

    def test_poster_is_never_written_over_its_movie(self):
        movie = self.write("a.png", movies.movie(16, 8, (RED,)))
        self.assert_failure(run("poster", movie, "-o", movie), movie, "is the input itself")
        self.assertEqual(self.content(movie), movies.movie(16, 8, (RED,)))

    def test_poster_of_no_movie(self):
        movie = self.write("a.mp4", mp4(atom(b"mvhd", bytes(100))))
        self.assert_failure(run("poster", movie, "-o", self.out), movie, NOTHING)
        self.assert_nothing_written()
