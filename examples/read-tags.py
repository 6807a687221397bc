"""Prints title and artist of each file that is named."""

import sys

import kxmd

for path in sys.argv[1:]:
    try:
        media = kxmd.read(path)
        print(f"{path}: {media.title or 'no title'} by {media.artist or 'no artist'}")
    except OSError as error:
        print(f"{path}: {error}", file=sys.stderr)
