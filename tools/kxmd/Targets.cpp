#include "Targets.h"

#include "NameWithoutCase.h"
#include "shared/AtomicFile.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr char const* sameTarget = "another file has the same target";
constexpr char const* isSource = "its target is one of the files that are read";

enum class Link { followed, itself };

/// Of the file that a link leads to, or of the link itself, which is what another file replaces.
std::optional<FileIdentity> identityAt(std::string const& path, Link link)
{
    struct stat status;
    int const flags = link == Link::followed ? 0 : AT_SYMLINK_NOFOLLOW;
    if (::fstatat(AT_FDCWD, path.c_str(), &status, flags) != 0)
        return std::nullopt;
    return identityOf(status);
}

/// A file system in user space hears only when a single file is waited for.
bool isInUserSpace(int descriptor)
{
    struct statfs fileSystem;
    return ::fstatfs(descriptor, &fileSystem) != 0 || fileSystem.f_type == FUSE_SUPER_MAGIC;
}

}

Targets::Targets(std::string const& folder)
    : _folder(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
}

Targets::~Targets()
{
    if (_folder >= 0)
        ::close(_folder);
}

/// Whether a file is one that this run has placed, and is there still: another program may have
/// replaced that, and its number be in use again.
bool Targets::isPlaced(FileIdentity const& file) const
{
    auto const placed = _placed.find(file);
    return placed != _placed.end() && identityAt(placed->second, Link::itself) == file;
}

/// Names that many folders have differ in the folder's inode.
std::size_t Targets::HashOfName::operator()(Name const& name) const
{
    constexpr std::size_t multiplier = 0x9E3779B97F4A7C15; // Of the golden ratio: spreads inodes.
    std::size_t const folder = name.first ? name.first->second : 0;
    return std::hash<std::string>()(name.second) ^ folder * multiplier;
}

Targets::Name Targets::nameOf(std::string const& path)
{
    std::string_view const parent = KXPathByDeletingLastPathComponent(path);
    auto folder = _folders.find(parent);
    if (folder == _folders.end()) {
        std::string const there(parent.empty() ? "." : parent);
        folder = _folders.emplace(parent, identityAt(there, Link::followed)).first;
    }
    std::string name(folder->second ? KXLastPathComponent(path) : std::string_view(path));
    return { folder->second, _tellsCase ? std::move(name) : nameWithoutCase(name) };
}

std::string Targets::claim(std::string const& path)
{
    return _names.insert(nameOf(path)).second ? "" : sameTarget;
}

std::string Targets::reasonAgainst(std::string const& path) const
{
    auto const file = identityAt(path, Link::followed);
    return file && _sources.contains(*file) ? isSource : "";
}

bool Targets::isClaimed(std::string const& path) { return _names.contains(nameOf(path)); }

/// Whether one wait is enough for all of them: they are on the folder's own file system.
bool Targets::canSyncTogether(std::span<Arrival const> arrivals) const
{
    struct stat folder, file;
    return arrivals.size() > 1 && ::fstat(_folder, &folder) == 0 && !isInUserSpace(_folder)
        && std::ranges::all_of(arrivals, [&](Arrival const& arrival) {
               return ::fstat(arrival.file.descriptor(), &file) == 0
                   && file.st_dev == folder.st_dev;
           });
}

void Targets::placeOne(Arrival& arrival)
{
    std::string const& path = arrival.file.path();
    auto const replaced = identityAt(path, Link::itself);
    if (replaced && _sources.contains(*replaced))
        arrival.error = isSource;
    else if (replaced && isPlaced(*replaced))
        arrival.error = sameTarget;
    else if (!arrival.file.place())
        arrival.error = arrival.file.errorWithPath();
    else if (auto const placed = identityAt(path, Link::itself))
        _placed.insert_or_assign(*placed, path);
}

void Targets::place(std::span<Arrival> arrivals)
{
    for (Arrival const& arrival : arrivals)
        arrival.file.takePermissions();
    // Where the disk fails one of them, each is asked for itself.
    bool const areSynced = canSyncTogether(arrivals) && ::syncfs(_folder) == 0;
    std::set<std::string> folders;
    for (Arrival& arrival : arrivals) {
        if (!areSynced && !arrival.file.sync())
            arrival.error = arrival.file.errorWithPath();
        else
            placeOne(arrival);
        if (arrival.error.empty())
            folders.insert(arrival.file.folder());
    }
    for (std::string const& folder : folders) {
        if (syncFolder(folder))
            continue;
        std::string const error = std::strerror(errno);
        for (Arrival& arrival : arrivals) {
            if (arrival.error.empty() && arrival.file.folder() == folder)
                arrival.error = "may be lost with the power: " + error;
        }
    }
}

std::string Targets::sync()
{
    return _folder < 0 || ::syncfs(_folder) == 0 ? "" : std::strerror(errno);
}
