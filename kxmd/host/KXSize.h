#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

/// A width and a height: points for pictures on a screen, pixels for coded media.
struct KXSize {
    double width { 0 };
    double height { 0 };

    bool operator==(KXSize const&) const = default;
};

/// `wholePart:` A width or height cut to a whole number; kept within 32 bits, 0 if it is no number.
inline std::int32_t wholePart(double length)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(length))
        return 0;
    return static_cast<std::int32_t>(std::clamp<double>(length, Limits::min(), Limits::max()));
}
