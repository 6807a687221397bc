#include "kxmd/thumbnails/KXMDCacheName.h"

#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

std::string wholePoints(double points)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(points))
        points = 0;
    return std::to_string(
        static_cast<std::int32_t>(std::clamp<double>(points, Limits::min(), Limits::max())));
}

}

std::string cacheNameForPath(std::string_view key, KXSize size)
{
    std::string text(key);
    text.append("_").append(wholePoints(size.width)).append("x").append(wholePoints(size.height));
    return KXPlatform::shared()->textDigest->sha1HexString(text);
}
