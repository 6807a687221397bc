#include "kxmd/platform/linux/KXPixbufPictureLoaderPrivate.h"

#include "kxmd/platform/linux/KXPixbufImagePrivate.h"

#include <algorithm>
#include <cmath>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <string_view>
#include <vector>

namespace {

// The largest picture that is decoded, in pixels as stored and as decoded: a few bytes may claim
// billions of them.
constexpr std::uint64_t mostStoredPixels = 1ull << 28;
constexpr std::uint64_t mostDecodedPixels = 1ull << 27;

std::uint64_t pixelsOf(int width, int height)
{
    return static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
}

void decodeNoPixels(GdkPixbufLoader* loader)
{
    gdk_pixbuf_loader_set_size(loader, 0, 0); // By the library's own convention.
}

void keepSize(GdkPixbufLoader* loader, int width, int height, gpointer size)
{
    *static_cast<KXSize*>(size) = { static_cast<double>(width), static_cast<double>(height) };
    decodeNoPixels(loader);
}

struct Decoding {
    KXSize wantedSize;
    bool isRefused { false };
};

/// By how much a picture can be shrunk while it is decoded, and stays large enough upright as well
/// as lying. Only JPEG's decoder shrinks by itself, and only by these factors (ITU-T T.81 blocks of
/// 8).
int shrinkingFactor(GdkPixbufLoader* loader, int width, int height, KXSize wantedSize)
{
    GAllocated<gchar> const format(
        gdk_pixbuf_format_get_name(gdk_pixbuf_loader_get_format(loader)));
    double const wanted = std::max(wantedSize.width, wantedSize.height);
    if (!(wanted > 0) || std::string_view(format.get()) != "jpeg")
        return 1;
    for (int const factor : { 8, 4, 2 }) {
        if (std::min(width, height) / factor >= wanted)
            return factor;
    }
    return 1;
}

void chooseSize(GdkPixbufLoader* loader, int width, int height, gpointer decodingPointer)
{
    auto& decoding = *static_cast<Decoding*>(decodingPointer);
    int const factor = shrinkingFactor(loader, width, height, decoding.wantedSize);
    int const decodedWidth = (width + factor - 1) / factor;
    int const decodedHeight = (height + factor - 1) / factor;
    if (pixelsOf(width, height) > mostStoredPixels
        || pixelsOf(decodedWidth, decodedHeight) > mostDecodedPixels) {
        decoding.isRefused = true;
        decodeNoPixels(loader);
    } else if (factor > 1) {
        gdk_pixbuf_loader_set_size(loader, decodedWidth, decodedHeight);
    }
}

/// Gives the next `length` bytes to the loader, piece by piece, while `goesOn`.
template <class GoesOn>
bool feed(GdkPixbufLoader* loader, KXAbstractData& data, std::uint64_t length,
    std::size_t pieceLength, GoesOn goesOn)
{
    std::vector<std::uint8_t> piece(pieceLength);
    while (length && goesOn()) {
        std::uint64_t const count
            = data.readBytesToMaxLength(piece.data(), std::min<std::uint64_t>(pieceLength, length));
        if (!count || !gdk_pixbuf_loader_write(loader, piece.data(), count, nullptr))
            return false;
        length -= count;
    }
    return true;
}

}

std::optional<KXSize> KXPixbufPictureLoader::sizeOfPictureInData(
    KXAbstractData& data, std::uint64_t length) const
{
    constexpr std::size_t pieceLength = 4 * 1024;
    GObjectRef<GdkPixbufLoader> const loader(gdk_pixbuf_loader_new());
    KXSize size;
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(keepSize), &size);
    // Whether feeding and closing succeed does not matter: no pixels were wanted.
    feed(loader.get(), data, length, pieceLength, [&size] { return size == KXSize(); });
    gdk_pixbuf_loader_close(loader.get(), nullptr);
    return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
}

KXImage::Ref KXPixbufPictureLoader::imageInData(
    KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const
{
    constexpr std::size_t pieceLength = 64 * 1024;
    GObjectRef<GdkPixbufLoader> const loader(gdk_pixbuf_loader_new());
    Decoding decoding { wantedSize };
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(chooseSize), &decoding);
    bool const isFed = feed(
        loader.get(), data, length, pieceLength, [&decoding] { return !decoding.isRefused; });
    bool const isClosed = gdk_pixbuf_loader_close(loader.get(), nullptr);
    GdkPixbuf* const decoded = gdk_pixbuf_loader_get_pixbuf(loader.get()); // The loader's.
    if (!isFed || !isClosed || decoding.isRefused || !decoded)
        return nullptr;
    GObjectRef<GdkPixbuf> const upright(gdk_pixbuf_apply_embedded_orientation(decoded));
    return upright ? imageOfPixbuf(*upright) : nullptr;
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
