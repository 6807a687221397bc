#include "kxmd/platform/linux/KXPixbufImagePrivate.h"

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

}

KXImage::Ref imageOfPixbuf(GdkPixbuf& pixbuf)
{
    if (gdk_pixbuf_get_bits_per_sample(&pixbuf) != 8
        || gdk_pixbuf_get_colorspace(&pixbuf) != GDK_COLORSPACE_RGB)
        return nullptr;
    auto const width = static_cast<std::size_t>(gdk_pixbuf_get_width(&pixbuf));
    auto const height = static_cast<std::size_t>(gdk_pixbuf_get_height(&pixbuf));
    auto const rowLength = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(&pixbuf));
    bool const hasAlpha = gdk_pixbuf_get_has_alpha(&pixbuf);
    std::uint8_t const* const pixels = gdk_pixbuf_read_pixels(&pixbuf);

    std::vector<std::uint8_t> premultiplied(width * height * KXImage::bytesPerPixel);
    std::uint8_t* to = premultiplied.data();
    for (std::size_t y = 0; y < height; ++y) {
        std::uint8_t const* from = pixels + y * rowLength;
        for (std::size_t x = 0; x < width; ++x) {
            std::uint32_t const alpha = hasAlpha ? from[3] : opaque;
            for (std::size_t channel = 0; channel < 3; ++channel)
                to[channel] = multiplied(from[channel], alpha);
            to[3] = static_cast<std::uint8_t>(alpha);
            from += hasAlpha ? 4 : 3;
            to += KXImage::bytesPerPixel;
        }
    }
    return KXImage::imageWithPixels(std::move(premultiplied), width, height);
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
