#pragma once

#include "FolderPictures.h"
#include "PreparedSong.h"
#include "shared/AtomicFile.h"

#include <kxmd/platform/KXPlatform.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a file is, as far as it matters for what may be done to it.
enum class PreparationKind { music, video, other };

/// What may be done to files.
struct PreparationOptions {
    bool insertsCovers { true };
    bool cleans { true };
    bool keepsMetadata { false }; ///< Keeps what goes beyond a movie's user data.
    bool converts { true };
    unsigned coverSize { 256 }; ///< Pixels a side.
    bool isDryRun { false }; ///< Tells what would be done.
    bool listsSongs { false }; ///< Finds out what a playlist says of them.
    bool sumsUp { false }; ///< Finds out the checksum of each source.

    /// Those that the result depends on for a file of that kind, as a text.
    std::string digestFor(PreparationKind kind) const;
    /// Whether a text of that form is what it would be today.
    bool isDigest(std::string_view digest) const;
};

/// What can be done to a file, in the order in which it is.
enum class PreparationStep { conversion, cleaning, coverInsertion };

/// What became of a file in the end.
enum class PreparationAction { converted, edited, copied, unchanged, renamed, deleted, failed };

/// What became of one file.
struct PreparationOutcome {
    std::string source;
    std::string target;
    PreparationAction action { PreparationAction::failed };
    std::vector<PreparationStep> steps {}; ///< What was done to it, in order.
    std::uint64_t sizeBefore { 0 };
    std::uint64_t predictedSize { 0 };
    std::uint64_t size { 0 };
    std::string error {}; ///< Why there is no file; empty when there is.
    std::string remark {}; ///< What a person should know of a file that is there.
    bool isRemoval { false }; ///< Of a target whose source is gone.
    bool isLeftAsItWas { false }; ///< Something should have been done to it, and could not.
    std::unique_ptr<AtomicFile> file {}; ///< Written, and not in its place yet; null without one.

    // For the record.
    PreparationKind kind { PreparationKind::other };
    std::int64_t modified { 0 }; ///< Of the source, in nanoseconds since 1970.
    std::int64_t inode { 0 };
    std::string checksum {};
    std::optional<std::string> cover {};
    std::string album {}; ///< Where pictures beside it matter.
    std::optional<PreparedSong> song {};

    bool isDone() const { return error.empty(); }
    /// Whether an earlier run made what is there.
    bool isKept() const
    {
        return action == PreparationAction::unchanged || action == PreparationAction::renamed;
    }
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
    /// SHA-256 of the source by which the target that there is was made; empty without one.
    std::string knownChecksum {};
};

/// Prepares a file for a phone and writes it beside its target. Safe to call for different files on
/// several threads at once; files are not held in memory.
PreparationOutcome preparedFile(PreparationJob const& job, PreparationOptions const& options,
    FolderPictures& folderPictures, KXPlatform::Ref const& platform);

/// What the name of a converted file ends with.
inline constexpr std::string_view convertedExtension = ".m4a";

/// The target of a file once it is converted: with that instead of its own extension.
std::string convertedTarget(std::string const& target);
