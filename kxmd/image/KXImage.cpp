#include "kxmd/image/KXImage.h"

#include "kxmd/image/KXResamplerPrivate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// One direction of a drawing: an interval of a source onto one of a target.
struct Span {
    double from;
    double fromLength;
    double into;
    double intoLength;

    /// Without what lies outside of a source of `length`.
    Span clippedToSource(double length) const
    {
        double const begin = std::max(from, 0.0);
        double const end = std::min(from + fromLength, length);
        if (begin == from && end == from + fromLength)
            return *this; // To the last bit.
        double const scale = intoLength / fromLength;
        return { begin, end - begin, into + (begin - from) * scale, (end - begin) * scale };
    }
};

}

KXImage::KXImage(
    KXSize size, std::size_t pixelWidth, std::size_t pixelHeight, std::vector<std::uint8_t> pixels)
    : _size(size)
    , _pixelWidth(pixelWidth)
    , _pixelHeight(pixelHeight)
    , _pixels(std::move(pixels))
{
}

std::shared_ptr<KXImage> KXImage::imageWithSize(KXSize size)
{
    double const width = std::ceil(size.width), height = std::ceil(size.height);
    if (!(width > 0) || !(height > 0) || !(width <= longestSide) || !(height <= longestSide)
        || !(width * height <= static_cast<double>(mostPixels)))
        return nullptr;
    auto const pixelWidth = static_cast<std::size_t>(width);
    auto const pixelHeight = static_cast<std::size_t>(height);
    return std::shared_ptr<KXImage>(new KXImage(size, pixelWidth, pixelHeight,
        std::vector<std::uint8_t>(pixelWidth * pixelHeight * bytesPerPixel)));
}

std::shared_ptr<KXImage> KXImage::imageWithPixels(
    std::vector<std::uint8_t> pixels, std::size_t width, std::size_t height)
{
    if (!width || !height || width > longestSide || height > longestSide
        || width * height > mostPixels || pixels.size() != width * height * bytesPerPixel)
        return nullptr;
    KXSize const size { static_cast<double>(width), static_cast<double>(height) };
    return std::shared_ptr<KXImage>(new KXImage(size, width, height, std::move(pixels)));
}

void KXImage::drawImageFromRectInRect(KXImage const& image, KXRect from, KXRect into)
{
    // Rows are counted from the top, rectangles from the bottom.
    double const fromTop = image._size.height - (from.y + from.size.height);
    double const intoTop = _size.height - (into.y + into.size.height);
    auto const across = Span { from.x, from.size.width, into.x, into.size.width }.clippedToSource(
        image._size.width);
    auto const down = Span { fromTop, from.size.height, intoTop, into.size.height }.clippedToSource(
        image._size.height);
    KXResamplerAxis const columns(across.from, across.fromLength, image._size.width, across.into,
        across.intoLength, _pixelWidth);
    KXResamplerAxis const rows(
        down.from, down.fromLength, image._size.height, down.into, down.intoLength, _pixelHeight);
    if (columns.targetCount() && rows.targetCount())
        drawResampled(image._pixels, image._pixelWidth, columns, rows, _pixels, _pixelWidth);
}
