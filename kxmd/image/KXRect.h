#pragma once

#include "kxmd/base/KXSize.h"

/// A rectangle in points, its origin at the bottom left and y growing upwards.
struct KXRect {
    double x { 0 }; ///< Of the left edge.
    double y { 0 }; ///< Of the bottom edge.
    KXSize size; ///< Empty where a side is 0.

    bool operator==(KXRect const&) const = default;
};
