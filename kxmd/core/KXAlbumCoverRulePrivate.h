#pragma once

#include "kxmd/base/KXSize.h"

#include <algorithm>

/// When a file's covers are good enough to show: the widest is at least 200 pixels wide and the
/// tallest at least 200 high. The two maxima may come from different covers.
class KXAlbumCoverRule {
public:
    void addCoverOfSize(KXSize size)
    {
        _maxima.width = std::max(_maxima.width, size.width);
        _maxima.height = std::max(_maxima.height, size.height);
    }

    bool isMet() const { return _maxima.width >= smallestSide && _maxima.height >= smallestSide; }

private:
    static constexpr double smallestSide = 200;

    KXSize _maxima;
};
