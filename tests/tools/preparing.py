"""What the tests of kxmd prepare share: a collection of one file of each kind."""

import hashlib
import os
import shutil
import tempfile

from audio import attached, encode, pattern, tone
from support import CommandTestCase, run

MANIFEST = ".kxmd-manifest.ndjson"
CONVERT, CLEAN, COVER = ("KXMDFileProcessor" + name for name in ("ConvertALAC", "CleanIPhoneVideo", "AddAlbumCover"))


class PrepareTestCase(CommandTestCase):
    @classmethod
    def setUpClass(cls):
        """One file of each kind, encoded once."""
        cls.made = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.made)
        path = lambda name: os.path.join(cls.made, name)
        album = ("-metadata", "album=Sines", "-metadata", "artist=The Oscillators")
        encode(path("cover.jpg"), *pattern(320, 320), "-frames:v", "1")
        encode(path("tiny.jpg"), *pattern(64, 64), "-frames:v", "1")
        encode(path("lossless.m4a"), *tone(), "-c:a", "alac", *album)
        encode(path("song.mp3"), *tone(), *album, "-metadata", "title=Song")
        encode(path("song.m4a"), *tone(), "-c:a", "aac", *album)
        encode(path("tiny.m4a"), *attached(path("tiny.jpg"), *tone()), "-c:a", "aac", *album)
        encode(path("good.mp3"), *attached(path("cover.jpg"), *tone()), *album)
        encode(path("recording.mov"), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac",
               "-metadata", "make=A Phone", "-metadata", "comment=Home")
        encode(path("film.mp4"), *pattern(64, 64), *tone(), "-c:v", "mpeg4", "-c:a", "aac", "-metadata", "title=Film")
        encode(path("fragments.m4a"), *tone(), "-c:a", "aac", "-metadata", "title=F",
               "-movflags", "frag_keyframe+empty_moov")

    def setUp(self):
        super().setUp()
        self.source = self.path("source")
        self.out = self.path("out")
        os.mkdir(self.source)
        self.environment = {**os.environ, "XDG_CACHE_HOME": self.path("cache")}

    def place(self, name, made=None):
        """A copy of a file that was made, below the source folder."""
        path = os.path.join(self.source, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return shutil.copy(os.path.join(self.made, made or os.path.basename(name)), path)

    def put(self, name, content):
        path = os.path.join(self.source, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return self.write(path, content)

    def read(self, path):
        with open(path, "rb") as file:
            return file.read()

    def hashes(self, folder):
        """Of all files but the record of what was done."""
        return {os.path.relpath(os.path.join(where, name), folder):
                hashlib.sha1(self.read(os.path.join(where, name))).hexdigest()
                for where, _, names in os.walk(folder) for name in names if name != MANIFEST}

    def listed(self):
        """The names in the target folder, without the record of what was done."""
        return [name for name in os.listdir(self.out) if name != MANIFEST]

    def prepare(self, *arguments, **options):
        """A run on what is in the source folder, unless paths are given."""
        paths = [] if any(os.path.exists(word) for word in arguments) else [self.source + "/"]
        options.setdefault("env", self.environment)
        return run("prepare", *paths, "--to", self.out, *arguments, **options)

    def prepared(self, *arguments, **options):
        """The object of each file by its name in the target folder, and the summary."""
        result = self.prepare("--json", *arguments, **options)
        *files, summary = result.objects()
        self.assertEqual(result.status, 1 if result.errors else 0)
        return {os.path.relpath(file["target"], self.out): file for file in files}, summary

    def assert_no_temporary_files(self):
        temporary = self.path("cache/kxmd/tmp")
        self.assertEqual(os.listdir(temporary) if os.path.exists(temporary) else [], [])
