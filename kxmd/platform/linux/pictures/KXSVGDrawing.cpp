#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <algorithm>
#include <cmath>
#include <librsvg/rsvg.h>
#include <memory>
#include <vector>

namespace {

struct Destroy {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using SurfaceRef = std::unique_ptr<cairo_surface_t, Destroy>;
using ContextRef = std::unique_ptr<cairo_t, Destroy>;

struct OwnSize {
    KXSize size {};
    bool isOfWhatIsDrawn { false }; ///< Wherever that lies.
};

/// The size that the drawing says it has, in pixels; that of its view box, or of what is drawn,
/// when it does not.
OwnSize ownSizeOf(RsvgHandle* drawing)
{
    KXSize size {};
    if (rsvg_handle_get_intrinsic_size_in_pixels(drawing, &size.width, &size.height))
        return { size };
    gboolean hasBox = FALSE;
    RsvgRectangle box {};
    rsvg_handle_get_intrinsic_dimensions(
        drawing, nullptr, nullptr, nullptr, nullptr, &hasBox, &box);
    if (!hasBox && !rsvg_handle_get_geometry_for_element(drawing, nullptr, &box, nullptr, nullptr))
        return {};
    return { { box.width, box.height }, !hasBox };
}

KXSize shownSize(KXSize own, KXSize wanted, KXDrawingSize drawingSize)
{
    double const across = wanted.width / own.width, down = wanted.height / own.height;
    bool const fits = drawingSize == KXDrawingSize::fitting;
    double scale = fits ? std::min(across, down) : std::max(across, down);
    if (!fits)
        scale = scale > 0 ? std::min(scale, 1.0) : 1;
    auto const shown = [fits, scale](double length) {
        double const exact = length * scale;
        return std::max(fits ? std::round(exact) : std::ceil(exact), 1.0);
    };
    return { shown(own.width), shown(own.height) };
}

SurfaceRef drawnSurface(RsvgHandle* drawing, KXSize size, bool isOfWhatIsDrawn)
{
    SurfaceRef surface(cairo_image_surface_create(
        CAIRO_FORMAT_ARGB32, static_cast<int>(size.width), static_cast<int>(size.height)));
    ContextRef const context(cairo_create(surface.get()));
    RsvgRectangle const all { 0, 0, size.width, size.height };
    bool const isRendered = isOfWhatIsDrawn
        ? rsvg_handle_render_element(drawing, context.get(), nullptr, &all, nullptr)
        : rsvg_handle_render_document(drawing, context.get(), &all, nullptr);
    bool const isDrawn = isRendered && cairo_status(context.get()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_flush(surface.get());
    return isDrawn ? std::move(surface) : nullptr;
}

/// The pixels of a surface, which are words with alpha in the highest bits.
KXImage::Ref imageOfSurface(cairo_surface_t* surface, KXSize size)
{
    KXPictureRows rows(
        {
            .width = static_cast<std::size_t>(size.width),
            .height = static_cast<std::size_t>(size.height),
            .hasAlpha = true,
            .isPremultiplied = true,
        },
        {});
    auto const rowLength = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    std::uint8_t const* const pixels = cairo_image_surface_get_data(surface);
    for (std::size_t y = 0; y < static_cast<std::size_t>(size.height); ++y) {
        auto const* word = reinterpret_cast<std::uint32_t const*>(pixels + y * rowLength);
        std::uint8_t* to = rows.nextRow();
        for (std::size_t x = 0; x < static_cast<std::size_t>(size.width); ++x, ++word) {
            for (int const shift : { 16, 8, 0, 24 }) // Red, green, blue, alpha.
                *to++ = static_cast<std::uint8_t>(*word >> shift);
        }
        rows.takeRow();
    }
    return rows.image();
}

}

KXImage::Ref imageOfDrawing(KXPictureSource const& source, KXDrawingSize drawingSize)
{
    auto const bytes = source.bytes();
    if (bytes.empty())
        return nullptr;
    // Without a place of its own the drawing refers to no other file.
    GObjectRef<RsvgHandle> const drawing(
        rsvg_handle_new_from_data(bytes.data(), bytes.size(), nullptr));
    OwnSize const own = drawing ? ownSizeOf(drawing.get()) : OwnSize {};
    if (!(own.size.width > 0) || !(own.size.height > 0))
        return nullptr;
    KXSize const size = shownSize(own.size, source.wantedSize, drawingSize);
    constexpr double longestSide = 32'767; // Of cairo's.
    if (!(size.width <= longestSide) || !(size.height <= longestSide)
        || isPictureTooLarge(
            static_cast<std::uint64_t>(size.width), static_cast<std::uint64_t>(size.height)))
        return nullptr;
    auto const surface = drawnSurface(drawing.get(), size, own.isOfWhatIsDrawn);
    return surface ? imageOfSurface(surface.get(), size) : nullptr;
}
