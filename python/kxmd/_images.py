"""Decoded pictures."""

from __future__ import annotations

import enum
import os
from typing import TYPE_CHECKING, Any, Union

from ._errors import Outcome
from ._kxmd import ffi, lib
from ._library import Encoded, Path, bytes_of_path, taken

if TYPE_CHECKING:
    import PIL.Image


class PictureFormat(enum.Enum):
    """How a picture is encoded."""

    PNG = lib.KXMD_PICTURE_PNG  #: With transparency, and nothing lost.
    JPEG = lib.KXMD_PICTURE_JPEG  #: Over white where the picture is transparent.


class Image:
    """A picture of four bytes a pixel: red, green, blue and alpha in sRGB, the colours premultiplied by alpha.

    `numpy.asarray(image)` is an array of height by width by 4 over the same memory.
    """

    __slots__ = ("_image", "__weakref__")

    def __init__(self, image: Any) -> None:
        """For this package: takes the library's handle over."""
        self._image = ffi.gc(image, lib.kxmd_image_free, self._bytes_of(image))

    @staticmethod
    def _bytes_of(image: Any) -> int:
        return int(lib.kxmd_image_get_stride(image) * lib.kxmd_image_get_height(image))

    @property
    def width(self) -> int:
        """In pixels."""
        return int(lib.kxmd_image_get_width(self._image))

    @property
    def height(self) -> int:
        """In pixels."""
        return int(lib.kxmd_image_get_height(self._image))

    @property
    def size(self) -> tuple[int, int]:
        """Width and height in pixels."""
        return self.width, self.height

    @property
    def stride(self) -> int:
        """Bytes from the beginning of a row to that of the next one."""
        return int(lib.kxmd_image_get_stride(self._image))

    @property
    def pixels(self) -> memoryview:
        """The rows from the top, read-only and without a copy. They keep the picture alive."""
        image = self._image
        first = ffi.gc(lib.kxmd_image_get_pixels(image), lambda _: image)
        return memoryview(ffi.buffer(first, self._bytes_of(image))).toreadonly()

    def __buffer__(self, flags: int) -> memoryview:
        return self.pixels

    @property
    def __array_interface__(self) -> dict[str, object]:
        address = int(ffi.cast("uintptr_t", lib.kxmd_image_get_pixels(self._image)))
        return {
            "version": 3,
            "typestr": "|u1",
            "shape": (self.height, self.width, 4),
            "strides": (self.stride, 4, 1),
            "data": (address, True),
        }

    def encode(self, format: PictureFormat = PictureFormat.PNG) -> bytes:
        """The picture as a PNG or JPEG file."""
        outcome = Outcome()
        return taken(outcome.check(lib.kxmd_image_encode(self._image, format.value, outcome.address)))

    def save(self, path: Path) -> None:
        """Writes a PNG file, or a JPEG one where the name ends in ".jpg" or ".jpeg"."""
        name = os.fsdecode(path).lower()
        format = PictureFormat.JPEG if name.endswith((".jpg", ".jpeg")) else PictureFormat.PNG
        encoded = self.encode(format)
        with open(path, "wb") as file:
            file.write(encoded)

    def pillow(self) -> PIL.Image.Image:
        """The picture as one of Pillow's, with colours that are not premultiplied."""
        import PIL.Image

        premultiplied = PIL.Image.frombytes(
            "RGBa", self.size, bytes(self.pixels), "raw", "RGBa", self.stride)
        return premultiplied.convert("RGBA")

    def _repr_png_(self) -> bytes:
        """What notebooks show."""
        return self.encode()

    def __repr__(self) -> str:
        return f"<kxmd.Image {self.width} x {self.height}>"


Cover = Union[Encoded, Image, Path]


def encoded_picture(cover: Cover) -> Encoded:
    """A cover as the bytes of a picture file."""
    if isinstance(cover, Image):
        return cover.encode(PictureFormat.JPEG)
    if isinstance(cover, (bytes, bytearray, memoryview)):
        return cover
    with open(bytes_of_path(cover), "rb") as file:  # A number would be somebody's open file.
        return file.read()


def decode(picture: Union[Encoded, Path]) -> Image:
    """Decodes a picture file, or the bytes of one, upright, in a process of its own."""
    outcome = Outcome()
    data = ffi.from_buffer(encoded_picture(picture))
    return Image(outcome.check(lib.kxmd_image_decode(data, len(data), outcome.address)))
