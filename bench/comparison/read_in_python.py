"""Microseconds of processor time in which modules for Python read title, artist and album of a file, as JSON by
module, the best of a few rounds: read_in_python.py FILE."""

import json
import sys
import time

import kxmd
import mutagen
import taglib

ROUNDS, READS = 7, 200


def with_kxmd(path):
    media = kxmd.read(path)
    return media.title, media.artist, media.album


def with_mutagen(path):
    tags = mutagen.File(path, easy=True)
    return tags.get("title"), tags.get("artist"), tags.get("album")


def with_pytaglib(path):
    file = taglib.File(path)
    tags = file.tags
    file.close()
    return tags.get("TITLE"), tags.get("ARTIST"), tags.get("ALBUM")


def microseconds(read, path):
    start = time.process_time()
    for _ in range(READS):
        read(path)
    return (time.process_time() - start) / READS * 1e6


readers = {"kxmd": with_kxmd, "mutagen": with_mutagen, "pytaglib": with_pytaglib}
rounds = [{name: microseconds(read, sys.argv[1]) for name, read in readers.items()} for _ in range(ROUNDS)]
print(json.dumps({name: min(spent[name] for spent in rounds) for name in readers}))
