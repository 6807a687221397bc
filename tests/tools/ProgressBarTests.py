import os
import subprocess
import time

import pictures
from support import COMMAND, CommandTestCase, atom, mp4
from terminal import ERASE, Terminal

SHOW_PROGRESS = os.environ["KXMD_SHOW_PROGRESS"]


def show(total, *instructions, **options):
    return Terminal([SHOW_PROGRESS], stdin="\n".join([total, *instructions]).encode(), **options)


class ProgressBarTests(CommandTestCase):
    def test_shows_how_many_are_done(self):
        terminal = show("files 4 0", "advance 1 0", "wait 110", "advance 1 0")
        self.assertEqual(terminal.statuses(), [
            "[>                                     ] 0 of 4 files",
            "[===================>                  ] 2 of 4 files"])

    def test_shows_bytes_in_the_unit_of_the_total(self):
        for total, shown in ((999, "500 of 999 B"), (1000, "0.5 of 1.0 kB"), (34_500_000, "0.0 of 34.5 MB"),
                             (2_000_000_000_000_000, "0.0 of 2000.0 TB")):
            terminal = show(f"files 9 {total}", "wait 110", "advance 3 500")
            self.assertIn(f"3 of 9 files, {shown}", terminal.statuses()[-1])

    def test_bytes_fill_the_bar_when_they_are_known(self):
        terminal = show("files 10 1000", "wait 110", "advance 1 500")
        self.assertEqual(terminal.statuses()[-1].count("="), 19)

    def test_is_full_at_the_end_and_never_fuller(self):
        for instruction in ("advance 2 0", "advance 7 0"):
            self.assertIn("[" + "=" * 38 + "]", show("files 2 0", "wait 110", instruction).statuses()[-1])
        self.assertIn("[" + "=" * 38 + "] 0 of 0 files", show("files 0 0").statuses()[-1])

    def test_tells_the_time_left_after_a_second(self):
        terminal = show("files 4 0", "wait 300", "advance 1 0", "wait 800", "advance 1 0", "wait 110",
                        "advance 1 0")
        self.assertNotIn("left", terminal.statuses()[1])
        # Half was done in 1.1 seconds, and that much is left: in whole seconds, rounded up.
        self.assertRegex(terminal.statuses()[2], r"2 of 4 files, 0:0[2-4] left$")
        self.assertRegex(terminal.statuses()[3], r"3 of 4 files, 0:0[12] left$")

    def test_long_times(self):
        hours = show("files 100000 0", "wait 1010", "advance 10 0").statuses()[-1]
        self.assertRegex(hours, r"10 of 100000 files, [2-4]:[0-5]\d:[0-5]\d left$")
        minutes = show("files 1000 0", "wait 1010", "advance 10 0").statuses()[-1]
        self.assertRegex(minutes, r"10 of 1000 files, [1-3]:[0-5]\d left$")

    def test_is_drawn_at_most_ten_times_a_second(self):
        start = time.monotonic()
        many = ["advance 1 0"] * 50_000
        terminal = show("files 100000 0", *many, "wait 110", *many)
        elapsed = time.monotonic() - start
        drawn = len(terminal.statuses())
        self.assertGreaterEqual(drawn, 2)
        self.assertLessEqual(drawn, 1 + elapsed * 10)

    def test_is_erased_at_the_end(self):
        self.assertEqual(show("files 4 0", "wait 110", "advance 1 0").lines(), [""])

    def test_lines_stay_above_it(self):
        for stdout in (subprocess.PIPE, "terminal"):
            verb = "error" if stdout == subprocess.PIPE else "result"
            terminal = show("files 4 0", f"{verb} one", "wait 110", "advance 1 0", f"{verb} two", stdout=stdout)
            start = "kxmd: path: " if verb == "error" else ""
            self.assertEqual(terminal.lines(), [f"{start}one", f"{start}two", ""])
            # And it is there again after each of them.
            below = terminal.written.split("\n")[1:]
            self.assertTrue(below[0].startswith("[>"), below)
            self.assertIn("1 of 4 files", below[1])

    def test_fits_the_terminal(self):
        for columns in (1, 5, 12, 20, 30, 60, 200):
            terminal = show("files 1000 0", "wait 110", "advance 500 0", columns=columns)
            for status in terminal.written.split(ERASE):
                self.assertLessEqual(len(status), max(columns - 1, 0))
        self.assertEqual(show("files 10 0", columns=30).statuses(), ["[>            ] 0 of 10 files"])
        self.assertEqual(show("files 10 0", columns=24).statuses(), ["0 of 10 files"])

    def test_nothing_on_what_is_no_terminal(self):
        for kind in ("dumb", ""):
            self.assertEqual(show("files 4 0", "error one", kind=kind).written, "kxmd: path: one\n")
        finished = subprocess.run([SHOW_PROGRESS], input=b"files 4 0\nwait 110\nadvance 1 0\nerror one\n",
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True)
        self.assertEqual((finished.stdout, finished.stderr), (b"", b"kxmd: path: one\n"))

    # The commands that have one.

    def composite(self, *arguments, **options):
        files = [self.write(f"{i}.png", pictures.solid(8, 8, (i, i, i, 255))) for i in range(30)]
        return Terminal([COMMAND, "composite", *arguments, *files, self.path("missing"), "-s", "8x8",
                         "-o", self.path("out.png")], **options)

    def test_composite_shows_one(self):
        terminal = self.composite()
        self.assertEqual(terminal.status, 1)
        self.assertIn("0 of 31 files", terminal.statuses()[0])
        self.assertEqual(terminal.lines(), [f"kxmd: {self.path('missing')}: No such file or directory", ""])

    def test_composite_shows_none_when_it_is_to_be_quiet(self):
        error = f"kxmd: {self.path('missing')}: No such file or directory\n"
        self.assertEqual(self.composite("-q").written, error)
        quiet = Terminal([COMMAND, "-q", "composite", self.path("missing"), "-s", "8x8", "-o", "out.png"])
        self.assertEqual(quiet.written, error)

    def test_log_lines_stay_above_it(self):
        handler = atom(b"hdlr", bytes(4))  # Too short.
        movie = self.write("a.mp4", mp4(handler))
        terminal = Terminal([COMMAND, "composite", movie, "-s", "8x8", "-o", self.path("out.png")])
        lines = terminal.lines()
        self.assertRegex(lines[0], r"^\[Metadata\] KXMP4AtomHdlr->")
        self.assertEqual(lines[1:], [f"kxmd: {movie}: has nothing to show", ""])

    def test_cache_name_of_a_composite_shows_one(self):
        path = self.write("a.txt", b"text")
        terminal = Terminal([COMMAND, "cache-name", "--composite", path, "-s", "8x8"], stdout="terminal")
        self.assertIn("0 of 1 files", terminal.statuses()[0])
        self.assertRegex(terminal.lines()[0], r"^[0-9a-f]{40}$")
