#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Another program that looks at an untrusted file for us. It is killed, with whatever it started,
/// when it takes too long or writes too much, and can neither use memory nor fill files without
/// bound.
struct KX_EXPORT_FOR_TESTS KXChildProcess {
    /// The program's path and its arguments, which no shell sees.
    std::vector<std::string> arguments;
    /// Time until it is killed.
    std::chrono::milliseconds deadline { 10'000 };
    /// The most that it may write to its standard output or into a file, in bytes.
    std::uint64_t mostOutputBytes { std::uint64_t { 64 } << 20 };
    /// The most memory of its own that it may have, in bytes; 0 for as much as there is.
    std::uint64_t mostMemoryBytes { std::uint64_t { 1 } << 30 };

    /// Runs the program, without anything on its standard input, and waits for its end. Its
    /// standard output; absent when it could not be started, failed or was killed.
    std::optional<KXData> run() const;
};
