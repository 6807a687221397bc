#pragma once

#include "shared/FileStatus.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

class AtomicFile;

/// The paths that files are written to, so that no file of a run overwrites another, nor one that
/// it reads, whatever the names for it; and the way there, safe from a loss of power.
class Targets {
public:
    /// Those below `folder`, which is there.
    explicit Targets(std::string const& folder);
    ~Targets();
    Targets(Targets const&) = delete;
    Targets& operator=(Targets const&) = delete;

    /// Says that the folder's file system takes names that differ in case for one.
    void ignoreCase() { _tellsCase = false; }

    /// Says that a file is read, so nothing may be written over it.
    void protect(FileIdentity const& file) { _sources.insert(file); }

    /// Takes `path` for a file. Why it cannot have it, or nothing. Does not look whether it is one
    /// of those that are read, which nothing is placed over.
    [[nodiscard]] std::string claim(std::string const& path);
    /// Why nothing can be written to `path`, if it is one of the files that are read, or nothing.
    [[nodiscard]] std::string reasonAgainst(std::string const& path) const;
    /// Whether some file of this run has the path.
    bool isClaimed(std::string const& path);

    /// A written file on its way to its place.
    struct Arrival {
        AtomicFile& file;
        std::string error {}; ///< Why it did not get there.
    };

    /// Puts files in their places, in their order. No name is there before the bytes of its file
    /// are on the disk, and all of it is on the disk in the end: the disk is waited for once for
    /// all of the files, and once for each of their folders. On a phone's file system two names
    /// that differ in case may be one: the file that comes first stays.
    void place(std::span<Arrival> arrivals);

    /// Waits until everything that was done below the folder is on the disk. Why that failed, or
    /// nothing.
    std::string sync();

private:
    /// A file's name in its folder, or its whole path where there is no folder.
    using Name = std::pair<std::optional<FileIdentity>, std::string>;
    struct HashOfName {
        std::size_t operator()(Name const& name) const;
    };

    Name nameOf(std::string const& path);
    bool isPlaced(FileIdentity const& file) const;
    bool canSyncTogether(std::span<Arrival const> arrivals) const;
    void placeOne(Arrival& arrival);

    int const _folder; ///< Open from the start, so that it hears of every failed write.
    bool _tellsCase { true };
    std::set<FileIdentity> _sources;
    std::map<std::string, std::optional<FileIdentity>, std::less<>>
        _folders; ///< As they were when asked for.
    std::unordered_set<Name, HashOfName> _names;
    std::map<FileIdentity, std::string> _placed; ///< Where they are.
};

/// Puts the files of `outcomes`, which are by item, in their places; each has an open `file`, or
/// none, and an `error` for why it did not get there.
template <class Outcome>
void placeFilesOf(std::map<std::size_t, Outcome>& outcomes, Targets& targets)
{
    std::vector<Targets::Arrival> arrivals;
    for (auto const& [item, outcome] : outcomes) {
        if (outcome.file)
            arrivals.push_back({ *outcome.file });
    }
    targets.place(arrivals);
    auto arrival = arrivals.begin();
    for (auto& [item, outcome] : outcomes) {
        if (outcome.file)
            outcome.error = std::move((arrival++)->error);
        outcome.file.reset();
    }
}
