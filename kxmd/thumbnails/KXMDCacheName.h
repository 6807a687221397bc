#pragma once

#include "kxmd/host/KXExport.h"
#include "kxmd/host/KXSize.h"
#include "kxmd/platform/KXTextDigest.h"

#include <string>
#include <string_view>

/// `cacheNameForPath:size:` Names the picture of a path, or of another key text, at a size in
/// points.
///
/// The SHA-1 of key and size, the size cut to whole points, as 40 hexadecimal digits. Any key has a
/// name, an empty one as well. Uses the process-wide platform's digest.
[[nodiscard]] KX_EXPORT std::string cacheNameForPath(std::string_view key, KXSize size);

/// `cacheNameForPath:size:digest:` The same by a digest of the caller's.
[[nodiscard]] KX_EXPORT std::string cacheNameForPath(
    std::string_view key, KXSize size, KXTextDigest const& digest);
