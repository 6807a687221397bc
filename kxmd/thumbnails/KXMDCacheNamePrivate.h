#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/platform/KXTextDigest.h"

#include <string>
#include <string_view>

class KXDCFile;

/// Names the picture of a path, or of another key text, at a size in points: the SHA-1 of key and
/// size, the size cut to whole points, as 40 hexadecimal digits. Any key has a name, an empty one
/// as well.
[[nodiscard]] KX_EXPORT_FOR_TESTS std::string cacheNameForKey(
    std::string_view key, KXSize size, KXTextDigest const& digest);

/// What the picture that stands for a file is named after: the path of its "ThumbnailPath", else
/// artist and album, which all tracks of an album share, else its source path. Empty when it has
/// none of these.
[[nodiscard]] KX_EXPORT_FOR_TESTS std::string cacheKeyOfFile(KXDCFile const& file);

/// The text that a file has under the key "ThumbnailPath"; empty without one.
[[nodiscard]] std::string thumbnailPathOfFile(KXDCFile const& file);
