#pragma once

#include "FolderPictures.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/platform/KXPlatform.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// What may be done to files.
struct PreparationOptions {
    bool insertsCovers { true };
    bool cleans { true };
    bool converts { true };
    FolderPictures& folderPictures;
    std::mutex& largeFiles; ///< Held by whoever has a large file in memory.
};

/// What can be done to a file, in the order in which it is.
enum class PreparationStep { conversion, cleaning, coverInsertion };

/// What became of one file.
struct PreparationOutcome {
    std::string source;
    std::string target;
    std::vector<PreparationStep> steps; ///< What was done to it, in order.
    std::uint64_t sizeBefore { 0 };
    std::uint64_t predictedSize { 0 };
    std::uint64_t size { 0 };
    bool isAudio { false };
    std::string error; ///< Why there is no file; empty when there is.
    std::string remark; ///< What a person should know of a file that is there.
    std::unique_ptr<AtomicFile> file {}; ///< Written, and not in its place yet; null without one.

    bool isDone() const { return error.empty(); }
    bool has(PreparationStep step) const
    {
        return std::find(steps.begin(), steps.end(), step) != steps.end();
    }
};

/// A file, and where it goes.
struct PreparationJob {
    std::string source;
    std::string target; ///< Its folder exists.
    std::string convertedTarget; ///< Where it goes if it is converted.
    std::string refusal {}; ///< Why it cannot go there; empty when it can.
};

/// Prepares a file for a phone and writes it beside its target. Safe to call for different files on
/// several threads at once; holds at most the one file in memory, if that is large none beside it.
PreparationOutcome preparedFile(
    PreparationJob const& job, PreparationOptions const& options, KXPlatform::Ref const& platform);

/// The target of a file once it is converted: named .m4a instead of its own extension.
std::string convertedTarget(std::string const& target);
