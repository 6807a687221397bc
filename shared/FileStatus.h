#pragma once

#include <algorithm>
#include <cstdint>
#include <sys/stat.h>
#include <utility>

/// What tells one file from another, whatever their names.
using FileIdentity = std::pair<dev_t, ino_t>;

inline FileIdentity identityOf(struct stat const& status)
{
    return { status.st_dev, status.st_ino };
}

/// When a file's content last changed, in nanoseconds since 1970.
inline std::int64_t modificationTimeOf(struct stat const& status)
{
    constexpr std::int64_t second = 1'000'000'000, farthest = INT64_MAX / second - 1; // Year 2262.
    std::int64_t const seconds
        = std::clamp<std::int64_t>(status.st_mtim.tv_sec, -farthest, farthest);
    return seconds * second + status.st_mtim.tv_nsec;
}
