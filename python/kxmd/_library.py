"""What the other modules do alike."""

from __future__ import annotations

import atexit
import logging
import os
import time
from typing import Any, Union

from ._errors import Outcome
from ._kxmd import ffi, lib

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Encoded = Union[bytes, bytearray, memoryview]

__version__: str = ffi.string(lib.kxmd_version()).decode()

_logger = logging.getLogger("kxmd")


def bytes_of_path(path: Path) -> bytes:
    encoded = os.fsencode(path)
    if b"\0" in encoded:
        raise ValueError("embedded null byte")
    return encoded


def text_of(characters: Any) -> str:
    """A text that ends at its first zero; empty for none."""
    return str(ffi.string(characters), "utf-8", "replace") if characters else ""


def taken(data: Any) -> bytes:
    """A copy of the library's bytes, which are freed."""
    try:
        return bytes(ffi.buffer(lib.kxmd_bytes_get_data(data), lib.kxmd_bytes_get_length(data)))
    finally:
        lib.kxmd_bytes_free(data)


@ffi.def_extern()  # type: ignore[misc]
def kxmd_python_log(category: Any, text: Any, user_data: Any) -> None:
    _logger.info("%s", text_of(text))


def _set_log_handler(handler: Any) -> None:
    outcome = Outcome()
    outcome.check(lib.kxmd_set_log_handler(handler, ffi.NULL, outcome.address))


def wait_for_calls() -> None:
    """Until no thread of the library's is in Python, before the interpreter ends."""
    while lib.kxmd_python_count_calls() > _calls_of_other_process:
        time.sleep(0.001)


def _begin_anew() -> None:
    """In a process that was forked: what was under way never ends here."""
    global _calls_of_other_process
    _calls_of_other_process = lib.kxmd_python_count_calls()


def _finish() -> None:
    _set_log_handler(ffi.NULL)
    wait_for_calls()


_calls_of_other_process = 0
_set_log_handler(ffi.addressof(lib, "kxmd_python_call_log"))
atexit.register(_finish)
os.register_at_fork(after_in_child=_begin_anew)
