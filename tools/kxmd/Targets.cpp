#include "Targets.h"

#include "tools/shared/AtomicFile.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace {

constexpr char const* sameTarget = "another file has the same target";

}

/// Of the file that a link leads to, or of the link itself, which is what another file replaces.
std::optional<Targets::Identity> Targets::identityOf(std::string const& path, Link link)
{
    struct stat status;
    int const flags = link == Link::followed ? 0 : AT_SYMLINK_NOFOLLOW;
    if (::fstatat(AT_FDCWD, path.c_str(), &status, flags) != 0)
        return std::nullopt;
    return Identity { status.st_dev, status.st_ino };
}

/// Whether a file is one that this run has placed, and is there still: another program may have
/// replaced that, and its number be in use again.
bool Targets::isPlaced(State const& state, Identity const& file)
{
    auto const placed = state.placed.find(file);
    return placed != state.placed.end() && identityOf(placed->second, Link::itself) == file;
}

void Targets::protect(std::string const& path)
{
    if (auto const file = identityOf(path, Link::followed))
        _state.lock()->sources.insert(*file);
}

std::string Targets::claim(std::string const& path)
{
    std::filesystem::path const target(path);
    auto const folder = identityOf(target.parent_path().string(), Link::followed);
    // By its whole path where there is no folder; it cannot be written there anyway.
    auto name = folder ? target.filename().string() : path;
    auto const file = identityOf(path, Link::followed);
    auto const state = _state.lock();
    if (file && state->sources.contains(*file))
        return "its target is one of the files to prepare";
    return state->names.emplace(folder, std::move(name)).second ? "" : sameTarget;
}

std::string Targets::place(AtomicFile& file, std::string const& path)
{
    if (!file.settle()) // Slow, so not under the lock.
        return file.errorWithPath();
    auto const state = _state.lock();
    auto const replaced = identityOf(path, Link::itself);
    if (replaced && isPlaced(*state, *replaced))
        return sameTarget;
    if (!file.commit())
        return file.errorWithPath();
    if (auto const placed = identityOf(path, Link::itself))
        state->placed.insert_or_assign(*placed, path);
    return {};
}
