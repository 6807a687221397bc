from typing import Any

# What cffi makes of the C header.
ffi: Any
lib: Any
