#include "kxmd/platform/linux/pictures/KXPixbufPictureLoaderPrivate.h"

#include "kxmd/platform/linux/pictures/KXColourProfilePrivate.h"
#include "kxmd/platform/linux/pictures/KXPixbufImagePrivate.h"
#include "kxmd/platform/linux/render/KXPictureFeedPrivate.h"

#include <algorithm>
#include <cmath>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <optional>
#include <span>
#include <string>

namespace {

// The largest picture that is decoded, in pixels as stored and as decoded: a few bytes may claim
// billions of them.
constexpr std::uint64_t mostStoredPixels = 1ull << 28;
constexpr std::uint64_t mostDecodedPixels = 1ull << 27;

std::uint64_t pixelsOf(int width, int height)
{
    return static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
}

struct Decoding {
    KXSize wantedSize;
    bool isToFill { false }; ///< Whether a drawing is to be as large as fits in that size.
    bool isRefused { false };
    bool hasPixels { false }; ///< Whether some have been decoded.
};

std::string nameOfFormat(GdkPixbufLoader* loader)
{
    GAllocated<gchar> const name(gdk_pixbuf_format_get_name(gdk_pixbuf_loader_get_format(loader)));
    return name.get();
}

/// By how much a picture can be shrunk while it is decoded, and stays large enough upright as well
/// as lying. The decoder of JPEG shrinks by these factors only (ITU-T T.81 blocks of 8).
int shrinkingFactor(int width, int height, KXSize wantedSize)
{
    double const wanted = std::max(wantedSize.width, wantedSize.height);
    for (int const factor : { 8, 4, 2 }) {
        int const shorterSide = std::min(width, height) / factor;
        if (wanted > 0 && shorterSide >= wanted)
            return factor;
    }
    return 1;
}

/// By how much a drawing is scaled: it is drawn in the size that is wanted, never larger than it
/// says it is unless it is to fill that size.
double drawingScale(int width, int height, Decoding const& decoding)
{
    double const across = decoding.wantedSize.width / width;
    double const down = decoding.wantedSize.height / height;
    if (decoding.isToFill)
        return std::min(across, down);
    double const scale = std::max(across, down);
    return scale > 0 ? std::min(scale, 1.0) : 1;
}

void chooseSize(GdkPixbufLoader* loader, int width, int height, gpointer decodingPointer)
{
    auto& decoding = *static_cast<Decoding*>(decodingPointer);
    std::string const format = nameOfFormat(loader);
    int decodedWidth = width, decodedHeight = height;
    if (format == "jpeg" || format == "webp") { // They shrink while they decode.
        int const factor = shrinkingFactor(width, height, decoding.wantedSize);
        decodedWidth = (width + factor - 1) / factor;
        decodedHeight = (height + factor - 1) / factor;
    } else if (format == "svg") {
        double const scale = drawingScale(width, height, decoding);
        auto const scaled = [&](int length) {
            double const exact = length * scale;
            double const whole = decoding.isToFill ? std::round(exact) : std::ceil(exact);
            return static_cast<int>(std::max(whole, 1.0));
        };
        decodedWidth = scaled(width);
        decodedHeight = scaled(height);
    }
    bool const isStored = format != "svg";
    if ((isStored && pixelsOf(width, height) > mostStoredPixels)
        || pixelsOf(decodedWidth, decodedHeight) > mostDecodedPixels) {
        decoding.isRefused = true;
        gdk_pixbuf_loader_set_size(loader, 0, 0); // By the library's own convention.
    } else if (decodedWidth != width || decodedHeight != height) {
        gdk_pixbuf_loader_set_size(loader, decodedWidth, decodedHeight);
    }
}

/// Whether the decoder of a format hands out pixels while it goes on, so that the upper part of a
/// file that is cut off can be shown.
bool isDecodedFromTheTop(GdkPixbufLoader* loader)
{
    std::string const format = nameOfFormat(loader);
    return format == "jpeg" || format == "png";
}

void clearPixels(GdkPixbufLoader* loader, gpointer)
{
    // The pixels that a damaged file leaves out would show whatever was in memory before.
    constexpr guint32 transparentWhite = 0xFFFFFF00;
    if (isDecodedFromTheTop(loader))
        gdk_pixbuf_fill(gdk_pixbuf_loader_get_pixbuf(loader), transparentWhite);
}

void notePixels(GdkPixbufLoader*, int, int, int, int, gpointer decoding)
{
    static_cast<Decoding*>(decoding)->hasPixels = true;
}

/// By how much the pixels are shrunk when they are taken over. Twice the wanted size is kept, since
/// the resampler makes the better pictures; but large pictures need not be in memory twice.
std::size_t shrinkingFactor(GdkPixbuf& pixbuf, KXSize wantedSize)
{
    constexpr std::uint64_t fewPixels = 1 << 22;
    int const width = gdk_pixbuf_get_width(&pixbuf), height = gdk_pixbuf_get_height(&pixbuf);
    double const wanted = std::max(wantedSize.width, wantedSize.height);
    if (!(wanted > 0) || pixelsOf(width, height) <= fewPixels)
        return 1;
    return static_cast<std::size_t>(std::max(1.0, std::min(width, height) / (2 * wanted)));
}

/// `profile` in base 64, as gdk-pixbuf hands it out.
void convertFromProfile(GdkPixbuf& pixbuf, char const* profile)
{
    gsize length;
    GAllocated<guchar> const bytes(g_base64_decode(profile, &length));
    convertToSRGB(pixbuf, std::span(bytes.get(), length));
}

/// The picture in the next `length` bytes of `data`, upright; null when it is none.
KXImage::Ref decodedImage(KXAbstractData& data, std::uint64_t length, Decoding decoding)
{
    GObjectRef<GdkPixbufLoader> const loader(gdk_pixbuf_loader_new());
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(chooseSize), &decoding);
    g_signal_connect(loader.get(), "area-prepared", G_CALLBACK(clearPixels), nullptr);
    g_signal_connect(loader.get(), "area-updated", G_CALLBACK(notePixels), &decoding);
    bool const isFed = feedPictureTo(
        [&](std::span<std::uint8_t const> bytes) {
            return gdk_pixbuf_loader_write(loader.get(), bytes.data(), bytes.size(), nullptr)
                && !decoding.isRefused;
        },
        data, length);
    bool const isPartial = decoding.hasPixels; // Closing makes up the rest of a picture.
    bool const isClosed = gdk_pixbuf_loader_close(loader.get(), nullptr);
    GdkPixbuf* const decoded = gdk_pixbuf_loader_get_pixbuf(loader.get()); // The loader's.
    if (decoding.isRefused || !decoded)
        return nullptr;
    bool const isWhole = isFed && isClosed;
    if (!isWhole && !(isPartial && isDecodedFromTheTop(loader.get())))
        return nullptr;
    if (char const* const profile = gdk_pixbuf_get_option(decoded, "icc-profile"))
        convertFromProfile(*decoded, profile);
    GObjectRef<GdkPixbuf> const upright(gdk_pixbuf_apply_embedded_orientation(decoded));
    return upright ? imageOfPixbuf(*upright, shrinkingFactor(*upright, decoding.wantedSize))
                   : nullptr;
}

}

