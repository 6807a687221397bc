#pragma once

#include <kxmd/host/KXGuarded.h>

#include <set>
#include <string>

/// The paths that files are written to, so that no file of a run overwrites another. Safe on
/// several threads.
class Targets {
public:
    /// Takes `path` for a file; false when another one has it.
    [[nodiscard]] bool claim(std::string path)
    {
        return _paths.lock()->insert(std::move(path)).second;
    }

private:
    KXGuarded<std::set<std::string>> _paths;
};
