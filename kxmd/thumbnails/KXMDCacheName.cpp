#include "kxmd/thumbnails/KXMDCacheName.h"

#include "kxmd/platform/KXPlatform.h"

std::string cacheNameForPath(std::string_view key, KXSize size)
{
    return cacheNameForPath(key, size, *KXPlatform::shared()->textDigest);
}

std::string cacheNameForPath(std::string_view key, KXSize size, KXTextDigest const& digest)
{
    std::string text(key);
    text.append("_")
        .append(std::to_string(wholePart(size.width)))
        .append("x")
        .append(std::to_string(wholePart(size.height)));
    return digest.sha1HexString(text);
}
