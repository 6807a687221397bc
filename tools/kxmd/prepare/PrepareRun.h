#pragma once

#include "FolderPictures.h"
#include "Manifest.h"
#include "Playlists.h"
#include "Preparation.h"
#include "PreparationPlan.h"
#include "PreparationReport.h"
#include "Removal.h"
#include "Space.h"
#include "tools/kxmd/FileWalk.h"
#include "tools/kxmd/Targets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

class Session;

/// What a run was asked for.
struct PrepareOptions {
    std::vector<std::string> paths;
    std::string folder;
    std::string page; ///< Where a page tells of the run; empty for nowhere.
    PreparationOptions preparation;
    PlaylistOptions playlists;
    std::vector<std::string> excluded;
    std::vector<std::string> included;
    bool takesAll { false };
    bool followsLinks { false };
    bool removes { false };
    bool removesMany { false };
    bool ignoresSpace { false };
    bool isJSON { false };
    unsigned jobs { std::max(1u, std::thread::hardware_concurrency()) };
};

/// Brings a folder of prepared files up to date.
class PrepareRun {
public:
    PrepareRun(PrepareOptions const& options, Session& session);
    void run();

private:
    using Outcomes = std::map<std::size_t, PreparationOutcome>;
    using Folders = std::set<std::string>;

    bool begin();
    bool isDryRun() const { return _options.preparation.isDryRun; }
    void findFiles();
    void readNameRules();
    bool mayBeRefused() const;
    void makePlan();
    bool hasPlaceForPage();

    // Removal.
    void planRemoval();
    Folders foldersWithMusic() const;
    void removeFiles();

    // Space.
    std::uint64_t boundOfSpace() const;
    std::uint64_t predictedSpace();
    bool hasSpace();

    // Files.
    void work();
    bool rename(PlannedFile& file);
    PreparationOutcome outcomeFor(PlannedFile const& file, PreparationOptions const& options);
    PreparationOutcome outcomeOfKept(PlannedFile const& file, PreparationAction action) const;
    void place(std::vector<std::size_t> const& items, Outcomes& outcomes);
    void record(PlannedFile const& file, PreparationOutcome const& outcome);
    void recordTime(PlannedFile const& file, PreparationOutcome const& outcome);
    void removeTwin(PlannedFile const& file, std::string const& target);
    void noteSong(
        std::size_t item, std::string const& target, std::optional<PreparedSong> const& song);
    void reportKeptBefore(std::size_t item);
    void take(std::size_t item, PreparationOutcome const& outcome);
    void reportManifestError(std::string const& error);

    // Playlists.
    void probeKeptSongs();
    void writePlaylists();

    PrepareOptions const& _options;
    Session& _session;
    KXPlatform::Ref const _platform;
    FolderPictures _folderPictures;
    FoundFiles _found;
    Manifest _manifest;
    std::unique_ptr<Targets> _targets;
    Playlists _playlists;
    std::optional<PreparationPlan> _plan;
    std::optional<Space> _space; ///< As the run found it.
    Removal _removal;
    std::optional<PreparationReport> _report;
    std::size_t _reported { 0 }; ///< Files, in their order.
    std::uint64_t _needed { 0 }; ///< Bytes, by a dry run.
    /// Where the songs are, and what a playlist says of them, by file.
    std::map<std::size_t, std::pair<std::string, PreparedSong>> _songs;
};
