// Preloaded into a browser, counts which of its threads open what lies below $KXMD_WATCHED, and
// writes "MAIN OTHERS" into the file $KXMD_COUNTS at the end.

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::atomic<int> byMainThread { 0 };
std::atomic<int> byOthers { 0 };

void count(char const* path)
{
    char const* const watched = std::getenv("KXMD_WATCHED");
    if (watched && std::strncmp(path, watched, std::strlen(watched)) == 0)
        ++(::gettid() == ::getpid() ? byMainThread : byOthers);
}

/// The function that one of ours stands before.
template <class Function> Function* next(char const* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

struct AtTheEnd {
    pid_t const process = ::getpid();
    ~AtTheEnd()
    {
        char const* const path = std::getenv("KXMD_COUNTS");
        std::FILE* const file = path && process == ::getpid() ? std::fopen(path, "w") : nullptr;
        if (!file)
            return;
        std::fprintf(file, "%d %d\n", byMainThread.load(), byOthers.load());
        std::fclose(file);
    }
} const atTheEnd;

mode_t modeIn(std::va_list& arguments, int flags)
{
    return flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
}

}

// The C library has several names for each, which the headers pick by the options of a compiler.
#define KX_COUNTED [[gnu::visibility("default")]]
#define KX_COUNT_OPEN(name)                                                                        \
    KX_COUNTED int name(char const* path, int flags, ...)                                          \
    {                                                                                              \
        static auto* const original = next<int(char const*, int, ...)>(#name);                     \
        std::va_list arguments;                                                                    \
        va_start(arguments, flags);                                                                \
        mode_t const mode = modeIn(arguments, flags);                                              \
        va_end(arguments);                                                                         \
        count(path);                                                                               \
        return original(path, flags, mode);                                                        \
    }
#define KX_COUNT_OPENAT(name)                                                                      \
    KX_COUNTED int name(int folder, char const* path, int flags, ...)                              \
    {                                                                                              \
        static auto* const original = next<int(int, char const*, int, ...)>(#name);                \
        std::va_list arguments;                                                                    \
        va_start(arguments, flags);                                                                \
        mode_t const mode = modeIn(arguments, flags);                                              \
        va_end(arguments);                                                                         \
        count(path);                                                                               \
        return original(folder, path, flags, mode);                                                \
    }

extern "C" {

KX_COUNT_OPEN(open)
KX_COUNT_OPEN(open64)
KX_COUNT_OPEN(__open_2)
KX_COUNT_OPEN(__open64_2)
KX_COUNT_OPENAT(openat)
KX_COUNT_OPENAT(openat64)
KX_COUNT_OPENAT(__openat_2)
KX_COUNT_OPENAT(__openat64_2)

KX_COUNTED DIR* opendir(char const* path)
{
    static auto* const original = next<DIR*(char const*)>("opendir");
    count(path);
    return original(path);
}
}
