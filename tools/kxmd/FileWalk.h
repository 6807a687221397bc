#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Session;

/// A file that was found, and where it goes.
struct FoundFile {
    std::string path;
    std::string relativePath; ///< Below the folder that was given, or the file's name alone.
    std::uint64_t size { 0 };
};

/// Which links are followed that lie in a folder; those that are named themselves always are.
enum class Links {
    toFilesWithin, ///< Those to files within the paths that are searched; other files are private.
    all, ///< Those to folders as well, each folder once.
};

/// All regular files that `paths` name, folders with all that is below them, names in the order of
/// their bytes. `leftOut` is a folder that is not entered, wherever it lies. What cannot be read,
/// and links to files that are not followed, are reported.
std::vector<FoundFile> foundFiles(std::vector<std::string> const& paths, std::string const& leftOut,
    Links links, Session& session);
