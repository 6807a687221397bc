#include "kxmd/platform/linux/KXLinuxThumbnailServicePrivate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// `image` shrunk to whole points within `maximumSize`, with its proportions; itself when it fits.
KXImage::Ref imageWithin(KXImage::Ref const& image, KXSize maximumSize)
{
    KXSize const whole = image->size();
    double const scale
        = std::min(maximumSize.width / whole.width, maximumSize.height / whole.height);
    if (!(scale < 1))
        return image;
    // Never larger than allowed, and at least a point.
    KXSize const size { std::max(1.0, std::floor(whole.width * scale)),
        std::max(1.0, std::floor(whole.height * scale)) };
    auto const shrunk = KXImage::imageWithSize(size);
    if (shrunk)
        shrunk->drawImageFromRectInRect(*image, { 0, 0, whole }, { 0, 0, size });
    return shrunk;
}

}

KXLinuxThumbnailService::KXLinuxThumbnailService(
    std::shared_ptr<KXPictureLoader const> pictureLoader,
    std::shared_ptr<KXMovieLoader const> movieLoader)
    : _pictureLoader(std::move(pictureLoader))
    , _movieLoader(std::move(movieLoader))
{
}

KXImage::Ref KXLinuxThumbnailService::imageForPath(
    std::string const& path, KXSize maximumSize) const
{
    if (!(maximumSize.width >= 1) || !(maximumSize.height >= 1))
        return nullptr;
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return nullptr;
    auto const image = _pictureLoader->imageInData(*data, data->length(), maximumSize);
    return image ? imageWithin(image, maximumSize) : nullptr;
}
