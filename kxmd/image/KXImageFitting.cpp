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

KXImage::Ref squareOfImage(KXImage::Ref const& image, KXSize size)
{
    if (!image || image->size() == size)
        return image;
    auto const scaled = KXImage::imageWithSize(size);
    if (!scaled)
        return nullptr;
    KXSize const whole = image->size();
    double const side = std::min(whole.width, whole.height);
    KXRect const square { (whole.width - side) * 0.5, (whole.height - side) * 0.5, { side, side } };
    scaled->drawImageFromRectInRect(*image, square, { 0, 0, size });
    return scaled;
}
