#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The room on the file system of a folder.
class Space {
public:
    /// That of `folder`, or of the nearest folder above it that is there.
    explicit Space(std::string const& folder);

    /// Bytes that are free for the user; absent when the file system does not tell.
    std::optional<std::uint64_t> available() const { return _available; }

    /// Bytes that a file of `size` takes, in whole blocks.
    std::uint64_t taken(std::uint64_t size) const;

private:
    std::optional<std::uint64_t> _available;
    std::uint64_t _block { 1 };
};
