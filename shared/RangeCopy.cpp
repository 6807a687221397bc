#include "shared/RangeCopy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

bool writeAll(int descriptor, std::span<std::uint8_t const> bytes)
{
    while (!bytes.empty()) {
        ssize_t const count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

bool RangeCopy::run()
{
    constexpr std::uint64_t shortest = 64 * 1024; // Less is not worth the kernel's trouble.
    if (length >= shortest)
        copyByKernel();
    return !writeError && copyByReading();
}

void RangeCopy::moveOn(ssize_t count)
{
    offset += static_cast<std::uint64_t>(count);
    length -= static_cast<std::uint64_t>(count);
}

/// Lets the kernel copy, or share, the blocks, as far as it can. Some file systems say that
/// they cannot, others that there is nothing; what cannot be read is found out by reading.
void RangeCopy::copyByKernel()
{
    constexpr std::uint64_t most = std::uint64_t { 1 } << 25;
    while (length) {
        auto position = static_cast<off_t>(offset);
        ssize_t const count
            = ::copy_file_range(source, &position, target, nullptr, std::min(length, most), 0);
        if (count > 0) {
            moveOn(count);
            if (length) // The disk will be waited for, so it may as well begin.
                static_cast<void>(::sync_file_range(target, 0, 0, SYNC_FILE_RANGE_WRITE));
        } else if (count == 0 || errno != EINTR) {
            bool const isFull = count < 0 && (errno == ENOSPC || errno == EDQUOT);
            writeError = isFull ? errno : 0;
            return;
        }
    }
}

bool RangeCopy::copyByReading()
{
    std::array<std::uint8_t, 64 * 1024> piece;
    while (length) {
        ssize_t const count = ::pread(source, piece.data(),
            std::min<std::uint64_t>(length, piece.size()), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            readError = count < 0 ? errno : 0;
            return count == 0;
        }
        if (!writeAll(target, std::span(piece).first(static_cast<std::size_t>(count)))) {
            writeError = errno;
            return false;
        }
        moveOn(count);
    }
    return true;
}
