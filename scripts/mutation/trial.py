"""Builds mutants for scripts/mutate and asks the tests."""

import collections
import fcntl
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
from typing import NamedTuple

from .switches import VARIABLE

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# Optimised as for users, so that what cannot differ compiles to the same code.
FLAGS = "-O2 -g0 -DNDEBUG -Werror=return-type"
LIBRARY = ("kxmd", "kxmd_platform", "kxmd_render_movies", "kxmd_render", "kxmd_confined")
# All that our sources are built into: some programs hold parts of the library themselves.
PRODUCT = (*LIBRARY, "kxmd_decoder_tests", "kxmd_hostile_decoder", "kxmd_command", "kxmd_desktop",
           "afconvert", "kxmd_show_progress")
EVERYTHING = (*PRODUCT, "kxmd_tests", "kxmd_c_tests", "kxmd_cost_tests", "kxmd_describe_tree", "kxmd_phone_card",
              "kxmd_few_threads", "kxmd_count_opens", "kxmd_full_at_close", "kxmd_change_folder")
FURTHER_PROGRAMS = ("kxmd_c_tests", "kxmd_cost_tests", "kxmd_decoder_tests")
USUAL_TIMES = 5
START_SECONDS = 5
FAILED = (1, 8)  # The statuses of GoogleTest and ctest; anything else is a crash.

# The suites of tests/tools/ that look at a folder, as long as they take seconds. PrepareTests takes two
# minutes, AfconvertTests one: they are asked about the tools alone, of which no other test knows.
READERS = ("InfoTests", "AtomsTests", "FramesTests")
SUITES_OF_COMMAND = {
    "kxmd/core/": READERS,
    "kxmd/mp3/": (*READERS, "EditTests"),
    "kxmd/mp4/": (*READERS, "EditTests"),
    "kxmd/image/": ("PicturesTests",),
    "kxmd/platform/": ("DoctorTests", "PicturesTests"),
    "kxmd/processors/": ("EditTests",),
    "kxmd/thumbnails/": ("PicturesTests", "ExifTests", "CacheNameTests"),
    "shared/": ("EditTests", "PrepareTests", "AfconvertTests"),
    "tools/afconvert/": ("AfconvertTests",),
    "tools/kxmd/": (*READERS, "EditTests", "PicturesTests", "ExifTests", "CacheNameTests", "UsageTests",
                    "ProgressBarTests", "PrepareTests"),
    "tools/shared/": ("EditTests", "PrepareTests", "AfconvertTests"),
}
# Tests mirror the library's folders; these are tested through what uses them.
TESTED_IN = {
    "platform/linux/ffmpeg": "platform/linux/pictures",
    "platform/linux/render/launcher": "platform/linux/thumbnails",
    "platform/linux/render/movies": "platform/linux/pictures",
    "platform/linux/render/pictures": "platform/linux/pictures",
    "platform/linux/render/program": "platform/linux/render",
}


class Stop(Exception):
    """There is nothing to measure; says why."""


def files_in_tree():
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                            stdout=subprocess.PIPE, check=True).stdout.decode()
    return sorted(name for name in set(listed.split("\0")) if name and (ROOT / name).is_file())


def confinement():
    """The start of a command that runs another among processes of its own: a mutant may kill any. Nothing
    where the system does not allow that."""
    as_user = [] if os.geteuid() == 0 else ["--user", "--map-current-user"]
    unshare = ["unshare", *as_user, "--pid", "--fork", "--kill-child", "--mount-proc"]
    try:
        subprocess.run([*unshare, "true"], stderr=subprocess.DEVNULL, check=True)
    except (OSError, subprocess.CalledProcessError):
        return []
    return [*unshare, "sh", "-c", '"$@"; exit $?', "sh"]  # The shell collects the dead.


