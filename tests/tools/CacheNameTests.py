import hashlib

from support import CommandTestCase, mp4, run, tag_atom, user_data


def name_of(text):
    return hashlib.sha1(text.encode()).hexdigest().encode() + b"\n"


class CacheNameTests(CommandTestCase):
    def assert_name(self, text, *arguments):
        result = run("cache-name", *arguments)
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertEqual(result.out, name_of(text))

    def test_whole_size(self):
        self.assert_name("/music/a.mp3_256x128", "/music/a.mp3", "-s", "256x128")

    def test_decimals_are_cut(self):
        self.assert_name("key_100x96", "key", "-s", "100.7x96.2")

    def test_forms_of_the_option(self):
        for arguments in (("-s1x2", "key"), ("key", "--size", "1x2"), ("--size=1x2", "key")):
            self.assert_name("key_1x2", *arguments)

    def test_any_text_is_a_key(self):
        for key in ("", "[a,b]", "{}", "\u00e9t\u00e9", "a b"):
            self.assert_name(f"{key}_1x1", key, "-s", "1x1")
        self.assert_name("-s_1x1", "-s", "1x1", "--", "-s")

    def test_invalid_sizes_are_refused(self):
        for size in ("", "x", "256", "256x", "x256", "256X256", "256x256x256", "-1x5", "5x-1", "+1x5",
                     "1e3x5", "0x10", "10x0", "infxinf", "nanx1", "1 x1", " 1x1", "1x1 ", "1,5x1",
                     "[1x1]", "9" * 400 + "x1"):
            with self.subTest(size=size):
                self.assert_usage_error(run("cache-name", "key", f"--size={size}"))
                self.assert_usage_error(run("cache-name", "key", "-s", size))

    def test_missing_arguments(self):
        self.assert_usage_error(run("cache-name", "key"))
        self.assert_usage_error(run("cache-name", "-s", "1x1"))
        self.assert_usage_error(run("cache-name", "key", "key", "-s", "1x1"))
        self.assert_usage_error(run("cache-name", "--file", "-s", "1x1"))
        self.assert_usage_error(run("cache-name", "--composite", "-s", "1x1"))
        self.assert_usage_error(run("cache-name", "--file", "a", "b", "-s", "1x1"))
        self.assert_usage_error(run("cache-name", "--file", "--composite", "a", "-s", "1x1"))

    def track(self, name, *tags):
        return self.write(name, mp4(user_data(*tags)))

    def test_file_with_artist_and_album_is_named_after_them(self):
        artist, album = tag_atom(b"\xa9ART", "Artist"), tag_atom(b"\xa9alb", "Album")
        self.assert_name("Artist_Album_9x8", "--file", self.track("a.m4a", artist, album), "-s", "9.9x8")
        band = self.track("b.m4a", artist, album, tag_atom(b"aART", "Band"))
        self.assert_name("Band_Album_9x8", "--file", band, "-s", "9x8")

    def test_other_files_are_named_after_their_path_as_typed(self):
        self.track("a.m4a", tag_atom(b"\xa9ART", "Artist"))
        for path in (self.path("a.m4a"), self.path("./a.m4a"), self.write("[a].txt", b"text")):
            self.assert_name(f"{path}_1x1", "--file", path, "-s", "1x1")
        result = run("cache-name", "--file", "-s", "1x1", "--", "a.m4a", cwd=self.folder)
        self.assertEqual(result.out, name_of("a.m4a_1x1"))

    def test_composite_joins_four_names(self):
        album = (tag_atom(b"\xa9ART", "A"), tag_atom(b"\xa9alb", "B"))
        tracks = [self.track(f"{i}.m4a", *album) for i in range(3)]
        others = [self.write(f"{i}.txt", b"text") for i in range(4)]
        names = [name_of("A_B_1x1"), *(name_of(f"{path}_1x1") for path in others)]
        for paths, used in ((tracks, 1), (tracks + others[:2], 1), (tracks + others[:3], 4),
                            (tracks + others, 4)):
            for arguments in (("--composite", *paths, "-s", "1x1"), ("-s", "1x1", "--composite", *paths)):
                result = run("cache-name", *arguments)
                self.assertEqual((result.status, result.errors), (0, []))
                expected = b"-".join(name.strip() for name in names[:used]) + b"\n"
                self.assertEqual(result.out, expected)

    def test_unreadable_files_have_no_name(self):
        missing = self.path("missing")
        for flag in ("--file", "--composite"):
            result = run("cache-name", flag, missing, "-s", "1x1")
            self.assert_failure(result, missing, "No such file or directory")
            self.assertEqual(result.out, b"")
        track = self.track("a.m4a")
        result = run("cache-name", "--composite", missing, track, "-s", "1x1")
        self.assert_failure(result, missing, "No such file or directory")
        self.assertEqual(result.out, name_of(f"{track}_1x1"))
