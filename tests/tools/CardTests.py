"""Results on phones and cards, whose file systems lack much of what a disk has."""

import contextlib
import os
import subprocess

import pictures
from audio import encode, samples, tone
from phone_mount import exfat_card, phone
from support import CommandTestCase, run

WRITE_FILE = os.environ["KXMD_WRITE_FILE"]
PHONES = {"no renames": {}, "no renames over files": {"renames": True, "replaces": False}, "renames": {"renames": True}}


class CardTests(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.picture = self.write("picture.png", pictures.solid(300, 200, pictures.RED))
        self.music = encode(self.path("a.mp3"), *tone(3), "-metadata", "title=Title")
        self.expected = self.path("expected")
        self.assertEqual(run("cover", "add", self.music, self.picture, "-o", self.expected).errors, [])
        self.size = os.path.getsize(self.expected)

    def read(self, path):
        with open(path, "rb") as file:
            return file.read()

    def add_cover(self, target, **options):
        return run("cover", "add", self.music, self.picture, "-o", target, **options)

    @contextlib.contextmanager
    def mounted(self, mount):
        """The mount, with nothing of it left afterwards."""
        with mount as found:
            yield found
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mp3", "expected", "picture.png"])

    def assert_takes_files(self, folder):
        """New ones, and in place of others that are longer or shorter."""
        target = os.path.join(folder, "song.mp3")
        for old in (None, b"old", bytes(self.size + 100000)):
            if old:
                with open(target, "wb") as file:
                    file.write(old)
            self.assertEqual(self.add_cover(target).errors, [])
            self.assertEqual(self.read(target), self.read(self.expected))
            self.assertEqual(os.listdir(folder), ["song.mp3"])

    def assert_is_full(self, folder, room, old=None):
        """With so much room, of a few blocks more or less, nothing is written, and nothing lost."""
        target = os.path.join(folder, "song.mp3")
        if old:
            with open(target, "wb") as file:
                file.write(old)
        status = os.statvfs(folder)
        with open(os.path.join(folder, "filler"), "wb") as file:
            file.write(bytes(status.f_bavail * status.f_frsize - room))
        self.assert_failure(self.add_cover(target), target, "No space left on device")
        self.assertEqual(sorted(os.listdir(folder)), ["filler", "song.mp3"] if old else ["filler"])
        if old:
            self.assertEqual(self.read(target), old)
        os.remove(os.path.join(folder, "filler"))

    # Phones.

    def test_phone_takes_files(self):
        for name, how in PHONES.items():
            with self.subTest(phone=name), self.mounted(phone(self.folder, **how)) as found:
                self.assert_takes_files(found.path)

    def test_phone_that_is_full_loses_nothing(self):
        for name, how in PHONES.items():
            with self.subTest(phone=name), self.mounted(phone(self.folder, capacity=1 << 20, **how)) as found:
                self.assert_is_full(found.path, self.size // 2)
                self.assert_is_full(found.path, self.size // 2, b"old")
                self.assert_is_full(found.path, 0, bytes(self.size + 5000))

    def test_phone_without_room_for_a_second_copy_loses_nothing(self):
        with self.mounted(phone(self.folder, capacity=1 << 20)) as found:
            self.assert_is_full(found.path, self.size + 5000)
            self.assert_is_full(found.path, self.size + 5000, b"old")
            self.assert_is_full(found.path, self.size + 5000, bytes(self.size - 20000))

    def test_phone_with_room_for_what_is_longer_takes_it(self):
        with self.mounted(phone(self.folder, capacity=2 * self.size + 2000)) as found:
            target = os.path.join(found.path, "song.mp3")
            with open(target, "wb") as file:
                file.write(bytes(self.size - 20000))
            self.assertEqual(self.add_cover(target).errors, [])
            self.assertEqual(self.read(target), self.read(self.expected))

    def test_phone_that_is_unplugged_is_told(self):
        for name, how in PHONES.items():
            with self.subTest(phone=name), self.mounted(phone(self.folder, **how)) as found:
                found.unplug()
                target = os.path.join(found.path, "song.mp3")
                self.assert_failure(self.add_cover(target), target, "Input/output error")
                self.assertEqual(os.listdir(found.backing), [])

    def test_phone_that_is_unplugged_meanwhile_has_one_whole_file(self):
        for old in (None, b"old", bytes(self.size)):
            for count in (0, self.size // 2, self.size, self.size * 3 // 2):
                with self.subTest(old=old and len(old), count=count), self.mounted(phone(self.folder)) as found:
                    target = os.path.join(found.path, "song.mp3")
                    if old:
                        with open(target, "wb") as file:
                            file.write(old)
                    found.unplug_after(count)
                    result = self.add_cover(target)
                    self.assertEqual((result.status, len(result.errors)), (1, 1))
                    self.assertIn(f"kxmd: {target}: Input/output error", result.errors[0])
                    whole = {self.read(self.expected), old}
                    files = {name: self.read(os.path.join(found.backing, name)) for name in os.listdir(found.backing)}
                    if old or count >= self.size:
                        self.assertTrue(whole & set(files.values()), files.keys())
                    if old and count >= self.size:
                        part, = set(files) - {"song.mp3"}
                        self.assertTrue(result.errors[0].endswith(os.path.join(found.path, part)), result.errors)
                        self.assertEqual(files[part], self.read(self.expected))
                    elif old:
                        self.assertEqual(files["song.mp3"], old)

    def test_copy_that_fails_leaves_no_half_file(self):
        for old in (None, b"old"):
            for count in (self.size // 2, self.size * 3 // 2):
                with self.subTest(old=old, count=count), self.mounted(phone(self.folder)) as found:
                    target = os.path.join(found.path, "song.mp3")
                    if old:
                        with open(target, "wb") as file:
                            file.write(old)
                    found.fail_after(count)
                    self.assertEqual(self.add_cover(target).status, 1)
                    left = sorted(os.listdir(found.path))
                    if old and count > self.size:
                        part, name = left
                        self.assertEqual(name, "song.mp3")
                        self.assertEqual(self.read(os.path.join(found.path, part)), self.read(self.expected))
                    else:
                        self.assertEqual(left, ["song.mp3"] if old else [])

    def test_part_that_was_left_is_taken_over(self):
        with self.mounted(phone(self.folder)) as found:
            target = os.path.join(found.path, "song.mp3")
            with open(target, "wb") as file:
                file.write(b"old")
            found.fail_after(self.size * 3 // 2)
            self.assertEqual(self.add_cover(target).status, 1)
            self.assertEqual(len(os.listdir(found.path)), 2)
            found.fail_after(10 * self.size)
            self.assertEqual(self.add_cover(target).errors, [])
            self.assertEqual(os.listdir(found.path), ["song.mp3"])
            self.assertEqual(self.read(target), self.read(self.expected))

    # Cards.

    def test_card_takes_files(self):
        with self.mounted(exfat_card(self.folder)) as card:
            self.assert_takes_files(card)

    def test_card_that_is_full_loses_nothing(self):
        with self.mounted(exfat_card(self.folder, megabytes=4)) as card:
            self.assert_is_full(card, self.size // 2)
            self.assert_is_full(card, self.size // 2, b"old")
            self.assert_is_full(card, 0, bytes(self.size + 5000))

    # Times.

    def test_files_get_their_time(self):
        def time_in(folder):
            target = os.path.join(folder, "file")
            for _ in range(2):  # There it is replaced.
                with open(self.music, "rb") as source:
                    subprocess.run([WRITE_FILE, target, "1000000001"], stdin=source, check=True)
                self.assertEqual(self.read(target), self.read(self.music))
            found = os.stat(target).st_mtime
            os.remove(target)
            return found

        self.assertEqual(time_in(self.folder), 1000000001)
        with self.mounted(exfat_card(self.folder)) as card:
            self.assertAlmostEqual(time_in(card), 1000000001, delta=1)
        with self.mounted(phone(self.folder)) as found:  # Keeps none, which is no failure.
            self.assertGreater(time_in(found.path), 1600000000)
