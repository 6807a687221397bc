#include "Targets.h"

#include "tools/files/AtomicFile.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

constexpr char const* sameTarget = "another file has the same target";

}

std::optional<Targets::Identity> Targets::identityOf(std::string const& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return Identity { status.st_dev, status.st_ino };
}

void Targets::protect(std::string const& path)
{
    if (auto const file = identityOf(path))
        _state.lock()->sources.insert(*file);
}

std::string Targets::claim(std::string const& path)
{
    std::filesystem::path const target(path);
    auto const folder = identityOf(target.parent_path().string());
    // By its whole path where there is no folder; it cannot be written there anyway.
    auto name = folder ? target.filename().string() : path;
    auto const file = identityOf(path);
    auto const state = _state.lock();
    if (file && state->sources.contains(*file))
        return "its target is one of the files to prepare";
    return state->names.emplace(folder, std::move(name)).second ? "" : sameTarget;
}

std::string Targets::place(AtomicFile& file, std::string const& path)
{
    if (!file.settle()) // Takes its time, so not under the lock.
        return file.error();
    auto const state = _state.lock();
    auto const replaced = identityOf(path);
    if (replaced && state->placed.contains(*replaced))
        return sameTarget;
    if (!file.commit())
        return file.error();
    if (auto const placed = identityOf(path))
        state->placed.insert(*placed);
    return {};
}
