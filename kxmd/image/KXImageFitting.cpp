#include "kxmd/image/KXImageFittingPrivate.h"

#include <algorithm>
#include <cmath>

KXImage::Ref shrinkImageToSize(KXImage::Ref const& image, KXSize size)
{
    KXSize const whole = image->size();
    if (!(size.width > 0) || !(size.height > 0))
        return nullptr;
    double const scale = std::min(size.width / whole.width, size.height / whole.height);
    if (scale >= 1)
        return image;
    // Never larger than allowed, and at least a point.
    KXSize const fitting { std::max(1.0, std::floor(whole.width * scale)),
        std::max(1.0, std::floor(whole.height * scale)) };
    auto const shrunk = KXImage::imageWithSize(fitting);
    if (shrunk)
        shrunk->drawImageFromRectInRect(*image, { 0, 0, whole }, { 0, 0, fitting });
    return shrunk;
}
