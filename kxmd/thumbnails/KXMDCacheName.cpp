#include "kxmd/thumbnails/KXMDCacheName.h"

#include "kxmd/platform/KXPlatform.h"

std::string cacheNameForPath(std::string_view key, KXSize size)
{
    std::string text(key);
    text.append("_")
        .append(std::to_string(wholePart(size.width)))
        .append("x")
        .append(std::to_string(wholePart(size.height)));
    return KXPlatform::shared()->textDigest->sha1HexString(text);
}
