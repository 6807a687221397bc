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

/// Whether so many bytes are the pixels of a picture that is not too large.
bool areAllPixels(std::size_t count, std::size_t width, std::size_t height)
{
    return width && height && width <= KXImage::longestSide && height <= KXImage::longestSide
        && width * height <= KXImage::mostPixels
        && count == width * height * KXImage::bytesPerPixel;
}

KXSize pointPerPixel(std::size_t width, std::size_t height)
{
    return { static_cast<double>(width), static_cast<double>(height) };
}

std::shared_ptr<std::uint8_t const> sharedBytes(std::vector<std::uint8_t> bytes)
{
    auto const owner = std::make_shared<std::vector<std::uint8_t>>(std::move(bytes));
    return { owner, owner->data() };
}

}

KXImage::KXImage(KXSize size, std::size_t pixelWidth, std::size_t pixelHeight,
    std::shared_ptr<std::uint8_t const> pixels)
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
        sharedBytes(std::vector<std::uint8_t>(pixelWidth * pixelHeight * bytesPerPixel))));
}

std::shared_ptr<KXImage> KXImage::imageWithPixels(
    std::vector<std::uint8_t> pixels, std::size_t width, std::size_t height)
{
    if (!areAllPixels(pixels.size(), width, height))
        return nullptr;
    return std::shared_ptr<KXImage>(
        new KXImage(pointPerPixel(width, height), width, height, sharedBytes(std::move(pixels))));
}

KXImage::Ref KXImage::imageWithSharedPixels(std::shared_ptr<std::uint8_t const> pixels,
    std::size_t count, std::size_t width, std::size_t height)
{
    if (!pixels || !areAllPixels(count, width, height))
        return nullptr;
    return Ref(new KXImage(pointPerPixel(width, height), width, height, std::move(pixels)));
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
    KXResamplerAxis columns(across.from, across.fromLength, image._size.width, across.into,
        across.intoLength, _pixelWidth);
    KXResamplerAxis rows(
        down.from, down.fromLength, image._size.height, down.into, down.intoLength, _pixelHeight);
    if (!columns.targetCount() || !rows.targetCount())
        return;
    // A picture that can be drawn to has made its pixels itself.
    std::span const target(const_cast<std::uint8_t*>(_pixels.get()), pixels().size());
    drawResampled(image.pixels(), image._pixelWidth, std::move(columns), std::move(rows), target,
        _pixelWidth);
}