KXImage::Ref KXPixbufPictureLoader::imageInData(
    KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const
{
    return decodedImage(data, length, { .wantedSize = wantedSize });
}

KXImage::Ref KXPixbufPictureLoader::drawingInData(
    KXAbstractData& data, std::uint64_t length, KXSize size) const
{
    return decodedImage(data, length, { .wantedSize = size, .isToFill = true });
}

KXData KXPixbufPictureLoader::jpgRepresentation(KXImage const& image) const
{
    return encodedPixbuf(pixbufOverWhite(image).get(), "jpeg", "quality", "90");
}

KXData KXPixbufPictureLoader::pngRepresentation(KXImage const& image) const
{
    // Beyond this level files shrink by a few percent and encoding takes several times as long.
    return encodedPixbuf(pixbufOfImage(image).get(), "png", "compression", "2");
}

std::vector<std::string> KXPixbufPictureLoader::formats()
{
    std::vector<std::string> names;
    GSList* const formats = gdk_pixbuf_get_formats();
    for (GSList const* item = formats; item; item = item->next) {
        auto* const format = static_cast<GdkPixbufFormat*>(item->data);
        GAllocated<gchar> const name(gdk_pixbuf_format_get_name(format));
        if (!gdk_pixbuf_format_is_disabled(format))
            names.emplace_back(name.get());
    }
    g_slist_free(formats);
    return names;
}
