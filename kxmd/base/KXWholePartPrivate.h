#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

/// A width or height cut to a whole number, as names and descriptions show it: kept within 32 bits,
/// 0 for NaN.
inline std::int32_t wholePart(double length)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(length))
        return 0;
    return static_cast<std::int32_t>(std::clamp<double>(length, Limits::min(), Limits::max()));
}
