#include "ContentType.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <gio/gio.h>
#include <mutex>
#include <string_view>
#include <unistd.h>

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
