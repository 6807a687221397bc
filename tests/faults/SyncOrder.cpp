// Preloaded into a program, watches that no file gets its name before its bytes are on the disk,
// and that names are there as well in the end. What is wrong goes, line by line, into the file that
// KXMD_SYNC_ORDER names when the program ends, and after that how many files got a name.

#include "support/NextFunction.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Identity = std::pair<dev_t, ino_t>;

struct State {
    std::mutex mutex;
    std::set<Identity> unsynced; ///< Files that were written to since they were last waited for.
    std::set<Identity> changedFolders; ///< Those that got names since then.
    std::vector<std::string> problems;
    unsigned long named { 0 };
};

/// Never destroyed: other threads may still write while the process ends.
State& state()
{
    static State& shared = *new State;
    return shared;
}

Identity identityOf(struct stat const& status) { return { status.st_dev, status.st_ino }; }

bool isRegular(int descriptor, struct stat& status)
{
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

void noteWritten(int descriptor)
{
    struct stat status;
    if (!isRegular(descriptor, status))
        return;
    std::scoped_lock const lock(state().mutex);
    state().unsynced.insert(identityOf(status));
}

void noteSynced(int descriptor)
{
    struct stat status;
    if (::fstat(descriptor, &status) != 0)
        return;
    std::scoped_lock const lock(state().mutex);
    state().unsynced.erase(identityOf(status));
    state().changedFolders.erase(identityOf(status));
}

void noteNamed(char const* to)
{
    std::string folder(to);
    std::size_t const slash = folder.rfind('/');
    folder = slash == std::string::npos ? "." : folder.substr(0, slash + 1);
    struct stat file, parent;
    if (::stat(to, &file) != 0 || ::stat(folder.c_str(), &parent) != 0)
        return;
    std::scoped_lock const lock(state().mutex);
    ++state().named;
    if (state().unsynced.contains(identityOf(file)))
        state().problems.push_back(std::string("name before its bytes: ") + to);
    state().changedFolders.insert(identityOf(parent));
}

[[gnu::destructor]] void tell()
{
    char const* const path = std::getenv("KXMD_SYNC_ORDER");
    std::FILE* const file = path ? std::fopen(path, "w") : nullptr;
    if (!file)
        return;
    std::scoped_lock const lock(state().mutex);
    for (std::string const& problem : state().problems)
        std::fprintf(file, "%s\n", problem.c_str());
    if (!state().changedFolders.empty())
        std::fprintf(file, "%zu folders not synced\n", state().changedFolders.size());
    std::fprintf(file, "%lu named\n", state().named);
    std::fclose(file);
}

}

extern "C" {
#pragma GCC visibility push(default)

ssize_t write(int descriptor, void const* source, std::size_t count)
{
    static auto* const original = next<ssize_t(int, void const*, std::size_t)>("write");
    noteWritten(descriptor);
    return original(descriptor, source, count);
}

ssize_t copy_file_range(
    int from, off_t* fromPosition, int to, off_t* toPosition, std::size_t count, unsigned flags)
{
    static auto* const original
        = next<ssize_t(int, off_t*, int, off_t*, std::size_t, unsigned)>("copy_file_range");
    noteWritten(to);
    return original(from, fromPosition, to, toPosition, count, flags);
}

int fsync(int descriptor)
{
    static auto* const original = next<int(int)>("fsync");
    noteSynced(descriptor);
    return original(descriptor);
}

int fdatasync(int descriptor)
{
    static auto* const original = next<int(int)>("fdatasync");
    noteSynced(descriptor);
    return original(descriptor);
}

/// Other threads may write while it waits: what they wrote by now is all that is sure.
int syncfs(int descriptor) noexcept
{
    static auto* const original = next<int(int)>("syncfs");
    std::scoped_lock const lock(state().mutex);
    state().unsynced.clear();
    state().changedFolders.clear();
    return original(descriptor);
}

int linkat(int fromFolder, char const* from, int toFolder, char const* to, int flags) noexcept
{
    static auto* const original = next<int(int, char const*, int, char const*, int)>("linkat");
    int const result = original(fromFolder, from, toFolder, to, flags);
    if (result == 0)
        noteNamed(to);
    return result;
}

int rename(char const* from, char const* to) noexcept
{
    static auto* const original = next<int(char const*, char const*)>("rename");
    int const result = original(from, to);
    if (result == 0)
        noteNamed(to);
    return result;
}

#pragma GCC visibility pop
}
