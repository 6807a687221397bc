"""What the desktop is told of the command."""

import configparser
import os
import shlex
import shutil
import subprocess
import xml.etree.ElementTree

import pictures
from pictures import RED, Picture
from support import COMMAND, CommandTestCase, atom, mp4, preloading, run, user_data

DATA = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../data"))
TYPES = "/usr/share/mime/types"
ALIASES = "/usr/share/mime/aliases"


class DesktopTests(CommandTestCase):
    def thumbnailer(self):
        file = configparser.ConfigParser(interpolation=None)
        file.optionxform = str
        file.read(os.path.join(DATA, "kxmd.thumbnailer"))
        self.assertEqual(file.sections(), ["Thumbnailer Entry"])
        return file["Thumbnailer Entry"]

    def types(self):
        types = self.thumbnailer()["MimeType"].split(";")
        self.assertEqual(types.pop(), "")
        return types

    def thumbnail(self, path, output):
        """Runs the command as desktops do, with the codes filled in."""
        codes = {"%s": "128", "%i": path, "%o": output}
        arguments = shlex.split(self.thumbnailer()["Exec"])
        for code, text in codes.items():
            self.assertTrue(any(code in argument for argument in arguments), code)
            arguments = [argument.replace(code, text) for argument in arguments]
        search_path = os.path.dirname(COMMAND) + os.pathsep + os.environ["PATH"]
        return subprocess.run(arguments, env={**os.environ, "PATH": search_path}, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False)

    def test_thumbnail_keeps_its_shape(self):
        cover = pictures.solid(300, 200, RED)
        song = mp4(user_data(atom(b"covr", atom(b"data", (14).to_bytes(4, "big"), bytes(4), cover))))
        for name, content in (("a b.png", cover), ("song.m4a", song)):
            # Some desktops make the file beforehand, with a name of their own.
            output = self.write(".thumbnail.X1Y2Z3", b"")
            finished = self.thumbnail(self.write(name, content), output)
            self.assertEqual((finished.returncode, finished.stderr), (0, b""), name)
            with open(output, "rb") as file:
                self.assertEqual(Picture(file.read()).size, (128, 85), name)

    def test_file_that_a_desktop_holds_open_is_filled(self):
        source = self.write("a.png", pictures.solid(30, 20, RED))
        with open(self.write("output", b""), "rb") as output:
            self.assertEqual(self.thumbnail(source, output.name).returncode, 0)
            self.assertEqual(Picture(output.read()).size, (30, 20))

    def test_file_with_a_content_is_replaced(self):
        source = self.write("a.png", pictures.solid(30, 20, RED))
        with open(self.write("output", b"old"), "rb") as output:
            self.assertEqual(self.thumbnail(source, output.name).returncode, 0)
            self.assertEqual(output.read(), b"old")
        with open(self.path("output"), "rb") as output:
            self.assertEqual(Picture(output.read()).size, (30, 20))

    def test_file_with_other_names_is_replaced(self):
        source = self.write("a.png", pictures.solid(30, 20, RED))
        os.link(self.write("other", b""), self.path("output"))
        self.assertEqual(self.thumbnail(source, self.path("output")).returncode, 0)
        self.assertEqual((os.path.getsize(self.path("other")), os.path.getsize(self.path("output")) > 0), (0, True))

    def test_file_that_cannot_be_filled_stays_empty(self):
        source, output = self.write("a.png", pictures.solid(30, 20, RED)), self.write("output", b"")
        result = run("thumbnail", "--png", "-s", "30x20", "-o", output, source, env=preloading("KXMD_FULL_AT_CLOSE"))
        self.assert_failure(result, output, "No space left on device")
        self.assertEqual(os.path.getsize(output), 0)

    def test_thumbnail_of_nothing_fails(self):
        output = self.path("out")
        finished = self.thumbnail(self.write("a.png", b"text"), output)
        self.assertEqual((finished.returncode, os.path.exists(output)), (1, False))

    def test_command_is_known_by_its_name(self):
        self.assertEqual(self.thumbnailer()["TryExec"], "kxmd")
        self.assertEqual(shlex.split(self.thumbnailer()["Exec"])[0], "kxmd")

    def test_types_are_in_order_and_once(self):
        self.assertEqual(self.types(), sorted(set(self.types())))

    def test_types_are_known(self):
        if not os.path.exists(TYPES):
            self.skipTest("there is no list of types")
        with open(TYPES) as types, open(ALIASES) as aliases:
            known = set(types.read().split()) | {line.split()[0] for line in aliases}
        # Of newer lists than that of Debian 12.
        self.assertEqual(set(self.types()) - known, {"image/qoi", "video/vnd.avi"} - known)

    def test_types_of_all_pictures_that_can_be_decoded(self):
        [told] = run("doctor", "--json").objects()
        named = {"bmp": "image/bmp", "dds": "image/x-dds", "exr": "image/x-exr", "ico": "image/vnd.microsoft.icon",
                 "jpeg2000": "image/jp2", "jpegxl": "image/jxl", "pnm": "image/x-portable-anymap",
                 "psd": "image/vnd.adobe.photoshop", "svg": "image/svg+xml"}
        wanted = {named.get(name, f"image/{name}") for name in told["pictures"]["formats"]}
        self.assertGreaterEqual(len(wanted), 6)
        self.assertLessEqual(wanted, set(self.types()))

    def test_our_own_thumbnailer_is_not_asked_back(self):
        os.makedirs(self.path("share/thumbnailers"))
        shutil.copy(os.path.join(DATA, "kxmd.thumbnailer"), self.path("share/thumbnailers"))
        self.write("share/thumbnailers/other.thumbnailer", b"[Thumbnailer Entry]\nExec=sh %i %o\nMimeType=text/a;\n")
        places = {"XDG_DATA_DIRS": self.path("share"), "XDG_DATA_HOME": self.path("share"),
                  "PATH": os.path.dirname(COMMAND) + os.pathsep + os.environ["PATH"]}
        [told] = run("doctor", "--json", env={**os.environ, **places}).objects()
        self.assertEqual(told["thumbnailers"], ["text/a"])

    def metainfo(self):
        [name] = [name for name in os.listdir(DATA) if name.endswith(".metainfo.xml")]
        return os.path.join(DATA, name)

    def test_metainfo_is_valid(self):
        if not shutil.which("appstreamcli"):
            self.skipTest("there is no appstreamcli")
        finished = subprocess.run(["appstreamcli", "validate", "--no-net", "--strict", self.metainfo()],
                                  stdout=subprocess.PIPE, check=False)
        self.assertEqual(finished.returncode, 0, finished.stdout.decode())

    def test_metainfo_names_itself_and_the_command(self):
        component = xml.etree.ElementTree.parse(self.metainfo()).getroot()
        self.assertEqual(component.get("type"), "console-application")
        self.assertEqual(component.findtext("id") + ".metainfo.xml", os.path.basename(self.metainfo()))
        self.assertEqual(component.findtext("provides/binary"), os.path.basename(COMMAND))
