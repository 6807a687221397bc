"""What the checks of the pages have in common."""

import contextlib
import difflib
import os
import pathlib
import re
import shutil
import subprocess
import tempfile


@contextlib.contextmanager
def copy_of(media):
    """A copy of the made files that may be changed, as somebody's home."""
    with tempfile.TemporaryDirectory(prefix="kxmd-docs-") as folder:
        home = pathlib.Path(folder) / "home"
        shutil.copytree(media, home)
        yield home


def environment(home, **more):
    return {**os.environ, "HOME": str(home), "XDG_CACHE_HOME": f"{home}/.cache", "LC_ALL": "C.UTF-8", **more}


def output_of(command, home, **more):
    """What a program prints, errors among it, as one sees it on a terminal; and its exit status."""
    finished = subprocess.run(command, cwd=home, env=environment(home, **more), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=100, check=False)
    return finished.stdout.decode(), finished.returncode


def comparable(text):
    """Without sizes, rates, times and versions, which are another encoder's or another machine's."""
    text = re.sub(r"\b(Lav[fc])\d+(\.\d+)+", r"\1(version)", text.rstrip())
    text = re.sub(r"\b\d{4,}\b", "(number)", text)
    return re.sub(r"\b\d+\.\d+ s\b", "(time) s", text)


def differences(shown, printed, name):
    """Lines that tell how what a page shows differs from what was printed; none where it does not."""
    return list(difflib.unified_diff(comparable(shown).splitlines(), comparable(printed).splitlines(),
                                     f"{name}, as the page shows it", "as it was printed", lineterm="", n=1))
