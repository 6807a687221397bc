"""Writes the C source of the native module from the C header: bindings.py kxmd_c.h OUT.c."""

import re
import sys

import cffi

# What the library calls back, on threads of its own.
CALLBACKS = """
extern "Python" void kxmd_python_log(const char *category, const char *text, void *user_data);
extern "Python" void kxmd_python_thumbnail(kxmd_image *image, const kxmd_error *error, void *user_data);
void kxmd_python_call_log(const char *category, const char *text, void *user_data);
void kxmd_python_call_thumbnail(kxmd_image *image, const kxmd_error *error, void *user_data);
int kxmd_python_count_calls(void);
"""

# Counts the calls of Python that are under way. A thread that comes back to an interpreter that has ended takes
# the process down, and Python cannot see when the last of a call is over.
SOURCE = """
#include <kxmd/kxmd_c.h>
#include <stdatomic.h>

static void kxmd_python_log(const char *category, const char *text, void *user_data);
static void kxmd_python_thumbnail(kxmd_image *image, const kxmd_error *error, void *user_data);

static atomic_int calls;

static int kxmd_python_count_calls(void) { return atomic_load(&calls); }

static void kxmd_python_call_log(const char *category, const char *text, void *user_data)
{
    atomic_fetch_add(&calls, 1);
    kxmd_python_log(category, text, user_data);
    atomic_fetch_sub(&calls, 1);
}

static void kxmd_python_call_thumbnail(kxmd_image *image, const kxmd_error *error, void *user_data)
{
    atomic_fetch_add(&calls, 1);
    kxmd_python_thumbnail(image, error, user_data);
    atomic_fetch_sub(&calls, 1);
}
"""


def declarations(header):
    """The header's declarations and numbers, in the part of C that cffi reads."""
    text = re.sub(r"//[^\n]*", "", header)
    numbers = re.findall(r"^#define KXMD_\w+ \d+$", text, re.MULTILINE)
    text = re.sub(r"^#ifdef __cplusplus$.*?^#endif$", "", text, flags=re.MULTILINE | re.DOTALL)
    text = re.sub(r"^#.*$", "", text, flags=re.MULTILINE)
    text = re.sub(r"\bKXMD_C_(EXPORT|NOEXCEPT|INT)\b", "", text)
    return "\n".join(numbers) + "\n" + text


def main(header, target):
    with open(header, encoding="utf-8") as file:
        declared = declarations(file.read())
    builder = cffi.FFI()
    builder.set_source("kxmd._kxmd", SOURCE)
    builder.cdef(declared + CALLBACKS)
    builder.emit_c_code(target)


if __name__ == "__main__":
    main(*sys.argv[1:])
