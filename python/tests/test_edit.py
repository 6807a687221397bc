import io
import struct

import kxmd
import mutagen.id3
import PIL.Image
import pytest
from conftest import mp3, movie, picture, song
from support import atom, id3v23


def is_picture_of(encoded, size):
    return PIL.Image.open(io.BytesIO(encoded)).size == size


@pytest.mark.parametrize("name, content", [("a.m4a", song()), ("a.mp3", mp3())])
def test_cover_is_inserted_told_and_removed(make, name, content):
    path = make(name, content)
    assert kxmd.read(path).can_insert_cover
    with kxmd.edit(path) as edited:
        assert edited.cover is None
        edited.cover = picture(300, 200)
    media = kxmd.read(path)
    assert media.cover_size > 300 and media.has_valid_cover
    assert media.cover().size == (300, 200)
    assert is_picture_of(media.extract_cover(), (300, 200))
    assert media.title == kxmd.read(make("same", content)).title
    with kxmd.edit(path) as edited:
        assert is_picture_of(edited.cover, (300, 200))
        del edited.cover
        assert edited.cover is None
    assert kxmd.read(path).cover_size == 0


def test_nothing_but_the_cover_can_be_set(make):
    with kxmd.edit(make("a.m4a", song())) as edited:
        for name in ("title", "cove"):
            with pytest.raises(AttributeError):
                setattr(edited, name, "new")


def test_others_find_the_cover(make):
    jpeg = picture(240, 240, format="JPEG")
    path = make("a.mp3", mp3())
    with kxmd.edit(path) as edited:
        edited.cover = jpeg
    assert mutagen.id3.ID3(path).getall("APIC")[0].data == jpeg
    assert kxmd.read(path).extract_cover() == jpeg


def test_cover_may_be_a_path_or_a_picture(make):
    path = make("a.m4a", song())
    with kxmd.edit(path) as edited:
        edited.cover = make("cover.png", picture(210, 220))
    assert kxmd.read(path).cover().size == (210, 220)
    with kxmd.edit(path) as edited:
        edited.cover = kxmd.decode(picture(250, 260))
    assert kxmd.read(path).cover().size == (250, 260)


def test_copy_is_edited_where_there_is_a_target(make, tmp_path):
    path, target = make("a.m4a", song()), tmp_path / "b.m4a"
    with kxmd.edit(path, target) as edited:
        edited.cover = picture()
    assert path.read_bytes() == song()
    assert kxmd.read(target).cover_size


def test_nothing_is_written_after_an_exception(make):
    path = make("a.m4a", song())
    with pytest.raises(KeyError):
        with kxmd.edit(path) as edited:
            edited.cover = picture()
            raise KeyError
    assert path.read_bytes() == song()


def test_nothing_is_written_when_nothing_is_set(make, tmp_path):
    path, target = make("a.m4a", song()), tmp_path / "b.m4a"
    with kxmd.edit(path, target) as edited:
        assert edited.media.title == "Träume"
    assert not target.exists()


def test_file_that_changed_meanwhile_is_left_alone(make):
    path = make("a.m4a", song())
    edited = kxmd.edit(path)
    path.write_bytes(song() + b"more")
    edited.cover = picture()
    with pytest.raises(kxmd.ChangedError):
        edited.save()
    assert path.read_bytes() == song() + b"more"


def test_file_is_saved_once(make, tmp_path):
    for target in (None, tmp_path / "b.m4a"):
        path = make("a.m4a", song())
        with kxmd.edit(path, target) as edited:
            edited.cover = picture()
            edited.save()
            (target or path).write_bytes(b"of somebody else")
        assert (target or path).read_bytes() == b"of somebody else"


def test_number_is_no_cover(make):
    with open(make("mine", b"words"), "rb") as mine:
        with pytest.raises(TypeError):
            kxmd.edit(make("a.m4a", song())).cover = mine.fileno()
        assert mine.read() == b"words"  # It was not closed.


def test_dangerous_edit_is_refused_unless_it_is_forced(make):
    base = struct.pack(">IIQ", 1, 1, len(song()))  # Where the media of the fragment is counted from.
    fragmented = song() + atom(b"moof", atom(b"traf", atom(b"tfhd", base)))
    path = make("a.mp4", fragmented)
    media = kxmd.read(path)
    reason = media.reason_against_cover(picture())
    assert reason and "fragment" in reason
    with pytest.raises(kxmd.NotSafeError) as caught:
        with kxmd.edit(path) as edited:
            edited.cover = picture()
    assert "fragment" in str(caught.value)
    assert path.read_bytes() == fragmented
    with kxmd.edit(path, anyway=True) as edited:
        edited.cover = picture()
    assert kxmd.read(path).cover_size


def test_no_reason_where_an_edit_does_no_harm(make):
    media = kxmd.read(make("a.m4a", song()))
    assert media.reason_against_cover(picture()) is None
    assert media.reason_against_removal() is None


def test_music_without_a_place_for_a_cover(make):
    path = make("a.mp3", (b"\xff\xfb\x90\x64" + bytes(413)) * 4)
    with pytest.raises(kxmd.Error):
        with kxmd.edit(path) as edited:
            edited.cover = picture()
    with kxmd.edit(path, make_place=True) as edited:
        edited.cover = picture()
    assert kxmd.read(path).cover_size


def test_files_in_memory_are_edited_in_memory():
    covered = kxmd.read(bytearray(song())).with_cover(picture(220, 230))
    media = kxmd.read(bytearray(covered))
    assert media.cover().size == (220, 230)
    assert media.without_cover() == song()


def test_no_picture_is_refused(make):
    path = make("a.m4a", song())
    for wrong in (b"", b"words"):
        with pytest.raises((kxmd.Error, ValueError)):
            with kxmd.edit(path) as edited:
                edited.cover = wrong
    with pytest.raises(FileNotFoundError):
        with kxmd.edit(path) as edited:
            edited.cover = path.with_name("none.jpg")
    assert path.read_bytes() == song()


def test_preview_of_what_is_no_photograph(make):
    with pytest.raises(kxmd.NotFoundError):
        kxmd.read(make("a.m4a", song())).extract_preview()


def test_preparation_inserts_a_cover(make, tmp_path):
    target = tmp_path / "b.m4a"
    done = kxmd.prepare(make("a.m4a", song()), target, cover=make("cover.png", picture()))
    assert kxmd.Step.INSERT_COVER in done
    done = kxmd.prepare(make("a.m4a", song()), target, cover=picture())
    assert done is kxmd.Step.INSERT_COVER
    assert kxmd.read(target).cover_size
    assert kxmd.prepare(make("a.m4a", song()), target, kxmd.Step(0)) is kxmd.Step(0)
    assert target.read_bytes() == song()


def test_preparation_cleans_a_recording(make, tmp_path):
    target = tmp_path / "b.mp4"
    assert kxmd.Step.CLEAN in kxmd.prepare(make("a.mp4", movie()), target)
    assert b"udta" not in target.read_bytes()


def test_preparation_into_a_folder_that_is_not_there(make, tmp_path):
    target = tmp_path / "none" / "b.mp3"
    with pytest.raises(FileNotFoundError) as caught:
        kxmd.prepare(make("a.mp3", id3v23()), target)
    assert caught.value.filename == str(target)
    with pytest.raises(FileNotFoundError) as caught:
        with kxmd.edit(make("a.m4a", song()), target) as edited:
            edited.cover = picture()
    assert caught.value.filename == str(target)
