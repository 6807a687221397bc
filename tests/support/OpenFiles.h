#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// How many files this process has open.
inline std::size_t countOfOpenFiles()
{
    std::filesystem::directory_iterator const opened("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(opened), end(opened)));
}
