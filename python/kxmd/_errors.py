"""What can go wrong, as exceptions."""

from __future__ import annotations

import os
from typing import Any

from ._kxmd import ffi, lib


class Error(Exception):
    """Something that the library could not do. What the system refuses is an `OSError` instead."""


class ChangedError(Error):
    """A file was changed by somebody else while it was used."""


class NotMediaError(Error):
    """Bytes are no media of a kind that is wanted here, or damaged."""


class NotFoundError(Error):
    """What is asked for, such as a cover, is not in the file."""


class NotSafeError(Error):
    """An edit would lose media or tags; the message tells why."""


class NotPossibleError(Error):
    """An edit cannot be made, as where a cover has no place."""


class NoDecoderError(Error):
    """This machine has nothing that decodes, encodes or converts it."""


class CancelledError(Error):
    """The request was cancelled."""


_kinds: dict[int, type[Exception]] = {
    lib.KXMD_ERROR_ARGUMENT: ValueError,
    lib.KXMD_ERROR_MEMORY: MemoryError,
    lib.KXMD_ERROR_CHANGED: ChangedError,
    lib.KXMD_ERROR_NOT_MEDIA: NotMediaError,
    lib.KXMD_ERROR_NOT_FOUND: NotFoundError,
    lib.KXMD_ERROR_NOT_SAFE: NotSafeError,
    lib.KXMD_ERROR_NOT_POSSIBLE: NotPossibleError,
    lib.KXMD_ERROR_NO_DECODER: NoDecoderError,
    lib.KXMD_ERROR_CANCELLED: CancelledError,
}
_of_the_system = (lib.KXMD_ERROR_OPEN, lib.KXMD_ERROR_READ, lib.KXMD_ERROR_WRITE)


def exception_of(error: Any, path: bytes | None, target: bytes | None = None) -> Exception:
    """The exception for an error, which stays the caller's, with a file that is read, and that it is written to."""
    code = lib.kxmd_error_get_code(error)
    if code == lib.KXMD_ERROR_WRITE and target is not None:
        path = target
    message = ffi.string(lib.kxmd_error_get_message(error)).decode("utf-8", "replace")
    name = os.fsdecode(path) if path is not None else None
    if code in _of_the_system:
        number = lib.kxmd_error_get_errno(error)
        # The class goes by the number, such as FileNotFoundError.
        return OSError(number, message, name) if number else OSError(f"{name}: {message}" if name else message)
    return _kinds.get(code, Error)(f"{name}: {message}" if name else message)


class Outcome:
    """Holds the error that a function of the library stores."""

    __slots__ = ("_path", "_target", "address")

    def __init__(self, path: bytes | None = None, target: bytes | None = None) -> None:
        self.address = ffi.new("kxmd_error **")
        self._path = path
        self._target = target

    def check(self, result: Any) -> Any:
        """`result`, unless the function failed."""
        error = self.address[0]
        if error == ffi.NULL:
            return result
        try:
            raise exception_of(error, self._path, self._target)
        finally:
            lib.kxmd_error_free(error)
