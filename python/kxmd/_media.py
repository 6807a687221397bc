"""Media files: what they tell of themselves, and their covers."""

from __future__ import annotations

import dataclasses
import enum
import functools
import os
import threading
from types import TracebackType
from typing import Any, Callable, Optional

from ._errors import NotSafeError, Outcome
from ._images import Cover, Image, encoded_picture
from ._kxmd import ffi, lib
from ._library import Encoded, Path, bytes_of_path, taken, text_of



class Type(enum.IntEnum):
    """What kind of media a file is."""

    UNKNOWN = lib.KXMD_TYPE_UNKNOWN  #: None of these.
    MP3 = lib.KXMD_TYPE_MP3  #: Begins with an ID3v2 tag.
    MP4 = lib.KXMD_TYPE_MP4  #: MP4 or QuickTime.
    JPEG = lib.KXMD_TYPE_JPEG  #: Has no tags.


class StreamKind(enum.IntEnum):
    """What a stream of a media file holds."""

    OTHER = lib.KXMD_STREAM_OTHER  #: Such as chapters or measurements.
    VIDEO = lib.KXMD_STREAM_VIDEO  #: Moving pictures.
    AUDIO = lib.KXMD_STREAM_AUDIO  #: Sound.
    SUBTITLE = lib.KXMD_STREAM_SUBTITLE  #: Text or pictures shown over a video.


class Codec(enum.IntEnum):
    """Codecs of MP4 files."""

    NONE = lib.KXMD_CODEC_NONE  #: None that is told here.
    MP3 = lib.KXMD_CODEC_MP3  #: ISO/IEC 11172-3 and 13818-3, layer III.
    AMR = lib.KXMD_CODEC_AMR  #: 3GPP TS 26.071.
    AMR_WB = lib.KXMD_CODEC_AMR_WB  #: 3GPP TS 26.171.
    ALAC = lib.KXMD_CODEC_ALAC  #: Lossless.
    AAC = lib.KXMD_CODEC_AAC  #: ISO/IEC 14496-3.
    MP4_VISUAL = lib.KXMD_CODEC_MP4_VISUAL  #: ISO/IEC 14496-2.
    AVC = lib.KXMD_CODEC_AVC  #: ISO/IEC 14496-10, also known as H.264.
    H263 = lib.KXMD_CODEC_H263  #: ITU-T H.263.


@dataclasses.dataclass(frozen=True)
class CodecInfo:
    """One audio or video stream, by the file's own headers."""

    kind: StreamKind  #: Video or audio.
    codec: Codec | int  #: A bare number for one that is not known.
    profile: int | None  #: The codec's own number.
    level: int  #: Likewise; 30 is level 3.0 of AVC.
    bit_rate: float  #: The highest that the stream declares, in bits per second, or 0.
    width: float  #: Of the picture, in pixels; 0 for audio.
    height: float  #: Likewise.
    channels: int  #: Of sound; 0 for video.
    description: str  #: Codec, profile and level in one line of English.


def _codec_of(number: int) -> Codec | int:
    try:
        return Codec(number)
    except ValueError:
        return number


def _codec_info_of(info: Any) -> CodecInfo:
    return CodecInfo(
        kind=StreamKind(info.kind),
        codec=_codec_of(info.codec),
        profile=None if info.profile == lib.KXMD_PROFILE_UNKNOWN else info.profile,
        level=info.level,
        bit_rate=info.bit_rate,
        width=info.width,
        height=info.height,
        channels=info.channels,
        description=text_of(info.description),
    )


def _flags(anyway: bool, make_place: bool) -> int:
    return int(anyway and lib.KXMD_EDIT_ANYWAY) | int(make_place and lib.KXMD_EDIT_MAKE_PLACE)


