#include "Targets.h"

#include "tools/shared/AtomicFile.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

constexpr char const* sameTarget = "another file has the same target";

}

/// Of the file that a link leads to.
std::optional<Targets::Identity> Targets::identityBehind(std::string const& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return Identity { status.st_dev, status.st_ino };
}

/// Of a link itself, which is what another file replaces.
std::optional<Targets::Identity> Targets::identityAt(std::string const& path)
{
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return Identity { status.st_dev, status.st_ino };
}

/// Whether a file is one that this run has placed, and is there still: another program may have
/// replaced that, and its number be in use again.
bool Targets::isPlaced(State const& state, Identity const& file)
{
    auto const placed = state.placed.find(file);
    return placed != state.placed.end() && identityAt(placed->second) == file;
}

void Targets::protect(std::string const& path)
{
    if (auto const file = identityBehind(path))
        _state.lock()->sources.insert(*file);
}

std::string Targets::claim(std::string const& path)
{
    std::filesystem::path const target(path);
    auto const folder = identityBehind(target.parent_path().string());
    // By its whole path where there is no folder; it cannot be written there anyway.
    auto name = folder ? target.filename().string() : path;
    auto const file = identityBehind(path);
    auto const state = _state.lock();
    if (file && state->sources.contains(*file))
        return "its target is one of the files to prepare";
    return state->names.emplace(folder, std::move(name)).second ? "" : sameTarget;
}

std::string Targets::place(AtomicFile& file, std::string const& path)
{
    if (!file.settle()) // Takes its time, so not under the lock.
        return cannotWrite(path, file.error());
    auto const state = _state.lock();
    auto const replaced = identityAt(path);
    if (replaced && isPlaced(*state, *replaced))
        return sameTarget;
    if (!file.commit())
        return cannotWrite(path, file.error());
    if (auto const placed = identityAt(path))
        state->placed.insert_or_assign(*placed, path);
    return {};
}

std::string cannotWrite(std::string const& path, std::string const& why)
{
    return "cannot be written to " + path + ": " + why;
}
