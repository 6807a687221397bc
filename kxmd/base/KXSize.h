#pragma once

/// A width and a height: points for pictures on a screen, pixels for coded media.
struct KXSize {
    double width { 0 };
    double height { 0 };

    bool operator==(KXSize const&) const = default;
};
