// Preloaded into a program, counts how often it opens $KXMD_COUNTED, or anything where that is not
// set; the count is the exit status.

#include "support/NextFunction.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

int opened = 0;

void count(char const* path)
{
    char const* const counted = std::getenv("KXMD_COUNTED");
    opened += !counted || std::strcmp(path, counted) == 0;
}

struct AtTheEnd {
    ~AtTheEnd() { ::_exit(opened); }
} const atTheEnd;

}

extern "C" {

[[gnu::visibility("default")]] int open(char const* path, int flags, ...)
{
    static auto* const original = next<int(char const*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    count(path);
    return original(path, flags, mode);
}
}
