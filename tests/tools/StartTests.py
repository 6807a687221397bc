import glob
import os
import re

from support import CommandTestCase, atom, id3v23, preloading, run, text_frame

OF_THE_LANGUAGE = {"libkxmd", "libstdc++", "libm", "libgcc_s", "libc", "libpthread", "libdl", "librt", "ld-linux-x86-64"}
OF_SANITIZERS = {"libasan", "libubsan", "libtsan", "liblsan"}


class StartTests(CommandTestCase):
    """What a run loads and opens takes most of the time of a short one."""

    def setUp(self):
        super().setUp()
        os.mkdir(self.path("media"))
        self.song = self.write("media/a.mp3", id3v23(text_frame(b"TIT2", "Song")))
        self.movie = self.write("media/a.mp4", atom(b"ftyp", b"mp42" + bytes(4)) + atom(b"moov", atom(b"udta", b"")))

    def loaded(self, *arguments):
        """The libraries that a run loads, as the loader writes them down."""
        notes = self.path("notes")
        run(*arguments, env={**os.environ, "LD_DEBUG": "files", "LD_DEBUG_OUTPUT": notes})
        names = set()
        for path in glob.glob(notes + ".*"):
            with open(path) as file:
                names.update(re.findall(r"calling init: \S*/([^/\s]+?)\.so", file.read()))
            os.remove(path)
        return names - OF_SANITIZERS

    def test_whatever_only_reads_loads_no_library_of_others(self):
        for arguments in (("--version",), ("--help",), ("info", self.song), ("info", "--json", self.song),
                          ("info", "-r", self.path("media")), ("info", "-j", "2", self.song, self.movie),
                          ("info", self.movie), ("atoms", self.movie), ("frames", self.song)):
            loaded = self.loaded(*arguments)
            self.assertIn("libkxmd", loaded, arguments)
            self.assertEqual(loaded - OF_THE_LANGUAGE, set(), arguments)

    def test_whatever_asks_the_machine_loads_its_libraries(self):
        loaded = self.loaded("info", self.write("text", b"Dear diary"))
        self.assertIn("libglib-2", {name.partition(".")[0] for name in loaded})

    def test_nothing_is_opened_but_the_file(self):
        for arguments in (("info", self.song), ("info", self.movie), ("atoms", self.movie), ("frames", self.song)):
            counting = {name: value for name, value in preloading("KXMD_COUNT_OPENS").items() if name != "KXMD_COUNTED"}
            self.assertEqual(run(*arguments, env=counting).status, 1, arguments)
