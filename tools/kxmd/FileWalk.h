#pragma once

#include "shared/FileStatus.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class Session;

/// A file that was found, and where it goes.
struct FoundFile {
    std::string path;
    std::string relativePath; ///< Below the folder that is written to.
    std::uint64_t size { 0 };
    std::int64_t modified { 0 }; ///< Nanoseconds since 1970.
    FileIdentity identity {};
};

/// Which links are followed that lie in a folder; those that are named themselves always are.
enum class Links {
    toFilesWithin, ///< Those to files within the paths that are searched; other files are private.
    all, ///< Those to folders as well, each folder once.
};

/// How files are searched.
struct WalkOptions {
    std::string leftOut {}; ///< A folder that is not entered, wherever it lies; empty for none.
    Links links { Links::toFilesWithin };
    /// Whether a folder's name is part of what is found below it, unless its path ends with a
    /// slash, or is no name.
    bool keepsNames { false };
    /// Whether a file or folder of that relative path, found in a folder, is wanted; null for all.
    std::function<bool(std::string_view relativePath)> isWanted {};
    /// Is told of each folder, without a slash at its end, what it holds; null for nobody.
    std::function<void(std::string const& folder, std::vector<std::string> const& names)>
        sawFolder {};
};

/// What was found.
struct FoundFiles {
    std::vector<FoundFile> files;
    std::size_t skipped { 0 }; ///< Links, folders and files that were reported instead.
    bool isWhole { true }; ///< Whether each path was there, could be read, and held a file.
    /// Links that lead nowhere and folders that cannot be read: what was below them may be there.
    std::vector<std::string> unseen {};
};

/// All regular files that `paths` name, folders with all that is below them, names in the order of
/// their bytes. What cannot be read, and links that are not followed, are reported.
FoundFiles foundFiles(
    std::vector<std::string> const& paths, WalkOptions const& options, Session& session);
