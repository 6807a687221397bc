#include "kxmd/platform/linux/pictures/KXPixbufImagePrivate.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace {

constexpr std::uint32_t opaque = 255;

std::uint8_t multiplied(std::uint32_t colour, std::uint32_t alpha)
{
    return static_cast<std::uint8_t>((colour * alpha + opaque / 2) / opaque);
}

std::uint8_t divided(std::uint32_t colour, std::uint32_t alpha)
{
    return static_cast<std::uint8_t>(alpha ? (colour * opaque + alpha / 2) / alpha : 0);
}

/// A pixbuf of the picture's pixels, each converted by `convert(from, to)`.
template <class Convert>
GObjectRef<GdkPixbuf> convertedPixbuf(KXImage const& image, bool hasAlpha, Convert convert)
{
    GObjectRef<GdkPixbuf> pixbuf(gdk_pixbuf_new(GDK_COLORSPACE_RGB, hasAlpha, 8,
        static_cast<int>(image.pixelWidth()), static_cast<int>(image.pixelHeight())));
    if (!pixbuf)
        return nullptr;
    auto const rowLength = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf.get()));
    auto const pixelLength = static_cast<std::size_t>(gdk_pixbuf_get_n_channels(pixbuf.get()));
    std::uint8_t* const pixels = gdk_pixbuf_get_pixels(pixbuf.get());
    std::uint8_t const* from = image.pixels().data();
    for (std::size_t y = 0; y < image.pixelHeight(); ++y) {
        std::uint8_t* to = pixels + y * rowLength;
        for (std::size_t x = 0; x < image.pixelWidth(); ++x) {
            convert(from, to);
            from += KXImage::bytesPerPixel;
            to += pixelLength;
        }
    }
    return pixbuf;
}

/// Where the pixels of a pixbuf lie.
struct Raster {
    explicit Raster(GdkPixbuf& pixbuf)
        : width(static_cast<std::size_t>(gdk_pixbuf_get_width(&pixbuf)))
        , height(static_cast<std::size_t>(gdk_pixbuf_get_height(&pixbuf)))
        , rowLength(static_cast<std::size_t>(gdk_pixbuf_get_rowstride(&pixbuf)))
        , hasAlpha(gdk_pixbuf_get_has_alpha(&pixbuf))
        , pixels(gdk_pixbuf_read_pixels(&pixbuf))
    {
    }

    std::size_t pixelLength() const { return hasAlpha ? 4 : 3; }
    std::uint32_t alphaAt(std::uint8_t const* pixel) const { return hasAlpha ? pixel[3] : opaque; }

    std::size_t const width, height;
    std::size_t const rowLength;
    bool const hasAlpha;
    std::uint8_t const* const pixels;
};

KXImage::Ref wholeImageOfPixbuf(GdkPixbuf& pixbuf)
{
    Raster const raster(pixbuf);
    std::vector<std::uint8_t> premultiplied(raster.width * raster.height * KXImage::bytesPerPixel);
    std::uint8_t* to = premultiplied.data();
    for (std::size_t y = 0; y < raster.height; ++y) {
        std::uint8_t const* from = raster.pixels + y * raster.rowLength;
        for (std::size_t x = 0; x < raster.width; ++x) {
            std::uint32_t const alpha = raster.alphaAt(from);
            for (std::size_t channel = 0; channel < 3; ++channel)
                to[channel] = multiplied(from[channel], alpha);
            to[3] = static_cast<std::uint8_t>(alpha);
            from += raster.pixelLength();
            to += KXImage::bytesPerPixel;
        }
    }
    return KXImage::imageWithPixels(std::move(premultiplied), raster.width, raster.height);
}

/// Adds the pixels of a row to the sums of the blocks that they lie in.
void addRow(Raster const& raster, std::size_t y, std::size_t factor,
    std::vector<std::array<std::uint64_t, KXImage::bytesPerPixel>>& sums)
{
    std::uint8_t const* from = raster.pixels + y * raster.rowLength;
    for (std::size_t x = 0; x < raster.width;) {
        auto& sum = sums[x / factor];
        for (std::size_t const end = std::min(x + factor, raster.width); x < end; ++x) {
            std::uint32_t const alpha = raster.alphaAt(from);
            for (std::size_t channel = 0; channel < 3; ++channel)
                sum[channel] += from[channel] * alpha;
            sum[3] += alpha * opaque;
            from += raster.pixelLength();
        }
    }
}

KXImage::Ref shrunkImageOfPixbuf(GdkPixbuf& pixbuf, std::size_t factor)
{
    Raster const raster(pixbuf);
    std::size_t const width = (raster.width + factor - 1) / factor;
    std::size_t const height = (raster.height + factor - 1) / factor;
    std::vector<std::uint8_t> means;
    means.reserve(width * height * KXImage::bytesPerPixel);
    std::vector<std::array<std::uint64_t, KXImage::bytesPerPixel>> sums;
    for (std::size_t top = 0; top < raster.height; top += factor) {
        std::size_t const bottom = std::min(top + factor, raster.height);
        sums.assign(width, {});
        for (std::size_t y = top; y < bottom; ++y)
            addRow(raster, y, factor, sums);
        for (std::size_t column = 0; column < width; ++column) {
            std::size_t const columns = std::min(factor, raster.width - column * factor);
            std::uint64_t const divisor = columns * (bottom - top) * opaque;
            for (std::uint64_t const sum : sums[column])
                means.push_back(static_cast<std::uint8_t>((sum + divisor / 2) / divisor));
        }
    }
    return KXImage::imageWithPixels(std::move(means), width, height);
}

}

KXImage::Ref imageOfPixbuf(GdkPixbuf& pixbuf, std::size_t factor)
{
    // A pixbuf has eight bits each of red, green, blue and optionally alpha.
    return factor > 1 ? shrunkImageOfPixbuf(pixbuf, factor) : wholeImageOfPixbuf(pixbuf);
}

GObjectRef<GdkPixbuf> pixbufOfImage(KXImage const& image)
{
    return convertedPixbuf(image, true, [](std::uint8_t const* from, std::uint8_t* to) {
        for (std::size_t channel = 0; channel < 3; ++channel)
            to[channel] = divided(from[channel], from[3]);
        to[3] = from[3];
    });
}

GObjectRef<GdkPixbuf> pixbufOverWhite(KXImage const& image)
{
    return convertedPixbuf(image, false, [](std::uint8_t const* from, std::uint8_t* to) {
        for (std::size_t channel = 0; channel < 3; ++channel)
            to[channel] = static_cast<std::uint8_t>(from[channel] + opaque - from[3]);
    });
}

KXData encodedPixbuf(GdkPixbuf* pixbuf, char const* type, char const* option, char const* value)
{
    gchar* bytes = nullptr;
    gsize length = 0;
    if (!pixbuf
        || !gdk_pixbuf_save_to_buffer(
            pixbuf, &bytes, &length, type, nullptr, option, value, nullptr))
        return KXData();
    GAllocated<gchar> const owner(bytes);
    return KXData(std::vector<std::uint8_t>(bytes, bytes + length));
}
