#pragma once

#include "kxmd/base/KXSize.h"

/// A rectangle in points, its origin at the bottom left and y growing upwards.
struct KXRect {
    double x { 0 };
    double y { 0 };
    KXSize size;

    bool operator==(KXRect const&) const = default;
};
