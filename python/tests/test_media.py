import dataclasses
import errno
import os
import pathlib
import resource
import threading

import kxmd
import kxmd._media
import pytest
from conftest import mp3, movie, picture, song
from kxmd._kxmd import ffi
from support import atom


def test_tags_of_an_mp4(make):
    media = kxmd.read(make("a.m4a", song()))
    assert (media.title, media.artist, media.album, media.album_artist) == ("Träume", "Ann", None, None)
    assert media.type is media.detected_type is kxmd.Type.MP4
    assert media.file_size == len(song())
    assert not media.has_video


def test_tags_of_an_mp3(make):
    media = kxmd.read(make("a.mp3", mp3()))
    assert (media.title, media.artist, media.album, media.album_artist) == ("Blue", "Ann", "Sky", None)
    assert media.type is kxmd.Type.MP3


def test_codecs(make):
    media = kxmd.read(make("a.mp4", movie()))
    assert media.has_video
    info, = media.codecs
    assert (info.kind, info.codec, info.profile, info.level) == (kxmd.StreamKind.VIDEO, kxmd.Codec.AVC, 77, 30)
    assert (info.width, info.height, info.channels) == (320, 240, 0)
    assert info.description.startswith("Codec: ")


def test_codec_is_told_field_by_field():
    description = ffi.new("char[]", b"some codec")
    info = ffi.new("kxmd_codec_info *", {
        "kind": 2, "codec": 5, "profile": 1, "level": 3, "bit_rate": 4, "width": 6, "height": 7, "channels": 8,
        "description": description})
    expected = kxmd.CodecInfo(
        kind=kxmd.StreamKind.AUDIO, codec=kxmd.Codec.AAC, profile=1, level=3, bit_rate=4, width=6, height=7,
        channels=8, description="some codec")
    assert kxmd._media._codec_info_of(info) == expected
    info.codec = 99
    assert kxmd._media._codec_info_of(info) == dataclasses.replace(expected, codec=99)


def test_photograph_is_detected_and_has_no_tags(make):
    media = kxmd.read(make("a.jpg", picture(format="JPEG")))
    assert (media.type, media.detected_type) == (kxmd.Type.UNKNOWN, kxmd.Type.JPEG)


def test_bytes_of_the_library_are_freed():
    def resident():
        with open("/proc/self/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * resource.getpagesize()

    media = kxmd.read(bytearray(song() + atom(b"free", bytes(1 << 20))))
    before = resident()
    for _ in range(100):
        media.without_cover()
    assert resident() - before < 50 << 20


def test_codec_without_a_profile(make):
    amr = song().replace(b"mp4a", b"samr")
    assert kxmd.read(make("a.m4a", amr)).codecs[0].codec is kxmd.Codec.AMR
    assert kxmd.read(make("b.m4a", amr)).codecs[0].profile is None


@pytest.mark.parametrize("kind", [bytearray, memoryview])
def test_file_in_memory(kind):
    media = kxmd.read(kind(song()))
    assert media.title == "Träume"
    assert media.file_size == len(song())


def test_bytes_are_a_path(make):
    assert kxmd.read(os.fsencode(make("a.m4a", song()))).title == "Träume"
    assert kxmd.read(str(make("a.m4a", song()))).title == "Träume"


def test_path_that_is_no_text(tmp_path):
    path = os.fsencode(tmp_path) + b"/a\xff.mp3"
    with open(path, "wb") as file:
        file.write(mp3())
    assert kxmd.read(path).title == "Blue"
    assert kxmd.read(os.fsdecode(path)).title == "Blue"


def test_type_of_a_path(make):
    assert kxmd.type_of(make("a", mp3())) is kxmd.Type.MP3
    assert kxmd.type_of(make("a", picture(format="JPEG").replace(b"JFIF", b"Exif"))) in (
        kxmd.Type.JPEG, kxmd.Type.UNKNOWN)
    assert kxmd.type_of(make("a", b"words")) is kxmd.Type.UNKNOWN


def test_unknown_file_has_a_size_and_nothing_else(make):
    media = kxmd.read(make("a.txt", b"words"))
    assert (media.type, media.file_size, media.title, media.codecs) == (kxmd.Type.UNKNOWN, 5, None, ())
    with pytest.raises(kxmd.NotFoundError):
        media.cover()


def test_missing_file_is_an_error_of_the_system(tmp_path):
    for function in (kxmd.read, kxmd.type_of, kxmd.probe, kxmd.edit):
        with pytest.raises(FileNotFoundError) as caught:
            function(tmp_path / "none")
        assert caught.value.errno == errno.ENOENT
        assert caught.value.filename == str(tmp_path / "none")


def test_folder_is_an_error_of_the_system(tmp_path):
    with pytest.raises(OSError):
        kxmd.read(tmp_path)


def test_read_that_fails_is_an_error_of_the_system(make, monkeypatch):
    class Library:
        def __getattr__(self, name):
            return getattr(kxmd._kxmd.lib, name)

        def kxmd_file_get_read_error(self, file):
            return errno.EIO

    monkeypatch.setattr(kxmd._media, "lib", Library())
    path = make("a.m4a", song())
    with pytest.raises(OSError) as caught:
        kxmd.read(path)
    assert (caught.value.errno, caught.value.filename) == (errno.EIO, str(path))


def test_path_with_a_zero_is_refused():
    for function in (kxmd.read, kxmd.type_of, kxmd.probe, kxmd.edit):
        with pytest.raises(ValueError):
            function("a\0b")


def test_constructor_takes_no_number():
    with pytest.raises(TypeError):
        kxmd.read(3)


def test_one_object_serves_many_threads(make):
    media = kxmd.read(make("a.m4a", song()))
    found = []
    threads = [threading.Thread(target=lambda: found.extend((media.title, media.codecs[0].codec) for _ in range(200)))
               for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert set(found) == {("Träume", kxmd.Codec.AAC)}
    assert len(found) == 800


def test_odd_files_are_told_to_the_log(make, caplog):
    caplog.set_level("INFO", "kxmd")
    kxmd.read(make("a.mp3", b"ID3\x04\x00\x80" + mp3()[6:]))
    assert [record.name for record in caplog.records] == ["kxmd"]
    assert "nsynchroni" in caplog.text


def test_other_threads_run_while_a_picture_is_made(make, tmp_path):
    path = make("a.png", picture(5000, 5000))
    steps, ended = [], threading.Event()

    def count():
        while not ended.is_set():
            steps.append(1)

    thread = threading.Thread(target=count)
    thread.start()
    before = len(steps)
    kxmd.thumbnail(path, (64, 64))
    assert len(steps) > before + 1000
    ended.set()
    thread.join()


def test_repr_is_short(make):
    assert repr(kxmd.read(make("a.mp3", mp3()))) == "<kxmd.Media MP3 'Blue' by 'Ann'>"


def test_version_is_that_of_the_library():
    assert kxmd.__version__.count(".") == 2


def test_package_is_typed():
    assert (pathlib.Path(kxmd.__file__).parent / "py.typed").exists()