class Workplace:
    """A copy of the tree with a build folder of its own, for one mutant at a time."""

    def __init__(self, number):
        self.folder = ROOT / "build/mutate" / str(number)
        self.source, self.build = self.folder / "source", self.folder / "build"
        self.temporary, self.log = self.folder / "temporary", self.folder / "output"
        self.folder.mkdir(parents=True, exist_ok=True)
        self.confinement, self.caching = confinement(), caching_for(self.folder)
        self.switch = {}  # The variable that the tests get.
        self.lock = open(self.folder / "lock", "w")
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            raise Stop(f"{self.folder} is in use") from None

    def prepare(self, parallel):
        """Takes the tree over and builds what changed since the last run."""
        self.copy_tree()
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if self.caching else []
        # A test is listed when it is run, and no program linked again because the library is.
        status, _ = self.run(["cmake", "--preset", "release", "-B", self.build, *launcher,
                              f"-DCMAKE_CXX_FLAGS_RELWITHDEBINFO={FLAGS}", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                              "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"], cwd=self.source)
        if status != 0 or not self.make(EVERYTHING, parallel=parallel):
            raise Stop(f"the tree does not build, see {self.log}")
        self.objects = {path: (path.stat().st_mtime_ns, digest_of(path)) for path in self.build.rglob("*.o")}

    def copy_tree(self):
        names = set(files_in_tree())
        for name in names:
            original, copy = ROOT / name, self.source / name
            if not copy.is_file() or copy.read_bytes() != original.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(original, copy)
                shutil.copymode(original, copy)
        for path in self.source.rglob("*"):
            if path.is_file() and path.relative_to(self.source).as_posix() not in names:
                path.unlink()

    def make(self, targets, is_mutant=False, parallel=1):
        # Nobody asks for a mutant again.
        caching = {"CCACHE_READONLY": "1"} if is_mutant else {}
        return self.run(self.command_for_making(targets, parallel), **caching)[0] == 0

    def command_for_making(self, targets, parallel):
        return ["cmake", "--build", self.build, "--parallel", str(parallel), "--target", *targets]

    def make_switched(self, switches, parallel):
        """Plants and builds the product with all switches that compile."""
        texts = switches.texts()
        self.plant(texts)
        while True:
            # It stops at the first source that fails: after a fault in a header all would be built again.
            status, output = self.run(self.command_for_making(PRODUCT, parallel))
            if status == 0:
                return
            if not switches.drop_blamed(output):
                raise Stop(f"the mutants do not build, see {self.log}")
            before, texts = texts, switches.texts()
            for name, (original, _) in self.planted.items():
                if texts.get(name) != before.get(name):
                    (self.source / name).write_text(texts.get(name, original))

    def changed_objects(self):
        return [path for path, (when, digest) in self.objects.items()
                if path.exists() and path.stat().st_mtime_ns != when and digest_of(path) != digest]

    def plant(self, texts):
        self.planted = {name: ((self.source / name).read_text(), (self.source / name).stat()) for name in texts}
        for name, text in texts.items():
            (self.source / name).write_text(text)

    def restore(self):
        """The files become as old as before, and only what saw mutants is built again."""
        for path in self.changed_objects():
            path.unlink()
        for name, (text, state) in self.planted.items():
            (self.source / name).write_text(text)
            os.utime(self.source / name, ns=(state.st_atime_ns, state.st_mtime_ns))

    def run(self, command, limit=None, cwd=None, **variables):
        """The status, or None past the limit of seconds, and the end of the output. Whatever the command
        started ends with it, and its temporary files are gone at the next run."""
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir()
        samples = {"KXMD_SAMPLES": str(ROOT.parent / "shared/samples")}  # Where tests look beside the tree.
        environment = {**samples, **self.caching, **os.environ, **variables,
                       "TMPDIR": str(self.temporary), "XDG_CACHE_HOME": str(self.temporary / "cache")}
        with open(self.log, "w+b") as output:
            try:
                status = subprocess.run(
                    [*map(str, command)], stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                    timeout=limit, cwd=cwd or self.temporary, env=environment, start_new_session=True).returncode
            except subprocess.TimeoutExpired:
                status = None
            self.end_everything()
            output.seek(max(0, output.seek(0, os.SEEK_END) - (1 << 20)))
            return status, output.read().decode(errors="replace")

    def run_tests(self, command, limit=None):
        return self.run([*self.confinement, *command], limit, **self.switch)

    def end_everything(self):
        """Ends all that has our temporary folder, in whatever session."""
        mark = f"TMPDIR={self.temporary}".encode()
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if mark in (process / "environ").read_bytes().split(b"\0"):
                    os.kill(int(process.name), signal.SIGKILL)
            except OSError:
                pass  # Gone already, or another user's.


def digest_of(path):
    return hashlib.sha1(path.read_bytes()).digest()


def caching_for(folder):
    """The variables that let all workplaces share the compiler cache of whoever runs us; none without one."""
    if not shutil.which("ccache"):
        return {}
    place = subprocess.run(["ccache", "--get-config", "cache_dir"], stdout=subprocess.PIPE, check=True).stdout
    return {"CCACHE_DIR": place.decode().strip(), "CCACHE_BASEDIR": str(folder), "CCACHE_NOHASHDIR": "1"}


class Stage(NamedTuple):
    """Tests that are run together."""
    command: list
    limit: float  # Seconds.


def suites_in(files):
    return {suite for file in files
            for suite in re.findall(r"^TEST(?:_[FP])?\((\w+),", file.read_text(), re.MULTILINE)}


def suites_for(path):
    """The suites of the class in `path` and those of its folder."""
    name = pathlib.PurePath(path)
    folder = name.parent.relative_to(name.parts[0]).as_posix()
    folder = ROOT / "tests" / TESTED_IN.get(folder, folder)
    of_class = suites_in(folder.glob(name.stem.removesuffix("Private") + "*.cpp"))
    return of_class, suites_in(folder.glob("*.cpp"))


def suites_of_command_for(path):
    return next((suites for folder, suites in SUITES_OF_COMMAND.items() if path.startswith(folder)), ())


