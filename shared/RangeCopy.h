#pragma once

#include <cstdint>
#include <span>
#include <sys/types.h>

/// Writes all of `bytes` to where the file of `descriptor` is written; false when that fails, and
/// `errno` tells why.
bool writeAll(int descriptor, std::span<std::uint8_t const> bytes);

/// A copy of a range of one file to where another is written.
struct RangeCopy {
    /// Copies until the range or the source ends. False when the system refuses to read or write.
    [[nodiscard]] bool run();

    int source; ///< An open file, of which the position does not matter.
    std::uint64_t offset; ///< In bytes; moves on with the copy.
    std::uint64_t length; ///< What is left of the range, in bytes.
    int target; ///< An open file.
    int readError { 0 }; ///< Why the system refused, as in `errno`.
    int writeError { 0 };

private:
    void moveOn(ssize_t count);
    void copyByKernel();
    bool copyByReading();
};
