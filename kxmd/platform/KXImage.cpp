#include "kxmd/platform/KXImage.h"

#include "kxmd/platform/KXResamplerPrivate.h"

#include <cmath>
#include <utility>

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
    if (!(width > 0) || !(height > 0) || !(width * height <= static_cast<double>(mostPixels)))
        return nullptr;
    auto const pixelWidth = static_cast<std::size_t>(width);
    auto const pixelHeight = static_cast<std::size_t>(height);
    return std::shared_ptr<KXImage>(new KXImage(size, pixelWidth, pixelHeight,
        std::vector<std::uint8_t>(pixelWidth * pixelHeight * bytesPerPixel)));
}

std::shared_ptr<KXImage> KXImage::imageWithPixels(
    std::vector<std::uint8_t> pixels, std::size_t width, std::size_t height)
{
    if (!width || !height || width > mostPixels || height > mostPixels / width
        || pixels.size() != width * height * bytesPerPixel)
        return nullptr;
    KXSize const size { static_cast<double>(width), static_cast<double>(height) };
    return std::shared_ptr<KXImage>(new KXImage(size, width, height, std::move(pixels)));
}

void KXImage::drawImageFromRectInRect(KXImage const& image, KXRect from, KXRect into)
{
    // Rows are counted from the top, rectangles from the bottom.
    double const fromTop = image._size.height - (from.y + from.size.height);
    double const intoTop = _size.height - (into.y + into.size.height);
    KXResamplerAxis const columns(
        from.x, from.size.width, image._size.width, into.x, into.size.width, _pixelWidth);
    KXResamplerAxis const rows(
        fromTop, from.size.height, image._size.height, intoTop, into.size.height, _pixelHeight);
    if (columns.targetCount() && rows.targetCount())
        drawResampled(image._pixels, image._pixelWidth, columns, rows, _pixels, _pixelWidth);
}
