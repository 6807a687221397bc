import hashlib

from support import CommandTestCase, run


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
