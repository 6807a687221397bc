#pragma once

#include "support/Builders.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// A new folder for one test, removed with everything in it at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::filesystem::path const& path() const { return _path; }

    /// Writes a file into the folder and returns its path.
    std::string write(std::string const& name, build::Bytes const& bytes) const;

private:
    std::filesystem::path _path;
};

/// All bytes of a file.
build::Bytes bytesOfFile(std::filesystem::path const& path);

/// The folder of real media that the build was told of; absent without one.
std::optional<std::filesystem::path> sampleFolder();

/// Every media file below the folder of real media, in the order of their paths.
std::vector<std::filesystem::path> sampleFiles();