class Media:
    """A media file as it was when it was read. A file of an unknown kind has a size, and nothing else."""

    __slots__ = ("_file", "_lock", "_path")

    def __init__(self, file: Any, path: bytes | None) -> None:
        """For this package: takes the library's handle over. Use `read`."""
        self._file = ffi.gc(file, lib.kxmd_file_free)
        self._lock = threading.Lock()
        self._path = path

    def _tag(self, tag: int) -> str | None:
        length = ffi.new("size_t *")
        with self._lock:
            text = lib.kxmd_file_get_tag(self._file, tag, length)
            return bytes(ffi.buffer(text, length[0])).decode("utf-8", "replace") if text else None

    def _get(self, function: Callable[[Any], Any]) -> Any:
        with self._lock:
            return function(self._file)

    def _call(self, function: Callable[..., Any], *arguments: Any, target: bytes | None = None) -> Any:
        outcome = Outcome(self._path, target)
        with self._lock:
            return outcome.check(function(self._file, *arguments, outcome.address))

    @property
    def title(self) -> str | None:
        """Of the track or video; `None`, as with the other tags, when the file has none."""
        return self._tag(lib.KXMD_TAG_NAME)

    @property
    def artist(self) -> str | None:
        """Who performs the track."""
        return self._tag(lib.KXMD_TAG_ARTIST)

    @property
    def album(self) -> str | None:
        """Title of the album."""
        return self._tag(lib.KXMD_TAG_ALBUM)

    @property
    def album_artist(self) -> str | None:
        """Whom the whole album is by."""
        return self._tag(lib.KXMD_TAG_ALBUM_ARTIST)

    @property
    def type(self) -> Type:
        """The kind of media that was read: unknown as well for a file whose tag cannot be read."""
        return Type(self._get(lib.kxmd_file_get_type))

    @property
    def detected_type(self) -> Type:
        """The kind of media that the file begins with."""
        return Type(self._get(lib.kxmd_file_get_detected_type))

    @property
    def file_size(self) -> int:
        """In bytes."""
        return int(self._get(lib.kxmd_file_get_size))

    @property
    def has_video(self) -> bool:
        """Whether an MP4 file has a video track."""
        return bool(self._get(lib.kxmd_file_has_video))

    @property
    def codecs(self) -> tuple[CodecInfo, ...]:
        """One for each sample description of each track, those of video first."""
        count = ffi.new("size_t *")
        with self._lock:
            infos = lib.kxmd_file_get_codecs(self._file, count)
            return tuple(_codec_info_of(infos[i]) for i in range(count[0]))

    @property
    def has_valid_cover(self) -> bool:
        """Whether the embedded covers are at least 200 by 200 pixels; true for files that cannot have one."""
        return bool(self._get(lib.kxmd_file_has_valid_cover))

    @property
    def can_insert_cover(self) -> bool:
        """Whether the file has a place for a cover."""
        return bool(self._get(lib.kxmd_file_can_insert_cover))

    @property
    def cover_size(self) -> int:
        """The bytes that the embedded covers take in the file; 0 without one."""
        return int(self._get(lib.kxmd_file_get_cover_size))

    def cover(self) -> Image:
        """The embedded cover, decoded. `NotFoundError` without one."""
        return Image(self._call(lib.kxmd_file_decode_cover))

    def extract_cover(self) -> bytes:
        """The cover's file as it is embedded, of whatever format. `NotFoundError` without one."""
        return taken(self._call(lib.kxmd_file_extract_cover))

    def extract_preview(self) -> bytes:
        """The small preview that cameras embed in photographs, as it is. `NotFoundError` without one."""
        return taken(self._call(lib.kxmd_file_extract_preview))

    def reason_against_cover(self, cover: Cover, *, make_place: bool = False) -> str | None:
        """Why the insertion of a cover would lose media; `None` when it does no harm."""
        picture = ffi.from_buffer(encoded_picture(cover))
        return self._reason(lib.kxmd_file_check_insertion, picture, len(picture), _flags(False, make_place))

    def reason_against_removal(self) -> str | None:
        """The same for the removal of the covers."""
        return self._reason(lib.kxmd_file_check_removal)

    def _reason(self, check: Callable[..., Any], *arguments: Any) -> str | None:
        try:
            self._call(check, *arguments)
        except NotSafeError as error:
            return str(error)
        return None

    def with_cover(self, cover: Cover, *, anyway: bool = False, make_place: bool = False) -> bytes:
        """The bytes of the file with a picture as its only cover."""
        picture = ffi.from_buffer(encoded_picture(cover))
        return taken(self._call(
            lib.kxmd_file_insert_cover_in_memory, picture, len(picture), _flags(anyway, make_place)))

    def without_cover(self, *, anyway: bool = False) -> bytes:
        """The bytes of the file without its covers."""
        return taken(self._call(lib.kxmd_file_remove_cover_in_memory, _flags(anyway, False)))

    def __repr__(self) -> str:
        return f"<kxmd.Media {self.type.name} {self.title!r} by {self.artist!r}>"


