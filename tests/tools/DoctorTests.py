import glob
import json
import os
import shutil
import subprocess

from support import COMMAND, CommandTestCase, run


class DoctorTests(CommandTestCase):
    def doctor(self, **environment):
        result = run("doctor", "--json", env={**os.environ, **environment})
        [told] = result.objects()
        return result, told

    def missing(self, told):
        return {addition["package"] for addition in told["missing"]}

    def test_decoders(self):
        result, told = self.doctor()
        self.assertEqual(list(told), ["pictures", "movies", "documents", "thumbnailers", "converter", "iconThemes",
                                      "missing"])
        self.assertTrue(told["pictures"]["available"])
        self.assertLessEqual({"png", "jpeg", "gif", "svg", "tiff", "webp"}, set(told["pictures"]["formats"]))
        if told["movies"]["available"]:
            self.assertLessEqual({"bmp", "ico", "pnm"}, set(told["pictures"]["formats"]))
            self.assertLessEqual({"h264", "mpeg4", "vp9"}, set(told["movies"]["formats"]))
        for decoder in told["pictures"], told["movies"]:
            self.assertEqual(decoder["formats"], sorted(set(decoder["formats"])))
            self.assertEqual(set(decoder["confinement"]), {"files", "systemCalls"})

    def test_exit_status_tells_whether_decoders_can_be_confined(self):
        result, told = self.doctor()
        are_confined = [told[kind]["available"] and all(told[kind]["confinement"].values())
                        for kind in ("pictures", "movies")]
        self.assertEqual(result.status, 0 if all(are_confined) else 1)
        self.assertEqual(len(result.errors), are_confined.count(False))

    def test_programs_and_what_would_add_them(self):
        os.mkdir(self.path("bin"))
        _, told = self.doctor(PATH=self.path("bin"), XDG_DATA_DIRS=self.folder, XDG_DATA_HOME=self.folder)
        self.assertEqual((told["documents"], told["thumbnailers"], told["iconThemes"]), ("", [], []))
        self.assertLessEqual({"poppler-utils", "gnome-epub-thumbnailer", "libgsf-bin", "gnome-font-viewer",
                              "adwaita-icon-theme"}, self.missing(told))

        for name in ("pdftoppm", "epub"):
            with open(self.path(f"bin/{name}"), "w") as file:
                file.write("#!/bin/sh\n")
            os.chmod(self.path(f"bin/{name}"), 0o755)
        os.makedirs(self.path("thumbnailers"))
        self.write("thumbnailers/a.thumbnailer", b"[Thumbnailer Entry]\nExec=epub %i %o\n"
                   b"MimeType=application/epub+zip;application/a;\n")
        self.write("thumbnailers/b.thumbnailer", b"[Thumbnailer Entry]\nExec=missing %i %o\nMimeType=font/ttf;\n")
        for theme in ("Adwaita", "hicolor"):
            os.makedirs(self.path(f"icons/{theme}"))
            self.write(f"icons/{theme}/index.theme", b"[Icon Theme]\nName=A\nDirectories=\n")
        for folders in ((self.folder, self.path("none")), (self.path("none"), self.folder)):
            _, told = self.doctor(PATH=self.path("bin"), XDG_DATA_DIRS=folders[0], XDG_DATA_HOME=folders[1])
            self.assertEqual(told["thumbnailers"], ["application/a", "application/epub+zip"])
        _, told = self.doctor(PATH=self.path("bin"), XDG_DATA_DIRS=self.folder, XDG_DATA_HOME=self.folder)
        self.assertEqual(told["documents"], self.path("bin/pdftoppm"))
        self.assertEqual(told["thumbnailers"], ["application/a", "application/epub+zip"])
        self.assertEqual(told["iconThemes"][-2:], ["Adwaita", "hicolor"])
        self.assertFalse(self.missing(told)
                         & {"poppler-utils", "gnome-epub-thumbnailer", "adwaita-icon-theme"})
        self.assertLessEqual({"libgsf-bin", "gnome-font-viewer"}, self.missing(told))

    def doctor_beside(self, *patterns):
        """Of a copy of the command, which has these files of the library and no others."""
        lib_folder = os.path.join(os.path.dirname(COMMAND), "../lib")
        shutil.rmtree(self.path("copy"), ignore_errors=True)
        os.makedirs(self.path("copy/bin"))
        os.makedirs(self.path("copy/lib/kxmd"))
        shutil.copy(COMMAND, self.path("copy/bin"))
        for pattern in patterns:
            for path in glob.glob(os.path.join(lib_folder, pattern)):
                shutil.copy(path, self.path(os.path.join("copy/lib", os.path.relpath(path, lib_folder))))
        return lambda *flags: subprocess.run([self.path("copy/bin/kxmd"), "doctor", *flags], capture_output=True,
                                             stdin=subprocess.DEVNULL, timeout=100)

    def assert_nothing_is_decoded(self, finished):
        self.assertEqual(finished.returncode, 1)
        report = finished.stdout.decode()
        self.assertEqual(report.count("there is no decoder"), 2)
        self.assertIn("  Converter     none\n", report)
        for kind in ("pictures", "movies"):
            self.assertIn(f"kxmd: {kind}: there is no decoder", finished.stderr.decode())

    def test_library_without_its_programs(self):
        finished = self.doctor_beside("libkxmd*", "kxmd/*.so")()
        self.assert_nothing_is_decoded(finished)
        self.assertNotIn(b".so", finished.stderr)

    def test_library_without_its_modules(self):
        finished = self.doctor_beside("libkxmd*")()
        self.assert_nothing_is_decoded(finished)
        for module in ("kxmd-platform", "kxmd-desktop"):
            self.assertEqual(finished.stderr.count(module.encode()), 1)

    def test_library_without_one_of_its_programs(self):
        libraries = ("libkxmd*", "kxmd/*.so")
        common, rare = ("kxmd/kxmd-render-[0-9]*", "kxmd/kxmd-render-rare-[0-9]*")
        for program, formats in ((common, {"gif", "jpeg", "png", "webp"}), (rare, {"svg", "tiff"})):
            told = json.loads(self.doctor_beside(*libraries, program)("--json").stdout)
            self.assertEqual(told["pictures"]["available"], False)
            self.assertEqual(told["pictures"]["confinement"], {"files": False, "systemCalls": False})
            self.assertLessEqual(formats, set(told["pictures"]["formats"]))
            self.assertEqual(told["movies"]["available"], False)
        told = json.loads(self.doctor_beside(*libraries, common, rare)("--json").stdout)
        self.assertIn("libkxmd-movies", self.missing(told))
        self.assertEqual((told["pictures"]["available"], told["movies"]["available"]), (True, False))

    def test_report(self):
        report = run("doctor").out.decode()
        for name in ("Pictures", "Confinement", "Movies", "PDF", "Thumbnailers", "Converter", "Icon themes"):
            self.assertRegex(report, rf"(?m)^  {name} +\S")

    def test_wrong_usage(self):
        self.assert_usage_error(run("doctor", "now"))
