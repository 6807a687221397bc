import asyncio
import gc
import io
import os
import subprocess
import sys
import threading
import time
import types
import weakref

import kxmd
import kxmd._errors
import kxmd._probes
import kxmd._thumbnails
import numpy
import PIL.Image
import pytest
from conftest import picture, song
from kxmd._kxmd import ffi, lib


def test_decoded_picture():
    image = kxmd.decode(picture(30, 20, (10, 20, 30)))
    assert (image.width, image.height, image.size, image.stride) == (30, 20, (30, 20), 120)
    assert repr(image) == "<kxmd.Image 30 x 20>"
    assert image.pixels.readonly
    assert bytes(image.pixels) == bytes((10, 20, 30, 255)) * 600


def test_numpy_sees_the_same_memory_and_keeps_it():
    image = kxmd.decode(picture(30, 20, (10, 20, 30)))
    pixels = numpy.asarray(image)
    assert pixels.shape == (20, 30, 4) and not pixels.flags.writeable
    assert numpy.shares_memory(pixels, numpy.frombuffer(image.pixels, numpy.uint8))
    del image
    gc.collect()
    assert (pixels == (10, 20, 30, 255)).all()


def test_pixels_keep_the_picture():
    pixels = kxmd.decode(picture(300, 200, (1, 2, 3))).pixels
    gc.collect()
    assert bytes(pixels) == bytes((1, 2, 3, 255)) * 60000


def test_pillow_gets_colours_that_are_not_premultiplied():
    image = kxmd.decode(picture(4, 3, (200, 100, 50, 128), mode="RGBA"))
    assert tuple(image.pixels[:4]) == (100, 50, 25, 128)
    red, green, blue, alpha = image.pillow().getpixel((3, 2))
    assert alpha == 128 and abs(red - 200) < 3 and abs(green - 100) < 3 and abs(blue - 50) < 3


@pytest.mark.parametrize("name, format", [("a.png", "PNG"), ("a.JPG", "JPEG"), ("a.jpeg", "JPEG"), ("a", "PNG")])
def test_saved_picture(tmp_path, name, format):
    kxmd.decode(picture(30, 20)).save(tmp_path / name)
    saved = PIL.Image.open(tmp_path / name)
    assert (saved.format, saved.size) == (format, (30, 20))


def test_picture_is_decoded_from_its_path(make):
    assert kxmd.decode(make("a.png", picture(30, 20))).size == (30, 20)
    with pytest.raises(FileNotFoundError):
        kxmd.decode("missing.png")


def test_words_are_no_picture():
    with pytest.raises(kxmd.Error):
        kxmd.decode(b"words")


def test_square_and_fitting_thumbnails(make):
    path = make("a.png", picture(400, 200))
    assert kxmd.thumbnail(path, (50, 50)).size == (50, 50)
    assert kxmd.thumbnail(path, (50, 50), fit=True).size == (50, 25)
    with kxmd.Thumbnails(cache_bytes=1 << 20) as thumbnails:
        assert thumbnails.make(path, (60, 40)).size == (60, 40)


def test_squares_are_kept_up_to_a_number_of_bytes(make):
    for cache_bytes, is_kept in ((1 << 20, True), (50 * 50 * 4 - 1, False), (0, False)):
        with kxmd.Thumbnails(cache_bytes) as thumbnails:
            path = make("a.png", picture(60, 60))
            thumbnails.make(path, (50, 50))
            os.remove(path)
            if is_kept:
                assert thumbnails.make(path, (50, 50)).size == (50, 50)
            else:
                with pytest.raises(FileNotFoundError):
                    thumbnails.make(path, (50, 50))
    with pytest.raises(ValueError):
        kxmd.Thumbnails(-1)


def test_thumbnail_of_what_cannot_be_shown(make):
    with pytest.raises(kxmd.NotFoundError):
        kxmd.thumbnail(make("a.m4a", song()), (50, 50))
    with pytest.raises(ValueError):
        kxmd.thumbnail(make("a.png", picture()), (0, 50))


def test_closed_thumbnails_are_refused(make):
    thumbnails = kxmd.Thumbnails()
    thumbnails.close()
    thumbnails.close()
    with pytest.raises(ValueError):
        thumbnails.make(make("a.png", picture()), (50, 50))


def test_closing_waits_for_no_thread_that_makes_a_picture(make):
    path = make("a.png", picture(2000, 2000))
    for _ in range(20):
        thumbnails = kxmd.Thumbnails()
        threads = [threading.Thread(target=thumbnails.make, args=(path, (64, 64))) for _ in range(2)]
        for thread in threads:
            thread.start()
        thumbnails.close()
        for thread in threads:
            thread.join()


