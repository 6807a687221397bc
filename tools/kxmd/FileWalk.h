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

/// All regular files that `paths` name, folders with all that is below them, names in the order of
/// their bytes. Links to files are followed, links to folders are not. `leftOut` is a folder that
/// is not entered, wherever it lies. What cannot be read is reported.
std::vector<FoundFile> foundFiles(
    std::vector<std::string> const& paths, std::string const& leftOut, Session& session);
