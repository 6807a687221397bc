#pragma once

// What the tests that are written in C check with.

#include "UseOfC.h"

#include <kxmd/kxmd_c.h>

#include <string.h>

#define CHECK(condition) c_check((condition) != 0, #condition, __FILE__, __LINE__)

/// Checks the error and frees it.
static inline void check_error(
    kxmd_error** error, kxmd_error_code code, char const* part, char const* file, int line)
{
    c_check(kxmd_error_get_code(*error) == code, "the code", file, line);
    c_check(strstr(kxmd_error_get_message(*error), part) != NULL, kxmd_error_get_message(*error),
        file, line);
    kxmd_error_free(*error);
    *error = NULL;
}
#define CHECK_ERROR(code, part) check_error(&error, code, part, __FILE__, __LINE__)

static inline bool is_text(char const* text, char const* expected)
{
    return text && strcmp(text, expected) == 0;
}