def test_many_thumbnails_at_once(make):
    paths = [make(f"{i}.png", picture(100 + i, 100)) for i in range(20)] + [make("words", b"words")]

    async def get():
        with kxmd.Thumbnails() as thumbnails:
            return await asyncio.gather(
                *(thumbnails.get(path, (200, 200), fit=True) for path in paths), return_exceptions=True)

    *images, problem = asyncio.run(get())
    assert [image.width for image in images] == [100 + i for i in range(20)]
    assert isinstance(problem, kxmd.NotFoundError)


def test_loop_runs_on_while_a_thumbnail_is_made(make):
    path = make("a.png", picture(5000, 5000))

    async def get():
        ticks = 0
        with kxmd.Thumbnails() as thumbnails:
            task = asyncio.ensure_future(thumbnails.get(path, (64, 64)))
            while not task.done():
                await asyncio.sleep(0.001)
                ticks += 1
            return ticks, await task

    ticks, image = asyncio.run(get())
    assert ticks > 5 and image.size == (64, 64)


def test_cancelled_task_lets_go_of_its_picture(make):
    path = make("a.png", picture(3000, 3000))

    async def cancel():
        asyncio.get_running_loop().set_exception_handler(lambda _, context: problems.append(context))
        with kxmd.Thumbnails() as thumbnails:
            task = asyncio.ensure_future(thumbnails.get(path, (64, 64)))
            await asyncio.sleep(0.005)
            task.cancel()
            with pytest.raises(asyncio.CancelledError):
                await task
            return (await thumbnails.get(path, (32, 32))).size

    problems = []
    assert asyncio.run(cancel()) == (32, 32)
    assert not problems


def test_cancelled_pictures_are_not_made(make, monkeypatch):
    path = make("a.png", picture(2000, 2000))
    made = []
    finish = kxmd._thumbnails._Request.finish

    def note(request, image, error):
        made.append(bool(image))
        finish(request, image, error)

    async def cancel():
        with kxmd.Thumbnails() as thumbnails:
            tasks = [asyncio.ensure_future(thumbnails.get(path, (side, side))) for side in range(50, 60)]
            await asyncio.sleep(0)
            for task in tasks[:-1]:
                task.cancel()
            return (await tasks[-1]).size

    monkeypatch.setattr(kxmd._thumbnails._Request, "finish", note)
    assert asyncio.run(cancel()) == (59, 59)
    assert len(made) == 10 and sum(made) <= 2  # One may have been on its way.


def test_closing_cancels_what_was_asked_for(make):
    path = make("a.png", picture(3000, 3000))

    async def close():
        thumbnails = kxmd.Thumbnails()
        tasks = [asyncio.ensure_future(thumbnails.get(path, (side, side))) for side in range(50, 60)]
        await asyncio.sleep(0)
        thumbnails.close()
        return await asyncio.gather(*tasks, return_exceptions=True)

    results = asyncio.run(close())
    assert all(isinstance(result, (kxmd.CancelledError, kxmd.Image)) for result in results)
    assert isinstance(results[-1], kxmd.CancelledError)


@pytest.mark.parametrize("waits", ["0", "0.01"])
def test_interpreter_ends_while_pictures_are_made(make, waits):
    path = make("a.png", picture(3000, 3000))
    program = f"""
import asyncio, kxmd
thumbnails = kxmd.Thumbnails()
async def ask():
    for side in range(50, 60):
        asyncio.ensure_future(thumbnails.get({str(path)!r}, (side, side)))
    await asyncio.sleep({waits})
asyncio.run(ask())
"""
    for _ in range(15):  # A thread may come back to an interpreter that is just ending.
        end = ended(program)
        assert (end.returncode, end.stderr) == (0, b"")


def ended(program):
    return subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, timeout=60)


# Asks for pictures on a loop that is left behind.
DROPPED = """
import asyncio, kxmd, kxmd._thumbnails as inside, os
made = []
finish = inside._Request.finish
def note(request, image, error):
    made.append(bool(image))
    finish(request, image, error)
inside._Request.finish = note
thumbnails = kxmd.Thumbnails()
loop = asyncio.new_event_loop()
async def ask():
    loop.tasks = [asyncio.ensure_future(thumbnails.get({path!r}, (side, side))) for side in range(50, 90)]
    await asyncio.sleep(0)
loop.run_until_complete(ask())
"""


def test_interpreter_ends_before_pictures_are_made_that_nobody_wants(make):
    path = make("a.png", picture(2000, 2000))
    end = ended(DROPPED.format(path=str(path)) + "inside._finish(); print(len(made), sum(made)); os._exit(0)")
    finished, made = map(int, end.stdout.split())
    assert finished == 40 and made < 10


def test_forked_process_ends(make):
    path = make("a.png", picture(2000, 2000))
    end = ended(DROPPED.format(path=str(path)) + """
child = os.fork()  # Not the only one: the library has decoders.
if child == 0:
    inside._finish()
    os._exit(7)
print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), flush=True)
os._exit(0)
""")
    assert (end.stdout, end.stderr) == (b"7\n", b"")


