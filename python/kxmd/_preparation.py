"""Making one file ready for a phone."""

from __future__ import annotations

import enum

from ._errors import Outcome
from ._images import Cover, encoded_picture
from ._kxmd import ffi, lib
from ._library import Path, bytes_of_path


class Step(enum.Flag):
    """What may be done to a file."""

    CONVERT = lib.KXMD_STEP_CONVERT  #: Lossless audio to AAC of 256000 bit/s in an MPEG-4 audio file.
    CLEAN = lib.KXMD_STEP_CLEAN  #: Removes the user data of a recording.
    CLEAN_CAMERA_DATA = lib.KXMD_STEP_CLEAN_CAMERA_DATA  #: Removes the place, the maker, the time beside that.
    INSERT_COVER = lib.KXMD_STEP_INSERT_COVER  #: Makes a picture the only cover of music without a valid one.


ALL_STEPS = Step.CONVERT | Step.CLEAN | Step.CLEAN_CAMERA_DATA | Step.INSERT_COVER


def prepare(source: Path, target: Path, steps: Step = ALL_STEPS, *, cover: Cover | None = None) -> Step:
    """Writes `source` to `target`, prepared by those of `steps` that suit it, and tells which did.

    A file that none suits is copied. `cover` is a picture file's bytes or path, or a picture; without it a picture
    of the file itself is taken. Where media would not survive an edit, nothing is written: `NotSafeError`.
    """
    path, target = bytes_of_path(source), bytes_of_path(target)
    outcome = Outcome(path, target)
    done = ffi.new("unsigned *")
    picture = ffi.NULL if cover is None else ffi.from_buffer(encoded_picture(cover))
    length = 0 if cover is None else len(picture)
    outcome.check(lib.kxmd_prepare_file(
        path, target, steps.value, picture, length, done, outcome.address))
    return Step(done[0])
