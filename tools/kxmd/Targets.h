#pragma once

#include <kxmd/base/KXGuarded.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <sys/types.h>
#include <utility>

class AtomicFile;

/// The paths that files are written to, so that no file of a run overwrites another, nor one that
/// it reads, whatever the names for it. Safe on several threads.
class Targets {
public:
    /// Says that the file at `path` is read, so nothing may be written over it.
    void protect(std::string const& path);

    /// Takes `path`, whose folder is there, for a file. Why it cannot have it, or nothing.
    [[nodiscard]] std::string claim(std::string const& path);

    /// Puts `file` in its place at `path`. Why that is not possible, or nothing. On a phone's file
    /// system two names that differ in case may be one: the file that is done first stays.
    [[nodiscard]] std::string place(AtomicFile& file, std::string const& path);

private:
    using Identity = std::pair<dev_t, ino_t>;
    struct State {
        std::set<Identity> sources;
        std::set<std::pair<std::optional<Identity>, std::string>> names; ///< By folder.
        std::map<Identity, std::string> placed; ///< Where they are.
    };

    enum class Link { followed, itself };
    static std::optional<Identity> identityOf(std::string const& path, Link link);
    static bool isPlaced(State const& state, Identity const& file);

    KXGuarded<State> _state;
};
