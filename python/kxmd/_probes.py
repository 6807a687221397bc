"""What the movie library finds in a file of any kind that it plays."""

from __future__ import annotations

import dataclasses
from collections.abc import Mapping
from types import MappingProxyType
from typing import Any

from ._errors import Outcome
from ._kxmd import ffi, lib
from ._library import Path, bytes_of_path, text_of
from ._media import StreamKind


@dataclasses.dataclass(frozen=True)
class Stream:
    """A stream of a media file. What does not apply, or is not known, is 0 or empty."""

    kind: StreamKind  #: By which the fields below apply or do not.
    codec: str  #: A short name in lower case, such as "flac" or "h264".
    profile: str  #: As the codec's standard names it, such as "LC" or "High".
    language: str  #: ISO 639-2, such as "eng".
    bit_rate: int  #: In bits per second.
    sample_rate: int  #: In Hz.
    channels: int  #: Of sound.
    bits: int  #: Of a sample, or of a component of a pixel.
    width: int  #: In pixels, as they are stored.
    height: int  #: Likewise.
    frame_rate: float  #: Frames a second.
    rotation: int  #: Degrees clockwise by which frames are turned to be shown.


@dataclasses.dataclass(frozen=True)
class Picture:
    """A picture that is embedded in a media file."""

    kind: str  #: "front", "back", "artist" and the like, or "other".
    type: str  #: Its media type, such as "image/jpeg"; empty when it is not known.
    width: int  #: In pixels; 0 when its headers are damaged.
    height: int  #: Likewise.
    bytes: int  #: Its size.


@dataclasses.dataclass(frozen=True)
class Probe:
    """What was found in a file."""

    container: str  #: A short name in lower case, such as "flac", "matroska" or "mp4".
    duration: float  #: In seconds; 0 when it is not known.
    streams: tuple[Stream, ...]  #: Without embedded pictures.
    tags: Mapping[str, str]  #: By names in lower case.
    pictures: tuple[Picture, ...]  #: Those that are embedded.


def _stream_of(stream: Any) -> Stream:
    return Stream(
        kind=StreamKind(stream.kind),
        codec=text_of(stream.codec),
        profile=text_of(stream.profile),
        language=text_of(stream.language),
        bit_rate=stream.bit_rate,
        sample_rate=stream.sample_rate,
        channels=stream.channels,
        bits=stream.bits,
        width=stream.width,
        height=stream.height,
        frame_rate=stream.frame_rate,
        rotation=stream.rotation,
    )


def _picture_of(picture: Any) -> Picture:
    return Picture(
        text_of(picture.kind), text_of(picture.type), picture.width, picture.height, picture.bytes)


def probe(path: Path) -> Probe:
    """Looks into a file, in a process of its own. `NotMediaError` when nobody knows what it is."""
    encoded = bytes_of_path(path)
    outcome = Outcome(encoded)
    found = outcome.check(lib.kxmd_probe_path(encoded, outcome.address))
    count = ffi.new("size_t *")
    try:
        streams = lib.kxmd_probe_get_streams(found, count)
        told_streams = tuple(_stream_of(streams[i]) for i in range(count[0]))
        tags = lib.kxmd_probe_get_tags(found, count)
        told_tags = {text_of(tags[i].name): text_of(tags[i].value) for i in range(count[0])}
        pictures = lib.kxmd_probe_get_pictures(found, count)
        told_pictures = tuple(_picture_of(pictures[i]) for i in range(count[0]))
        return Probe(
            container=text_of(lib.kxmd_probe_get_container(found)),
            duration=lib.kxmd_probe_get_duration(found),
            streams=told_streams,
            tags=MappingProxyType(told_tags),
            pictures=told_pictures,
        )
    finally:
        lib.kxmd_probe_free(found)