class Edit:
    """A file that is being edited; see `edit`. Its cover can be set, and nothing else."""

    __slots__ = ("_cover", "_flags", "_is_edited", "_is_saved", "_media", "_target")

    def __init__(self, media: Media, target: bytes | None, flags: int) -> None:
        """For this package. Use `edit`."""
        self._media = media
        self._target = target
        self._flags = flags
        self._cover: Optional[Encoded] = None
        self._is_edited = False
        self._is_saved = True

    @property
    def media(self) -> Media:
        """The file as it was."""
        return self._media

    @property
    def cover(self) -> Encoded | None:
        """The picture file that was set, else that of the file; `None` without one."""
        if self._is_edited or not self._media.cover_size:
            return self._cover
        return self._media.extract_cover()

    @cover.setter
    def cover(self, cover: Cover | None) -> None:
        """A picture file's bytes or path, or a picture: it becomes the only cover. `None` removes all."""
        self._cover = None if cover is None else encoded_picture(cover)
        self._is_edited = True
        self._is_saved = False

    @cover.deleter
    def cover(self) -> None:
        self.cover = None

    def save(self) -> None:
        """Writes the file, if anything was set since that was last done. The end of `with` does it too.

        A file that was replaced by its edited copy is no more what was read: edit it anew to set something else.
        """
        if self._is_saved:
            return
        call = functools.partial(self._media._call, target=self._target)
        target = ffi.NULL if self._target is None else self._target
        if self._cover is None:
            call(lib.kxmd_file_remove_cover, target, self._flags)
        else:
            picture = ffi.from_buffer(self._cover)
            call(lib.kxmd_file_insert_cover, picture, len(picture), target, self._flags)
        self._is_saved = True

    def __enter__(self) -> Edit:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        if error is None:
            self.save()


def type_of(path: Path) -> Type:
    """The kind of media that a file begins with, by its first bytes alone."""
    encoded = bytes_of_path(path)
    outcome = Outcome(encoded)
    return Type(outcome.check(lib.kxmd_type_of_path(encoded, outcome.address)))


def read(source: Path | bytearray | memoryview) -> Media:
    """Reads the headers of a file, however long it is. A `bytearray` or `memoryview` is the file itself."""
    if isinstance(source, (bytearray, memoryview)):
        outcome = Outcome()
        data = ffi.from_buffer(source)
        return Media(outcome.check(lib.kxmd_file_open_bytes(data, len(data), outcome.address)), None)
    path = bytes_of_path(source)
    outcome = Outcome(path)
    media = Media(outcome.check(lib.kxmd_file_open(path, outcome.address)), path)
    if number := media._get(lib.kxmd_file_get_read_error):  # What was found may be wrong.
        raise OSError(number, os.strerror(number), os.fsdecode(path))
    return media


def edit(path: Path, target: Path | None = None, *, anyway: bool = False, make_place: bool = False) -> Edit:
    """Edits a file, or a copy of it at `target`: the old file or the new one is there, whatever happens.

        with kxmd.edit("song.mp3") as song:
            song.cover = "cover.jpg"

    Nothing is written when the block raises, or when nothing was set. What would lose media is refused with
    `NotSafeError`, unless `anyway`. `make_place` makes a place for a cover in music that has none.
    """
    encoded = None if target is None else bytes_of_path(target)
    return Edit(read(bytes_of_path(path)), encoded, _flags(anyway, make_place))
