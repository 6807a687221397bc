#pragma once

#include "FolderPictures.h"
#include "Manifest.h"
#include "Preparation.h"
#include "TargetNames.h"
#include "tools/kxmd/FileWalk.h"
#include "tools/kxmd/Targets.h"

#include <cstddef>
#include <string>
#include <vector>

/// What a run does with one file.
struct PlannedFile {
    enum class State {
        missing, ///< It is prepared.
        unchanged, ///< Its target is there already.
        misnamed, ///< So it is, under another name.
    };

    PreparationJob job;
    std::string source; ///< The absolute path.
    std::uint64_t size { 0 };
    State state { State::missing };
    std::string newTarget {}; ///< Of one that is misnamed.
    Manifest::Entry former {}; ///< What an earlier run made of it; null when none did.
    bool isUpToDate { false }; ///< It is as it was then, and what was made of it is there.
};

/// What a run does with all files that were found, before anything is done.
class PreparationPlan {
public:
    /// Targets are claimed in the order of the files, whoever is done first, those of an earlier
    /// run before new ones.
    PreparationPlan(std::vector<FoundFile> const& files, std::string const& folder,
        Manifest const& manifest, PreparationOptions const& options, FolderPictures& folderPictures,
        TargetNames& names, Targets& targets);

    /// In the order in which they were found.
    std::vector<PlannedFile>& files() { return _files; }
    std::vector<PlannedFile> const& files() const { return _files; }

    /// Places in the list of those in `state`.
    std::vector<std::size_t> filesIn(PlannedFile::State state) const;

private:
    Manifest::Entry formerOf(FoundFile const& file, std::string const& source) const;
    void giveTarget(FoundFile const& file, PlannedFile& planned);
    bool isAsRecorded(FoundFile const& file, PlannedFile const& planned) const;
    void lookForTargets(std::vector<FoundFile> const& files);
    PlannedFile::State stateOf(PlannedFile& planned);

    std::string const _folder;
    Manifest const& _manifest;
    PreparationOptions const& _options;
    FolderPictures& _folderPictures;
    TargetNames& _names;
    Targets& _targets;
    std::vector<PlannedFile> _files;
};

/// The absolute path for one that was typed, without links being followed.
std::string absolutePath(std::string const& path);
