#include "Checksum.h"

#include <cerrno>
#include <cstdint>
#include <glib.h>
#include <memory>
#include <unistd.h>
#include <vector>

std::string checksumOf(int descriptor)
{
    std::unique_ptr<GChecksum, decltype(&g_checksum_free)> const sum(
        g_checksum_new(G_CHECKSUM_SHA256), g_checksum_free);
    constexpr std::size_t pieceLength = std::size_t { 256 } << 10;
    std::vector<std::uint8_t> piece(pieceLength);
    for (off_t offset = 0;;) {
        ssize_t const count = ::pread(descriptor, piece.data(), piece.size(), offset);
        if (count < 0 && errno != EINTR)
            return {};
        if (count == 0)
            return g_checksum_get_string(sum.get());
        if (count > 0) {
            g_checksum_update(sum.get(), piece.data(), count);
            offset += count;
        }
    }
}