class Tests:
    """What to run for a mutant, and for how long: measured with the tree as it is."""

    def __init__(self, place, paths):
        report = place.folder / "times.json"
        status, _ = place.run_tests([place.build / "tests/kxmd_tests", f"--gtest_output=json:{report}"])
        if status not in (0, *FAILED):
            raise Stop(f"the tests crash without a fault, see {place.log}")
        suites = json.loads(report.read_text())["testsuites"]
        self.seconds = collections.Counter()
        for suite in suites:
            self.seconds[suite["name"].rpartition("/")[2]] += float(suite["time"].rstrip("s"))
        self.failing = [f"{suite['name']}.{test['name']}" for suite in suites for test in suite["testsuite"]
                        if "failures" in test]
        self.seconds_of_programs = {name: self.measured(place, name) for name in FURTHER_PROGRAMS}
        self.measure_command(place, {name for path in paths for name in suites_of_command_for(path)})
        for name in self.failing:
            print(f"{name} fails without a fault and is not asked", file=sys.stderr)

    @staticmethod
    def measured(place, program):
        start = time.monotonic()
        if place.run_tests([place.build / "tests" / program])[0] != 0:
            raise Stop(f"{program} fails without a fault, see {place.log}")
        return time.monotonic() - start

    def measure_command(self, place, suites):
        self.seconds_of_command = {}
        for suite in sorted(suites):
            start = time.monotonic()
            if place.run_tests(command_for(place, [suite]))[0] == 0:
                self.seconds_of_command[suite] = time.monotonic() - start
            else:
                self.failing.append(suite)

    def stages(self, place, path):
        if path.startswith("kxmd/"):
            of_class, of_folder = suites_for(path)
            of_folder -= of_class
            for suites in filter(None, (of_class, of_folder)):
                yield self.stage(place, suites, ())
            yield self.stage(place, (), of_class | of_folder)
            for program, seconds in self.seconds_of_programs.items():
                yield Stage([place.build / "tests" / program, "--gtest_fail_fast"], limit_of(seconds))
        if suites := [suite for suite in suites_of_command_for(path) if suite in self.seconds_of_command]:
            seconds = sum(self.seconds_of_command[suite] for suite in suites)
            yield Stage(command_for(place, suites), limit_of(seconds))

    def stage(self, place, suites, others):
        """All suites if none are given, but not the others."""
        seconds = sum(seconds for name, seconds in self.seconds.items()
                      if (not suites or name in suites) and name not in others)
        chosen = ":".join(patterns(suites) or ["*"]) + "-" + ":".join(patterns(others) + self.failing)
        return Stage([place.build / "tests/kxmd_tests", "--gtest_fail_fast", f"--gtest_filter={chosen}"],
                     limit_of(seconds))


def limit_of(usual_seconds):
    return USUAL_TIMES * usual_seconds + START_SECONDS


def patterns(suites):
    return [pattern for name in sorted(suites) for pattern in (f"{name}.*", f"*/{name}.*")]


def command_for(place, suites):
    return ["ctest", "--test-dir", place.build, "--no-tests=error", "--stop-on-failure",
            "-R", rf"^tools\.({'|'.join(suites)})\."]


def failure(place, stage):
    """The test that failed, and how if it did not simply fail; nothing if all went well."""
    status, output = place.run_tests(stage.command, stage.limit)
    if status == 0:
        return "", ""
    failed = (re.search(r"^\[  FAILED  \] ([^\s,]+)", output, re.MULTILINE)
              or re.search(r"^\s*\d+ - (\S+) \(", output, re.MULTILINE))
    begun = re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE) or ["the tests"]
    how = "" if status in FAILED else "takes too long" if status is None else "crashes"
    return failed[1] if failed else begun[-1], how


def noticer(place, tests, path):
    for stage in tests.stages(place, path):
        name, how = failure(place, stage)
        # Once may be an accident.
        if name and (how == "takes too long" or failure(place, stage)[0]):
            return f"{name} ({how})" if how else name
    return ""


def noticer_of_switched(place, tests, path, number):
    place.switch = {VARIABLE: str(number)}
    try:
        return noticer(place, tests, path)
    finally:
        place.switch = {}


def judge(place, tests, source, mutation):
    """The verdict, and who noticed."""
    place.plant({source.path: source.apply(mutation)})
    try:
        # Most who notice a header's mutant do so through the library: the tests, which take minutes to build,
        # are built with it only if none does. Not so where the mutant may change what a class looks like.
        is_quick = source.path.endswith(".h") and source.path.startswith("kxmd/") and mutation.is_in_body
        verdict = "same code"
        for targets in [LIBRARY, EVERYTHING] if is_quick else [EVERYTHING]:
            if not place.make(targets, is_mutant=True):
                return "not compiled", ""
            if place.changed_objects():
                verdict = "not noticed"
                if name := noticer(place, tests, source.path):
                    return "noticed", name
        return verdict, ""
    finally:
        place.restore()
