#pragma once

#include <chrono>
#include <cstdint>

/// What decoding a file may take. Pictures and movies are decoded in processes of their own, each
/// of which serves one file and is killed when it goes beyond.
struct KXDecodingLimits {
    /// Until a picture is given up.
    std::chrono::milliseconds pictureTime { 2'000 };
    /// Until a movie is given up, from its opening on; what the host does meanwhile does not count.
    std::chrono::milliseconds movieTime { 8'000 };
    /// Bytes of memory for one file.
    std::uint64_t memory { std::uint64_t { 512 } << 20 };
    /// Whether files are left undecoded where the kernel cannot keep decoders from other files, the
    /// network and other processes (Landlock and seccomp). Otherwise they are decoded with what
    /// there is, and one log line tells what is missing.
    bool requiresConfinement { false };
};
