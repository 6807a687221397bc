"""Files for the tests, built piece by piece by the makers of the command's tests."""

import io

import PIL.Image
import pytest

from support import id3v23, mp4, sound_entry, tag_atom, text_frame, track, user_data, video_entry


def picture(width=300, height=200, colour=(200, 40, 40), format="PNG", mode="RGB"):
    file = io.BytesIO()
    PIL.Image.new(mode, (width, height), colour).save(file, format)
    return file.getvalue()


def song():
    """An MP4 song with a title and a place for a cover."""
    return mp4(track(b"soun", sound_entry(2)), user_data(tag_atom(b"\xa9nam", "Träume"), tag_atom(b"\xa9ART", "Ann")))


def movie():
    """A recording: a video of which nobody has said what it is."""
    return mp4(track(b"vide", video_entry(320, 240, 77, 30)), user_data())


def mp3():
    return id3v23(text_frame(b"TIT2", "Blue"), text_frame(b"TPE1", "Ann"), text_frame(b"TALB", "Sky"))


@pytest.fixture
def make(tmp_path):
    """Writes a file of this name and content, and tells its path."""
    def write(name, content):
        path = tmp_path / name
        path.write_bytes(content)
        return path
    return write
