// Preloaded into a program, lets the system fail it once: KXMD_FAULT is CALLS:NUMBER:FAULT, as in
// "write:3:ENOSPC". The calls of a kind are counted from 1; the fault is the name of an error,
// "short" (a part is done), "change" (just before the call somebody writes to the file that
// KXMD_FAULT_FILE names), or a signal that arrives just before the call. KXMD_FAULT_COUNTS is a
// file that is told, when the program ends by itself, how many calls of each kind there were.
// KXMD_FAULT_PROGRAM names the one program that is meant, of all that it starts.

#include "support/NextFunction.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum Calls { read_, write_, sync_, open_, close_, link_, rename_, folder_, map_, allocate_, kinds };

constexpr std::array<std::string_view, kinds> names { "read", "write", "sync", "open", "close",
    "link", "rename", "folder", "map", "allocate" };

struct Error {
    std::string_view name;
    int value;
};

constexpr std::array<Error, 6> errors { { { "EIO", EIO }, { "ENOSPC", ENOSPC },
    { "ENOMEM", ENOMEM }, { "EINTR", EINTR }, { "EMFILE", EMFILE }, { "EACCES", EACCES } } };

struct Plan {
    bool isOurs { false }; ///< Whether this is the program that is meant.
    int calls { kinds };
    unsigned long number { 0 };
    int error { 0 };
    int signal { 0 };
    bool isShort { false };
    char const* changedFile { nullptr };
};

std::array<std::atomic<unsigned long>, kinds> counted;

/// Written when main begins, while there is one thread; calls until then are not counted.
Plan plan;

void makePlan()
{
    char const* const program = std::getenv("KXMD_FAULT_PROGRAM");
    if (!program || std::strcmp(program, program_invocation_short_name) != 0)
        return;
    if (char const* const text = std::getenv("KXMD_FAULT")) {
        std::string_view const words(text);
        std::size_t const first = words.find(':');
        std::size_t const second = words.find(':', first + 1);
        std::string_view const fault = words.substr(second + 1);
        plan.calls = static_cast<int>(
            std::find(names.begin(), names.end(), words.substr(0, first)) - names.begin());
        plan.number = std::strtoul(text + first + 1, nullptr, 10);
        for (Error const& error : errors) {
            if (error.name == fault)
                plan.error = error.value;
        }
        plan.isShort = fault == "short";
        plan.changedFile = fault == "change" ? std::getenv("KXMD_FAULT_FILE") : nullptr;
        plan.signal = fault == "SIGTERM" ? SIGTERM : fault == "SIGKILL" ? SIGKILL : 0;
    }
    plan.isOurs = true;
}

[[gnu::destructor]] void tellCounts()
{
    char const* const path = std::getenv("KXMD_FAULT_COUNTS");
    if (!plan.isOurs || !path)
        return;
    plan.isOurs = false;
    std::FILE* const file = std::fopen(path, "w");
    for (std::size_t i = 0; file && i < names.size(); ++i)
        std::fprintf(file, "%s %lu\n", names[i].data(), counted[i].load());
    if (file)
        std::fclose(file);
}

using Main = int(int, char**, char**);
Main* programsMain { nullptr };

int mainByPlan(int argumentCount, char** arguments, char** environment)
{
    makePlan();
    return programsMain(argumentCount, arguments, environment);
}

/// Counts a call; whether it is the one that something happens to.
bool isTheOne(Calls calls)
{
    if (!plan.isOurs)
        return false;
    bool const isIt = ++counted[calls] == plan.number && plan.calls == calls;
    if (isIt && plan.changedFile)
        ::utimensat(AT_FDCWD, plan.changedFile, nullptr, 0);
    if (isIt && plan.signal) {
        ::kill(::getpid(), plan.signal);
        ::usleep(3000); // Whoever waits for it begins to clean up.
    }
    return isIt;
}

/// Counts a call; whether it fails.
bool fails(Calls calls)
{
    if (!isTheOne(calls) || !plan.error)
        return false;
    errno = plan.error;
    return true;
}

#ifndef KXMD_SANITIZED // A sanitizer has an allocator of its own.
/// Counts an allocation; whether it fails. Those of GLib's libraries never do, and do not count:
/// they end a program that is out of memory, or wait forever where they would say so under a lock
/// of their own.
bool failsFor(void const* caller)
{
    Dl_info found {};
    if (plan.isOurs && ::dladdr(caller, &found) != 0 && std::strstr(found.dli_fname, "-2.0.so"))
        return false;
    return fails(allocate_);
}
#endif

/// Counts a call that reads or writes up to `count` bytes, and makes it: for all of them, for a
/// part, or not at all.
template <class Call> ssize_t transfer(Calls calls, std::size_t count, Call call)
{
    if (!isTheOne(calls))
        return call(count);
    if (!plan.error)
        return call(plan.isShort ? (count + 1) / 2 : count);
    errno = plan.error;
    return -1;
}

}