def test_forked_process_makes_pictures_of_its_own(make):
    path = make("a.png", picture())
    end = ended(f"""
import asyncio, kxmd, os
thumbnails = kxmd.Thumbnails()
async def get(side):
    return (await asyncio.wait_for(thumbnails.get({str(path)!r}, (side, side)), 20)).width
asyncio.run(get(50))
child = os.fork()  # Not the only one: the library has decoders.
if child == 0:
    os._exit(asyncio.run(get(60)))
print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), asyncio.run(get(70)))
""")
    assert (end.stdout, end.stderr) == (b"60 70\n", b"")


def test_pictures_live_no_longer_than_they_are_used(make):
    path = make("a.png", picture())

    async def get():
        with kxmd.Thumbnails() as thumbnails:
            return weakref.ref(await thumbnails.get(path, (64, 64)))

    gc.disable()
    try:
        image = asyncio.run(get())
        end = time.monotonic() + 20
        while image() and time.monotonic() < end:  # The thread that made it is just letting go of it.
            time.sleep(0.01)
        assert not image()
    finally:
        gc.enable()


def test_probe(make, tmp_path):
    path = tmp_path / "a.flac"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=2:sample_rate=48000",
                    "-metadata", "TITLE=Träume", "-y", path], check=True)
    found = kxmd.probe(path)
    assert (found.container, found.duration, found.pictures) == ("flac", 2, ())
    assert found.tags["title"] == "Träume"
    stream, = found.streams
    assert (stream.kind, stream.codec, stream.sample_rate, stream.channels, stream.bits) == (
        kxmd.StreamKind.AUDIO, "flac", 48000, 1, 16)
    with pytest.raises(kxmd.NotMediaError):
        kxmd.probe(make("words", b"words"))


def test_probe_is_told_field_by_field():
    codec, profile, language, kind, media_type = (
        ffi.new("char[]", text) for text in (b"h264", b"High", b"eng", b"front", b"image/png"))
    stream = ffi.new("kxmd_stream *", {
        "kind": 1, "codec": codec, "profile": profile, "language": language, "bit_rate": 2, "sample_rate": 3,
        "channels": 4, "bits": 5, "width": 6, "height": 7, "frame_rate": 8, "rotation": 90})
    assert kxmd._probes._stream_of(stream) == kxmd.Stream(
        kind=kxmd.StreamKind.VIDEO, codec="h264", profile="High", language="eng", bit_rate=2, sample_rate=3,
        channels=4, bits=5, width=6, height=7, frame_rate=8, rotation=90)
    embedded = ffi.new("kxmd_picture *", {"kind": kind, "type": media_type, "width": 1, "height": 2, "bytes": 3})
    assert kxmd._probes._picture_of(embedded) == kxmd.Picture(
        kind="front", type="image/png", width=1, height=2, bytes=3)


def test_probe_is_freed(make, monkeypatch):
    freed = []

    class Spy:
        def __getattr__(self, name):
            return freed.append if name == "kxmd_probe_free" else getattr(lib, name)

    path = make("a.png", song())
    monkeypatch.setattr(kxmd._probes, "lib", Spy())
    kxmd.probe(path)
    assert len(freed) == 1
    lib.kxmd_probe_free(freed[0])


def test_pictures_of_the_whole_program_share_a_cache(make):
    path = make("a.png", picture())
    kxmd.thumbnail(path, (50, 50))
    path.unlink()
    assert kxmd.thumbnail(path, (50, 50)).size == (50, 50)


def test_errors_are_exceptions_of_their_own(monkeypatch):
    kinds = {"ARGUMENT": ValueError, "MEMORY": MemoryError, "INTERNAL": kxmd.Error}
    kinds |= {name: getattr(kxmd, name.title().replace("_", "") + "Error") for name in (
        "CHANGED", "NOT_MEDIA", "NOT_FOUND", "NOT_SAFE", "NOT_POSSIBLE", "NO_DECODER", "CANCELLED")}
    for name, kind in kinds.items():
        told = types.SimpleNamespace(
            kxmd_error_get_code=lambda _, name=name: getattr(lib, "KXMD_ERROR_" + name),
            kxmd_error_get_message=lambda _: ffi.new("char[]", b"words"), KXMD_ERROR_WRITE=lib.KXMD_ERROR_WRITE)
        monkeypatch.setattr(kxmd._errors, "lib", told)
        problem = kxmd._errors.exception_of(None, b"a.mp3")
        assert (type(problem), str(problem)) == (kind, "a.mp3: words")


def test_notebooks_show_pictures():
    image = kxmd.decode(picture(30, 20))
    assert PIL.Image.open(io.BytesIO(image._repr_png_())).size == (30, 20)
