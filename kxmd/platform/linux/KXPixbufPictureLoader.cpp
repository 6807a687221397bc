#include "kxmd/platform/linux/KXPixbufPictureLoaderPrivate.h"

#include <algorithm>
#include <array>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <memory>

namespace {

struct Unreference {
    void operator()(gpointer object) const { g_object_unref(object); }
};

void keepSize(GdkPixbufLoader* loader, int width, int height, gpointer size)
{
    *static_cast<KXSize*>(size) = { static_cast<double>(width), static_cast<double>(height) };
    gdk_pixbuf_loader_set_size(loader, 0, 0); // Tells the loader not to decode the pixels.
}

}

std::optional<KXSize> KXPixbufPictureLoader::sizeOfPictureInData(
    KXAbstractData& data, std::uint64_t length) const
{
    std::unique_ptr<GdkPixbufLoader, Unreference> const loader(gdk_pixbuf_loader_new());
    KXSize size;
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(keepSize), &size);

    std::array<std::uint8_t, 4096> piece;
    bool accepted = true;
    while (accepted && size == KXSize() && length) {
        std::uint64_t const count = data.readBytesToMaxLength(
            piece.data(), std::min<std::uint64_t>(piece.size(), length));
        if (!count)
            break;
        length -= count;
        accepted = gdk_pixbuf_loader_write(loader.get(), piece.data(), count, nullptr);
    }
    // Whether closing succeeds does not matter: no pixels were wanted.
    gdk_pixbuf_loader_close(loader.get(), nullptr);
    return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
}
