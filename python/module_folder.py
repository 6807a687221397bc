"""Prints where this Python looks for modules below a prefix: module_folder.py PREFIX."""

import pathlib
import site
import sys

prefix = pathlib.PurePath(sys.argv[1])
searched = [pathlib.PurePath(folder) for folder in site.getsitepackages()]
below = [folder.relative_to(prefix) for folder in searched if folder.is_relative_to(prefix)]
# Below another prefix nobody looks unless PYTHONPATH says so.
print(next((folder for folder in below if folder.parts[0] == "lib"), "lib/python3/dist-packages"))
