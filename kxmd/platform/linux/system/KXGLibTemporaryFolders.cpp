#include "kxmd/platform/linux/system/KXGLibTemporaryFoldersPrivate.h"

#include "kxmd/base/KXFolder.h"
#include "kxmd/base/KXStandardFilesPrivate.h"

#include <chrono>
#include <filesystem>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>

namespace {

namespace files = std::filesystem;

constexpr int onlyForTheUser = 0700;
constexpr auto forgottenAfter = std::chrono::hours(48);
constexpr std::size_t mostHeld = 64; // Of a host that removes none, the latest.

int openFolder(std::string const& path)
{
    return KXAboveStandardFiles(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Whether somebody else holds the folder, or it cannot be told.
bool isHeld(int folder) { return folder < 0 || ::flock(folder, LOCK_EX | LOCK_NB) != 0; }

bool isOld(files::directory_entry const& entry)
{
    std::error_code error;
    auto const lastChange = entry.last_write_time(error);
    return !error && files::file_time_type::clock::now() - lastChange > forgottenAfter;
}

/// Removes a folder or file of `parent` that was forgotten. It stays locked until it is gone, so
/// that whoever is just making it notices.
void removeIfForgotten(files::directory_entry const& entry)
{
    std::error_code error;
    if (!isOld(entry))
        return;
    if (!entry.is_directory(error) || entry.is_symlink(error)) {
        files::remove(entry.path(), error);
        return;
    }
    int const folder = openFolder(entry.path());
    if (!isHeld(folder))
        KXRemoveFolder(entry.path());
    if (folder >= 0)
        ::close(folder);
}

void removeForgotten(std::string const& parent)
{
    std::error_code ignored;
    for (std::string const& name : KXNamesInFolder(parent, ignored)) {
        files::directory_entry entry;
        entry.assign(files::path(parent) / name, ignored);
        removeIfForgotten(entry);
    }
}

bool isGone(int folder)
{
    struct stat status;
    return ::fstat(folder, &status) != 0 || status.st_nlink == 0;
}

}

KXGLibTemporaryFolders::~KXGLibTemporaryFolders()
{
    for (int const folder : *_held.lock())
        ::close(folder);
}

std::string KXGLibTemporaryFolders::applicationTempFolder() const
{
    std::string path = std::string(g_get_user_cache_dir()) + "/kxmd/tmp";
    std::call_once(_firstUse, [&path] { removeForgotten(path); });
    return path;
}

/// Locks a new folder; false when another process has just taken it for a forgotten one.
bool KXGLibTemporaryFolders::hold(std::string const& path) const
{
    int const folder = openFolder(path);
    if (folder < 0)
        return true; // No descriptor is left: then its age alone keeps it.
    if (::flock(folder, LOCK_SH | LOCK_NB) != 0 || isGone(folder)) {
        ::close(folder);
        return false;
    }
    auto const held = _held.lock();
    std::erase_if(*held, [](int other) { return isGone(other) && ::close(other) == 0; });
    if (held->size() == mostHeld) {
        ::close(held->front());
        held->erase(held->begin());
    }
    held->push_back(folder);
    return true;
}

std::string KXGLibTemporaryFolders::applicationUniqueTempFolderWithPrefix(
    std::string_view prefix) const
{
    std::string const parent = applicationTempFolder();
    g_mkdir_with_parents(parent.c_str(), onlyForTheUser); // Where it fails, so does what follows.
    for (;;) {
        std::string path = parent + '/' + std::string(prefix) + "-XXXXXX";
        if (!g_mkdtemp_full(path.data(), onlyForTheUser))
            return {};
        if (hold(path))
            return path;
    }
}
