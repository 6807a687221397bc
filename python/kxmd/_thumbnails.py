"""Pictures of files, made while the caller waits or in the background."""

from __future__ import annotations

import asyncio
import atexit
import os
import threading
import weakref
from types import TracebackType
from typing import Any

from ._errors import Outcome, exception_of
from ._images import Image
from ._kxmd import ffi, lib
from ._library import Path, bytes_of_path, wait_for_calls

# Requests whose handler has not been called: the library has their addresses.
_pending: set[_Request] = set()
_pending_changed = threading.Condition()


class _Request:
    def __init__(self, path: bytes) -> None:
        self._path = path
        self._loop = asyncio.get_running_loop()
        self.future: asyncio.Future[Image] = self._loop.create_future()
        self.handle = ffi.new_handle(self)
        self._request: Any = None

    def submit(self, thumbnails: Any, size: tuple[int, int], shape: int) -> None:
        """Has the library make the picture, and call `finish` when it is there."""
        outcome = Outcome(self._path)
        asked = ffi.new("kxmd_request **")
        with _pending_changed:
            _pending.add(self)
        try:
            outcome.check(lib.kxmd_thumbnails_request(
                thumbnails, self._path, *size, shape, _handler, self.handle, asked,
                outcome.address))
        finally:
            if asked[0]:
                self._request = ffi.gc(asked[0], lib.kxmd_request_free)
            else:
                self.forget()  # The handler is not called.

    def cancel(self) -> None:
        """Does nothing where the picture is there."""
        if self._request is not None:
            lib.kxmd_request_cancel(self._request)

    def forget(self) -> None:
        """The library needs the address no more."""
        self.handle = None  # It refers back to the request, which would live on with its picture.
        with _pending_changed:
            _pending.discard(self)
            _pending_changed.notify_all()

    def finish(self, image: Any, error: Any) -> None:
        """On a thread of the library's."""
        result = Image(image) if image else None
        problem = None if image else exception_of(error, self._path)
        try:
            self._loop.call_soon_threadsafe(self._settle, result, problem)
        except RuntimeError:
            pass  # The loop was closed; nobody waits any more.

    def _settle(self, image: Image | None, problem: Exception | None) -> None:
        if self.future.done():
            return
        if problem:
            self.future.set_exception(problem)
        elif image:
            self.future.set_result(image)


@ffi.def_extern()  # type: ignore[misc]
def kxmd_python_thumbnail(image: Any, error: Any, user_data: Any) -> None:
    request = ffi.from_handle(user_data)
    try:
        request.finish(image, error)
    finally:
        request.forget()


# Those that are not closed.
_instances: weakref.WeakSet[Thumbnails] = weakref.WeakSet()


_handler = ffi.addressof(lib, "kxmd_python_call_thumbnail")


class Thumbnails:
    """Makes pictures of files: of pictures, movies, music with a cover, documents.

    Squares are kept in memory, up to `cache_bytes` bytes of pixels and until memory runs short; none for 0.
    """

    def __init__(self, cache_bytes: int = 64 << 20) -> None:
        if cache_bytes < 0:
            raise ValueError("cache_bytes is negative")
        self._cache_bytes = cache_bytes
        self._thumbnails: Any = None
        self._open()

    def _open(self) -> None:
        outcome = Outcome()
        made = lib.kxmd_thumbnails_new(max(self._cache_bytes, 1), ffi.NULL, ffi.NULL, outcome.address)
        self._thumbnails = ffi.gc(outcome.check(made), lib.kxmd_thumbnails_free)
        _instances.add(self)

    def _open_anew(self) -> None:
        """In a process that was forked: the thread that makes what is asked for is in the other one."""
        ffi.gc(self._thumbnails, None)  # Its thread may hold its locks, which nobody opens here.
        self._open()

    def _handle(self) -> Any:
        if self._thumbnails is None:
            raise ValueError("closed")
        return self._thumbnails

    def make(self, path: Path, size: tuple[int, int], *, fit: bool = False) -> Image:
        """The picture of a file, at most `size` pixels wide and high. `NotFoundError` for what cannot be shown.

        The largest centred square is stretched to the size; with `fit` the picture keeps its shape, within the
        size and never enlarged.
        """
        encoded = bytes_of_path(path)
        outcome = Outcome(encoded)
        return Image(outcome.check(lib.kxmd_thumbnails_make(
            self._handle(), encoded, *size, _shape(fit), outcome.address)))

    async def get(self, path: Path, size: tuple[int, int], *, fit: bool = False) -> Image:
        """The same without blocking the running loop. Cancelling the task lets go of the picture."""
        request = _Request(bytes_of_path(path))
        try:
            request.submit(self._handle(), size, _shape(fit))
            return await request.future
        finally:
            request.cancel()  # Whether its task was cancelled or dropped with its loop.

    def close(self) -> None:
        """Cancels what has been asked for. `with` does that at its end."""
        _instances.discard(self)
        self._thumbnails = None  # Freed once no other thread is making a picture with it.

    def __enter__(self) -> Thumbnails:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        self.close()


def _shape(fit: bool) -> int:
    return int(lib.KXMD_THUMBNAIL_FIT if fit else lib.KXMD_THUMBNAIL_SQUARE)


_default: Thumbnails | None = None
_default_lock = threading.Lock()


def thumbnail(path: Path, size: tuple[int, int], *, fit: bool = False) -> Image:
    """What `Thumbnails.make` answers, with a cache that the whole program shares."""
    global _default
    with _default_lock:
        _default = _default or Thumbnails()
    return _default.make(path, size, fit=fit)


def _finish() -> None:
    """Before the interpreter ends, which no thread of the library's may meet."""
    global _default
    _default = None
    with _pending_changed:
        for request in _pending:
            request.cancel()
        _pending_changed.wait_for(lambda: not _pending)
    wait_for_calls()


def _begin_anew() -> None:
    """In a process that was forked: the threads that answer requests are in the other one."""
    global _pending_changed, _default_lock
    _pending_changed, _default_lock = threading.Condition(), threading.Lock()  # Those threads may hold the old ones.
    _pending.clear()
    for thumbnails in list(_instances):
        thumbnails._open_anew()


atexit.register(_finish)
os.register_at_fork(after_in_child=_begin_anew)
