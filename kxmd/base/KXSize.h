#pragma once

/// A width and a height: points for pictures on a screen, pixels for coded media.
struct KXSize {
    double width { 0 }; ///< From left to right.
    double height { 0 }; ///< From top to bottom.

    bool operator==(KXSize const&) const = default;
};
