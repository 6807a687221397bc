"""What kind of media a file is, its tags, codecs and cover, and pictures of any file.

    media = kxmd.read("song.m4a")
    print(media.title, media.artist)
    with kxmd.edit("song.m4a") as song:
        song.cover = "cover.jpg"
    kxmd.thumbnail("holiday.mp4", (256, 256)).save("holiday.png")

Paths are texts, bytes or path objects. Functions let other threads run while they wait. Objects may be used
by several threads.

What the library notices in odd files goes to the logger "kxmd", at level INFO.
"""

from ._errors import (
    CancelledError,
    ChangedError,
    Error,
    NoDecoderError,
    NotFoundError,
    NotMediaError,
    NotPossibleError,
    NotSafeError,
)
from ._images import Image, PictureFormat, decode
from ._library import __version__
from ._media import Codec, CodecInfo, Edit, Media, StreamKind, Type, edit, read, type_of
from ._preparation import Step, prepare
from ._probes import Picture, Probe, Stream, probe
from ._thumbnails import Thumbnails, thumbnail

__all__ = [
    "CancelledError",
    "ChangedError",
    "Codec",
    "CodecInfo",
    "Edit",
    "Error",
    "Image",
    "Media",
    "NoDecoderError",
    "NotFoundError",
    "NotMediaError",
    "NotPossibleError",
    "NotSafeError",
    "Picture",
    "PictureFormat",
    "Probe",
    "Step",
    "Stream",
    "StreamKind",
    "Thumbnails",
    "Type",
    "__version__",
    "decode",
    "edit",
    "prepare",
    "probe",
    "read",
    "thumbnail",
    "type_of",
]
