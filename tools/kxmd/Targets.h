#pragma once

#include <kxmd/host/KXGuarded.h>

#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <utility>

/// The paths that files are written to, so that no file of a run overwrites another, nor one that
/// it reads. Safe on several threads.
class Targets {
public:
    /// Says that the file at `path` is read, so nothing may be written over it, by whatever name.
    void protect(std::string const& path)
    {
        if (auto const file = identityOf(path))
            _state.lock()->sources.insert(*file);
    }

    /// Takes `path` for a file. Why it cannot have it, or nothing.
    [[nodiscard]] std::string claim(std::string path)
    {
        auto const file = identityOf(path);
        auto const state = _state.lock();
        if (file && state->sources.contains(*file))
            return "its target is one of the files to prepare";
        return state->paths.insert(std::move(path)).second ? ""
                                                           : "another file has the same target";
    }

private:
    using Identity = std::pair<dev_t, ino_t>;
    struct State {
        std::set<Identity> sources;
        std::set<std::string> paths;
    };

    static std::optional<Identity> identityOf(std::string const& path)
    {
        struct stat status;
        if (::stat(path.c_str(), &status) != 0)
            return std::nullopt;
        return Identity { status.st_dev, status.st_ino };
    }

    KXGuarded<State> _state;
};
