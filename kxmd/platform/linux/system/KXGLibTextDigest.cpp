#include "kxmd/platform/linux/system/KXGLibTextDigestPrivate.h"

#include <glib.h>
#include <memory>

std::string KXGLibTextDigest::sha1HexString(std::string_view text) const
{
    std::unique_ptr<gchar, decltype(&g_free)> const digits(
        g_compute_checksum_for_data(
            G_CHECKSUM_SHA1, reinterpret_cast<guchar const*>(text.data()), text.size()),
        g_free);
    return digits.get();
}
