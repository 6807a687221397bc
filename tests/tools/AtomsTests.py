import os
import re
import subprocess
import threading

from support import (COMMAND, CommandTestCase, atom, mp4, nested, run, sound_entry, tag_atom, track,
                     user_data)

# Characters that a terminal obeys, but for the tabs and line ends of our own.
STEERING = "[\0-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]"
DESCRIBE_TREE = os.environ["KXMD_DESCRIBE_TREE"]

SONG = mp4(track(b"soun", sound_entry(2)),
           user_data(tag_atom(b"\xa9nam", "Blue\u2122"), tag_atom(b"\xa9alb", "Sky")))


def described(path, form="--tree"):
    """What the library says of the tree."""
    return subprocess.run([DESCRIBE_TREE, form, path], stdout=subprocess.PIPE, check=True).stdout


def bytes_until_end(pipe):
    count = 0
    with open(pipe, "rb", buffering=0) as file:
        while block := file.read(1 << 20):
            count += len(block)
    return count


class AtomsTests(CommandTestCase):
    def assert_as_the_library_says(self, content):
        path = self.write("a.mp4", content)
        for flags, form in (((), "--tree"), (("--paths",), "--paths")):
            result = run("atoms", *flags, path)
            self.assertEqual(result.status, 0, result.errors)
            self.assertEqual(result.out, described(path, form))

    def test_tree_of_a_song(self):
        self.assert_as_the_library_says(SONG)
        lines = run("atoms", self.path("a.mp4")).out.decode().splitlines()
        self.assertTrue(lines[0].startswith("MP4 Atom:ROOT"), lines[0])
        self.assertTrue(lines[1].startswith("\tMP4 Atom:ftyp"), lines[1])

    def test_paths_of_a_song(self):
        path = self.write("a.mp4", SONG)
        lines = run("atoms", "--paths", path).out.decode().splitlines()
        self.assertEqual(lines[0], f"ROOT Size:{len(SONG)}")
        self.assertEqual(lines[1], "ROOT.ftyp Size:20")
        self.assertTrue(any(line.startswith("ROOT.moov.udta.meta.ilst.\xa9nam Size:")
                            for line in lines), lines)

    def test_tree_goes_up_and_down_again(self):
        self.assert_as_the_library_says(
            atom(b"moov", atom(b"trak", atom(b"mdia", atom(b"minf"))), atom(b"trak", atom(b"free")))
            + atom(b"free") + atom(b"moov", atom(b"udta")))

    def test_tree_of_odd_tags(self):
        self.assert_as_the_library_says(atom(b"\0abc") + atom(b"a.b ") + atom(b"\xff\xfe\xa0~"))

    def test_no_atom_can_steer_the_terminal(self):
        path = self.write("a.mp4", atom(b"a\nb\x1b") + atom(b"\x07\x9b\r\x7f") + mp4(user_data(
            tag_atom(b"\xa9nam", "\x1b[2J\u202eevil\u2029"))))
        tree = run("atoms", path).out.decode()
        self.assertEqual(re.findall(r"\tMP4 Atom:(....)", tree)[:2], ["a?b?", "????"])
        self.assertIn("?[2J?evil?", tree)
        paths = run("atoms", "--paths", path).out.decode()
        self.assertTrue(paths.splitlines()[1].startswith("ROOT.a?b? Size:8"), paths)
        for out in (tree, paths, run("atoms", "--json", path).out.decode()):
            self.assertNotRegex(out, STEERING)
        told = run("atoms", "--json", path).objects()
        self.assertEqual([told[1]["tag"], told[2]["tag"]], ["a\nb\x1b", "\x07\x9b\r\x7f"])
        self.assertIn("\x1b[2J\u202eevil\u2029", [one.get("content") for one in told])

    def test_tree_of_moderate_depth(self):
        self.assert_as_the_library_says(nested(2000))

    def test_tree_of_files_that_are_no_mp4(self):
        self.assert_as_the_library_says(b"words, not atoms at all")
        self.assert_as_the_library_says(b"ID3\x03" + bytes(64))
        self.assert_as_the_library_says(b"")

    def test_json(self):
        path = self.write("a.mp4", SONG)
        result = run("atoms", "--json", path)
        self.assertEqual(result.status, 0, result.errors)
        atoms = result.objects()
        self.assertEqual(atoms[0], {"depth": 0, "offset": 0, "size": len(SONG), "tag": "ROOT",
                                    "path": "ROOT"})
        self.assertEqual(atoms[1], {"depth": 1, "offset": 0, "size": 20, "tag": "ftyp",
                                    "path": "ROOT.ftyp"})
        self.assertEqual(list(atoms[1]), ["depth", "offset", "size", "tag", "path"])
        self.assertEqual(atoms[2]["offset"], 20)

    def test_json_content(self):
        atoms = run("atoms", "--json", self.write("a.mp4", SONG)).objects()
        [title] = [told for told in atoms if told["tag"] == "\xa9nam"]
        self.assertEqual(list(title), ["depth", "offset", "size", "tag", "path", "content"])
        self.assertEqual(title["content"], "Blue\u2122")
        self.assertEqual(title["path"], "ROOT.moov.udta.meta.ilst.\xa9nam")
        self.assertEqual(title["depth"], 5)
        self.assertEqual(SONG[title["offset"] + 4:title["offset"] + 8], b"\xa9nam")

    def test_json_agrees_with_paths(self):
        path = self.write("a.mp4", SONG)
        lines = [f"{told['path']} Size:{told['size']}"
                 for told in run("atoms", "--json", path).objects()]
        self.assertEqual(lines, run("atoms", "--paths", path).out.decode().splitlines())

    def test_missing_file(self):
        for flags in ((), ("--paths",), ("--json",)):
            path = self.path("none")
            result = run("atoms", *flags, path)
            self.assert_failure(result, path, "No such file or directory")
            self.assertEqual(result.out, b"")

    def test_fifo_does_not_hang(self):
        path = self.path("fifo")
        os.mkfifo(path)
        self.assert_failure(run("atoms", path), path)

    def test_deep_tree_is_cut_off(self):
        path = self.write("deep.mp4", nested(1000000))
        bound = 256 << 20
        for flags in ((), ("--paths",), ("--json",)):
            out, count = os.pipe(), []
            counting = threading.Thread(target=lambda: count.append(bytes_until_end(out[0])))
            counting.start()
            result = run("atoms", *flags, path, stack=512, stdout=out[1])
            os.close(out[1])
            counting.join()
            self.assert_failure(result, path, "the tree is too large to print, the rest is left out")
            self.assertLessEqual(count[0], bound)
            self.assertGreater(count[0], bound - (1 << 20))

    def test_reader_that_goes_away(self):
        path = self.write("deep.mp4", nested(20000))
        process = subprocess.Popen([COMMAND, "atoms", path], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.assertTrue(process.stdout.readline().startswith(b"MP4 Atom:ROOT"))
        process.stdout.close()
        errors = process.stderr.read()
        process.stderr.close()
        self.assertEqual(process.wait(timeout=60), 1)
        self.assertEqual(errors, b"")

    def test_full_disk(self):
        with open("/dev/full", "wb") as out:
            result = run("atoms", self.write("a.mp4", SONG), stdout=out)
        self.assert_failure(result, "standard output", "No space left on device")
