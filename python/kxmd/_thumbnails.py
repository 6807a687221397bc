"""Pictures of files, made while the caller waits or in the background."""

from __future__ import annotations

import asyncio
import atexit
import threading
from types import TracebackType
from typing import Any

from ._errors import Outcome, exception_of
from ._images import Image
from ._kxmd import ffi, lib
from ._library import Path, bytes_of_path

# Requests whose handler has not been called: the library has their addresses.
_pending: set[Any] = set()
_pending_changed = threading.Condition()


class _Request:
    def __init__(self, path: bytes) -> None:
        self._path = path
        self._loop = asyncio.get_running_loop()
        self.future: asyncio.Future[Image] = self._loop.create_future()
        self.handle = ffi.new_handle(self)

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
        with _pending_changed:
            _pending.discard(request.handle)
            _pending_changed.notify_all()


class Thumbnails:
    """Makes pictures of files: of pictures, movies, music with a cover, documents.

    Squares are kept in memory, up to `cache_bytes` bytes of pixels and until memory runs short.
    """

    def __init__(self, cache_bytes: int = 64 << 20) -> None:
        outcome = Outcome()
        made = lib.kxmd_thumbnails_new(cache_bytes, ffi.NULL, ffi.NULL, outcome.address)
        self._thumbnails: Any = ffi.gc(outcome.check(made), lib.kxmd_thumbnails_free)

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
        encoded = bytes_of_path(path)
        request = _Request(encoded)
        outcome = Outcome(encoded)
        asked = ffi.new("kxmd_request **")
        with _pending_changed:
            _pending.add(request.handle)
        try:
            outcome.check(lib.kxmd_thumbnails_request(
                self._handle(), encoded, *size, _shape(fit), lib.kxmd_python_thumbnail, request.handle, asked,
                outcome.address))
        except BaseException:  # The handler is not called.
            with _pending_changed:
                _pending.discard(request.handle)
            raise
        try:
            return await request.future
        except asyncio.CancelledError:
            lib.kxmd_request_cancel(asked[0])
            raise
        finally:
            lib.kxmd_request_free(asked[0])

    def close(self) -> None:
        """Cancels what has been asked for. `with` does that at its end."""
        thumbnails, self._thumbnails = self._thumbnails, None
        if thumbnails is not None:
            ffi.release(thumbnails)

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
        _pending_changed.wait_for(lambda: not _pending)


atexit.register(_finish)
