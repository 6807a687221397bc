import os
import subprocess

from support import COMMAND, CommandTestCase, atom, id3v23, run, text_frame
from terminal import Terminal

BOLD, GREEN, YELLOW, RED, PLAIN = ("\x1b[1m", "\x1b[32m", "\x1b[33m", "\x1b[1;31m", "\x1b[0m")


class ColourTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.song = self.write("song.mp3", id3v23(text_frame(b"TIT2", "A Song")))

    def shown(self, *arguments, no_color="", **options):
        return Terminal([COMMAND, *arguments], stdout="terminal", no_color=no_color, **options).written

    def test_headings_stand_out_on_a_terminal(self):
        self.assertTrue(self.shown("info", self.song).startswith(f"{BOLD}{self.song}{PLAIN}\n  Type "))
        self.assertIn(f"\n{BOLD}Options:{PLAIN}\n  -h", self.shown("--help"))

    def test_failures_and_remarks_stand_out(self):
        missing = self.path("missing")
        self.assertEqual(self.shown("info", missing), f"{RED}kxmd:{PLAIN} {missing}: No such file or directory\n")
        self.assertTrue(self.shown("frobnicate").startswith(f"{RED}kxmd:{PLAIN} "))

    def test_changes_stand_out(self):
        os.mkdir(self.path("source"))
        self.write("source/a.mov", atom(b"ftyp", b"qt  ", bytes(4), b"qt  ")
                   + atom(b"moov", atom(b"trak", atom(b"mdia", atom(b"hdlr", bytes(8), b"vide", bytes(13)))),
                          atom(b"udta", atom(b"\xa9mak", bytes(9)))))
        self.write("source/b.txt", b"text")
        command = [COMMAND, "prepare", self.path("source/"), "--to", self.path("out")]
        terminal = Terminal(["/bin/sh", "-c", '"$@" 2>/dev/null', "sh", *command], stdout="terminal", no_color="")
        self.assertIn(f"{GREEN}cleaned:{PLAIN} a.mov (", terminal.written)
        self.assertIn("\ncopied: b.txt (", "\n" + terminal.written)

    def test_none_without_a_terminal_that_knows_them(self):
        for options in ({"no_color": "1"}, {"kind": "dumb"}, {"kind": ""}):
            for arguments in (("info", self.song), ("--help",), ("info", self.path("missing")), ("frobnicate",)):
                self.assertNotIn("\x1b", self.shown(*arguments, **options), (options, arguments))

    def test_each_stream_has_its_own(self):
        """The other is a file or a pipe."""
        environment = {**os.environ, "TERM": "xterm", "NO_COLOR": ""}
        result = run("info", self.song, self.path("missing"), env=environment)
        self.assertNotIn(b"\x1b", result.out)
        self.assertNotIn("\x1b", result.errors[0])
        errors = Terminal([COMMAND, "info", self.song, self.path("missing")], stdout=subprocess.DEVNULL, no_color="")
        self.assertIn(RED, errors.written)
        output = Terminal(["/bin/sh", "-c", '"$0" info "$1" "$2" 2>"$3"', COMMAND, self.song, self.path("missing"),
                           self.path("errors")], stdout="terminal", no_color="")
        self.assertIn(BOLD, output.written)
        with open(self.path("errors"), "rb") as file:
            self.assertNotIn(b"\x1b", file.read())

    def test_json_has_none(self):
        self.assertNotIn("\x1b", self.shown("info", "--json", self.song))

    def test_names_cannot_forge_them(self):
        name = self.write("\x1b[1mbold.mp3", b"")
        self.assertNotIn("\x1b[1mbold", self.shown("info", name))
