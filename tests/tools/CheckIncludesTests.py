import os
import subprocess
import sys

from support import CommandTestCase

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts/check-includes")


class CheckIncludesTests(CommandTestCase):
    def check(self, name, line):
        """The complaints about one file of a checkout."""
        os.makedirs(os.path.dirname(self.path(name)))
        self.write(name, f"#pragma once\n{line}\n#include <vector>\n".encode())
        result = subprocess.run([sys.executable, "-B", SCRIPT, self.folder], stderr=subprocess.PIPE)
        complaints = result.stderr.decode().splitlines()
        self.assertEqual(result.returncode, 1 if complaints else 0)
        os.remove(self.path(name))
        os.removedirs(os.path.dirname(self.path(name)))
        os.makedirs(self.folder, exist_ok=True)
        return complaints

    def test_headers_of_other_libraries(self):
        for header in ("glib.h", "gio/gio.h", "gdk-pixbuf/gdk-pixbuf.h", "nlohmann/json.hpp",
                       "CLI/App.hpp", "gtest/gtest.h", "libavformat/avformat.h"):
            line = f"#include <{header}>"
            for name in ("kxmd/base/KXLog.cpp", "kxmd/platform/KXPlatform.h", "fuzz/a.cpp"):
                with self.subTest(header=header, name=name):
                    self.assertEqual(len(self.check(name, line)), 1)
            for name in ("kxmd/platform/linux/KXFoo.cpp", "tools/kxmd/main.cpp", "tests/host/a.cpp"):
                with self.subTest(header=header, name=name):
                    self.assertEqual(self.check(name, line), [])

    def test_headers_of_the_language_and_system(self):
        for header in ("memory", "cstdint", "string_view", "unistd.h", "sys/stat.h", "fcntl.h", "stdint.h"):
            self.assertEqual(self.check("kxmd/base/KXLog.cpp", f"#include <{header}>"), [])

    def test_direction(self):
        for source, target in (("host", "core"), ("host", "platform"), ("platform", "core"),
                               ("core", "mp4"), ("mp3", "mp4"), ("mp4", "mp3"), ("mp4", "thumbnails"),
                               ("core", "platform/linux"),
                               ("platform", "platform/linux"), ("image", "platform"), ("base", "image"),
                               ("mp4/atoms", "mp4"), ("mp4", "mp4/safety"), ("thumbnails", "processors")):
            with self.subTest(source=source, target=target):
                against = f'#include "kxmd/{target}/KXThat.h"'
                self.assertEqual(len(self.check(f"kxmd/{source}/KXThis.cpp", against)), 1)

    def test_direction_that_is_right(self):
        for source, target in (("core", "host"), ("core", "platform"), ("mp4", "core"),
                               ("processors", "mp4"), ("thumbnails", "platform"), ("mp4", "mp4"),
                               ("platform/linux", "platform")):
            with self.subTest(source=source, target=target):
                along = f'#include "kxmd/{target}/KXThat.h"'
                self.assertEqual(self.check(f"kxmd/{source}/KXThis.cpp", along), [])

    def test_what_library_and_programs_share_belongs_to_neither(self):
        line = '#include "shared/AtomicFile.h"'
        for name in ("kxmd/c/KXCThis.cpp", "shared/EditedCopy.cpp", "tools/kxmd/main.cpp"):
            self.assertEqual(self.check(name, line), [])
        for name in ("kxmd/base/KXThis.cpp", "kxmd/processors/KXThis.cpp"):
            self.assertEqual(len(self.check(name, line)), 1)
        for line in ("#include <kxmd/processors/KXMDThat.h>", '#include "tools/kxmd/Session.h"'):
            self.assertEqual(len(self.check("shared/EditedCopy.cpp", line)), 1)
        self.assertEqual(self.check("shared/EditedCopy.cpp", "#include <kxmd/base/KXData.h>"), [])

    def test_what_goes_by_the_kind_of_a_file_is_the_exception(self):
        line = '#include "kxmd/mp4/KXMDFileMetaMP4.h"'
        for name in ("KXMDFileMetaFactory", "KXMDCoverPlace"):
            self.assertEqual(self.check(f"kxmd/core/{name}.cpp", line), [])
        self.assertEqual(len(self.check("kxmd/core/KXMDFileMeta.cpp", line)), 1)

    def test_paths_from_the_root(self):
        self.assertEqual(len(self.check("kxmd/base/KXLog.cpp", '#include "KXLog.h"')), 1)
