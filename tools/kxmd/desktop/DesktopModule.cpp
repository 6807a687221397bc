#include "DesktopModule.h"

#include <kxmd/version.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <gio/gio.h>
#include <memory>
#include <mutex>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

GLogWriterOutput dropRemark(
    GLogLevelFlags level, GLogField const* fields, gsize fieldCount, gpointer data)
{
    return level & G_LOG_LEVEL_ERROR ? g_log_writer_default(level, fields, fieldCount, data)
                                     : G_LOG_WRITER_HANDLED;
}

void dropRemarks() { g_log_set_writer_func(dropRemark, nullptr, nullptr); }

std::string textWithoutCase(std::string const& text)
{
    g_autofree char* folded = g_utf8_casefold(text.data(), static_cast<gssize>(text.size()));
    return folded;
}

bool isSound(std::string const& path, int descriptor)
{
    std::array<std::uint8_t, 4096> head;
    ssize_t const count = ::pread(descriptor, head.data(), head.size(), 0);
    // One at a time, as behind the lock of the desktop's own library, which checkers of threads do
    // not see.
    static std::mutex mutex;
    std::scoped_lock const lock(mutex);
    g_autofree char* type = g_content_type_guess(
        path.c_str(), head.data(), static_cast<gsize>(std::max<ssize_t>(count, 0)), nullptr);
    return std::string_view(type).starts_with("audio/") && !g_content_type_is_a(type, "text/plain");
}

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

}

DesktopModule const kxmdDesktopModule { .version = KXMD_VERSION,
    .dropRemarks = dropRemarks,
    .textWithoutCase = textWithoutCase,
    .isSound = isSound,
    .checksumOf = checksumOf };
