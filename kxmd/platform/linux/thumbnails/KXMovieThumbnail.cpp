#include "kxmd/platform/linux/thumbnails/KXMovieThumbnailPrivate.h"

#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

/// Whether a picture is of one colour, as those that movies fade in from.
bool isBlank(KXImage const& image)
{
    constexpr int grain = 24; // Of 255: noise of the encoder, or a faint sign.
    std::array<std::uint8_t, KXImage::bytesPerPixel> lowest, highest {};
    lowest.fill(255);
    auto const pixels = image.pixels();
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        std::size_t const channel = i % KXImage::bytesPerPixel;
        lowest[channel] = std::min(lowest[channel], pixels[i]);
        highest[channel] = std::max(highest[channel], pixels[i]);
    }
    for (std::size_t channel = 0; channel < lowest.size(); ++channel) {
        if (highest[channel] - lowest[channel] > grain)
            return false;
    }
    return true;
}

/// A frame worth showing: a tenth of the way in, which is usually past titles and fades, but no
/// later than half a minute, since files without an index are read up to there. A frame a third of
/// the way in is tried only when that one is blank.
KXImage::Ref frameOfMovie(KXMovie& movie, KXSize maximumSize)
{
    constexpr double latest = 30; // Seconds.
    double const duration = std::isfinite(movie.duration()) ? std::max(movie.duration(), 0.0) : 0;
    KXImage::Ref first;
    for (double const seconds : { std::min(duration / 10, latest), duration / 3, 0.0 }) {
        auto frame = movie.keyImageAtTime(seconds, maximumSize);
        if (frame && !isBlank(*frame))
            return frame;
        if (!first)
            first = frame;
    }
    return first;
}

/// The cover, if it is a picture and no drawing.
KXImage::Ref coverOfMovie(
    KXMovie const& movie, KXPictureLoader const& pictureLoader, KXSize maximumSize)
{
    KXData const cover = movie.attachedPicture();
    auto const head = cover.bytes().first(
        static_cast<std::size_t>(std::min<std::uint64_t>(cover.length(), longestContentHead)));
    KXFileContent const content = contentOfFileWithHead(head);
    if (content != KXFileContent::picture && content != KXFileContent::rarePicture)
        return nullptr;
    auto const data = KXAbstractData::abstractDataWithData(cover);
    return pictureLoader.imageInData(*data, data->length(), maximumSize);
}

}

KXImage::Ref thumbnailOfMovie(
    KXMovie& movie, KXPictureLoader const& pictureLoader, KXSize maximumSize)
{
    if (auto frame = frameOfMovie(movie, maximumSize))
        return frame;
    return coverOfMovie(movie, pictureLoader, maximumSize);
}