extern "C" {
#pragma GCC visibility push(default)

// The C library's own names.
// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming)
/// What a program begins with. Its own variables are made before main is called.
int __libc_start_main(Main* programMain, int argumentCount, char** arguments, void (*begin)(),
    void (*end)(), void (*endOfLoader)(), void* stackEnd)
{
    static auto* const original
        = next<int(Main*, int, char**, void (*)(), void (*)(), void (*)(), void*)>(
            "__libc_start_main");
    programsMain = programMain;
    return original(mainByPlan, argumentCount, arguments, begin, end, endOfLoader, stackEnd);
}

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)

#ifndef KXMD_SANITIZED
void* malloc(std::size_t size)
{
    return failsFor(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    return failsFor(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    return failsFor(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    return failsFor(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    if (failsFor(__builtin_return_address(0)))
        return errno;
    *block = __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

/// Allocates for its caller, which malloc would not see.
char* strdup(char const* text) noexcept
{
    std::size_t const size = std::strlen(text) + 1;
    void* const copy = failsFor(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
    return copy ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
}
#endif

ssize_t read(int descriptor, void* target, std::size_t count)
{
    static auto* const original = next<ssize_t(int, void*, std::size_t)>("read");
    return transfer(
        read_, count, [=](std::size_t most) { return original(descriptor, target, most); });
}

ssize_t pread(int descriptor, void* target, std::size_t count, off_t position)
{
    static auto* const original = next<ssize_t(int, void*, std::size_t, off_t)>("pread");
    return transfer(read_, count,
        [=](std::size_t most) { return original(descriptor, target, most, position); });
}

ssize_t write(int descriptor, void const* source, std::size_t count)
{
    static auto* const original = next<ssize_t(int, void const*, std::size_t)>("write");
    return transfer(
        write_, count, [=](std::size_t most) { return original(descriptor, source, most); });
}

ssize_t copy_file_range(
    int from, off_t* fromPosition, int to, off_t* toPosition, std::size_t count, unsigned flags)
{
    static auto* const original
        = next<ssize_t(int, off_t*, int, off_t*, std::size_t, unsigned)>("copy_file_range");
    return transfer(write_, count, [=](std::size_t most) {
        // Of a whole file at once is asked for more than it has: half of that would be all.
        std::size_t const length = most < count ? 100 : count;
        return original(from, fromPosition, to, toPosition, length, flags);
    });
}

int fsync(int descriptor)
{
    static auto* const original = next<int(int)>("fsync");
    return fails(sync_) ? -1 : original(descriptor);
}

int fdatasync(int descriptor)
{
    static auto* const original = next<int(int)>("fdatasync");
    return fails(sync_) ? -1 : original(descriptor);
}

int syncfs(int descriptor) noexcept
{
    static auto* const original = next<int(int)>("syncfs");
    return fails(sync_) ? -1 : original(descriptor);
}

int open(char const* path, int flags, ...)
{
    static auto* const original = next<int(char const*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(open_) ? -1 : original(path, flags, mode);
}

int open64(char const* path, int flags, ...)
{
    static auto* const original = next<int(char const*, int, ...)>("open64");
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(open_) ? -1 : original(path, flags, mode);
}

int close(int descriptor)
{
    static auto* const original = next<int(int)>("close");
    bool const isFailure = fails(close_);
    int const error = errno;
    int const result = original(descriptor); // Closed all the same, as the kernel does it.
    if (!isFailure)
        return result;
    errno = error;
    return -1;
}

int linkat(int fromFolder, char const* from, int toFolder, char const* to, int flags) noexcept
{
    static auto* const original = next<int(int, char const*, int, char const*, int)>("linkat");
    return fails(link_) ? -1 : original(fromFolder, from, toFolder, to, flags);
}

int rename(char const* from, char const* to) noexcept
{
    static auto* const original = next<int(char const*, char const*)>("rename");
    return fails(rename_) ? -1 : original(from, to);
}

int mkdir(char const* path, mode_t mode) noexcept
{
    static auto* const original = next<int(char const*, mode_t)>("mkdir");
    return fails(folder_) ? -1 : original(path, mode);
}

char* mkdtemp(char* path) noexcept
{
    static auto* const original = next<char*(char*)>("mkdtemp");
    return fails(folder_) ? nullptr : original(path);
}

void* mmap(
    void* address, std::size_t length, int access, int flags, int descriptor, off_t offset) noexcept
{
    static auto* const original = next<void*(void*, std::size_t, int, int, int, off_t)>("mmap");
    return fails(map_) ? MAP_FAILED : original(address, length, access, flags, descriptor, offset);
}

#pragma GCC visibility pop
}
