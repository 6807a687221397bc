#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXObject.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXRect.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// A picture: pixels and a size in points. Never changed once it is shared, so safe on any thread.
///
/// A pixel is four bytes, red, green, blue and alpha, the colours premultiplied by alpha, in sRGB.
/// Rows run from the top. A size in points need not be whole: the raster then has as many pixels as
/// it takes to hold it, the last column and row covered in part.
class KX_EXPORT KXImage : public KXObject {
public:
    /// A shared picture, which nobody changes any more; null where there is none.
    using Ref = std::shared_ptr<KXImage const>;

    /// Red, green, blue and alpha.
    static constexpr std::size_t bytesPerPixel = 4;

    /// `imageWithSize:` A new, fully transparent picture, still private to the caller.
    ///
    /// Null when the size is empty or not a number, or has more than `mostPixels`
    /// or a side over `longestSide`.
    [[nodiscard]] static std::shared_ptr<KXImage> imageWithSize(KXSize size);

    /// `imageWithPixels:width:height:` A picture of these pixels, one per point.
    ///
    /// Null when there are not exactly `width` times `height` of them, or more than `mostPixels`
    /// or `longestSide`.
    [[nodiscard]] static std::shared_ptr<KXImage> imageWithPixels(
        std::vector<std::uint8_t> pixels, std::size_t width, std::size_t height);

    /// `imageWithSharedPixels:count:width:height:` A picture over `count` bytes of pixels that
    /// somebody else made, which are not copied: they live as long as the picture, and nobody may
    /// change them.
    ///
    /// Null in the same cases.
    [[nodiscard]] static Ref imageWithSharedPixels(std::shared_ptr<std::uint8_t const> pixels,
        std::size_t count, std::size_t width, std::size_t height);

    /// The largest picture that is made, in pixels: 1 GiB of memory.
    static constexpr std::uint64_t mostPixels = 1ull << 28;
    /// The longest side of a picture that is made, in pixels: twice what JPEG has.
    static constexpr std::size_t longestSide = 1 << 17;

    /// `size` Width and height in points.
    [[nodiscard]] KXSize size() const { return _size; }
    /// `pixelWidth` Pixels in a row.
    [[nodiscard]] std::size_t pixelWidth() const { return _pixelWidth; }
    /// `pixelHeight` Rows.
    [[nodiscard]] std::size_t pixelHeight() const { return _pixelHeight; }
    /// `pixels` All pixels, row by row from the top. Valid as long as the picture.
    [[nodiscard]] std::span<std::uint8_t const> pixels() const
    {
        return { _pixels.get(), _pixelWidth * _pixelHeight * bytesPerPixel };
    }

    /// `drawImage:fromRect:inRect:` Draws the part `from` of `image` over the rectangle `into` of
    /// this picture, stretched to fill it: source over, at full opacity, upright.
    ///
    /// Both rectangles may have fractions; what they cover of an edge pixel counts in proportion.
    /// What lies outside of either picture is left out; an empty rectangle draws nothing.
    void drawImageFromRectInRect(KXImage const& image, KXRect from, KXRect into);

private:
    KXImage(KXSize size, std::size_t pixelWidth, std::size_t pixelHeight,
        std::shared_ptr<std::uint8_t const> pixels);

    KXSize const _size;
    std::size_t const _pixelWidth;
    std::size_t const _pixelHeight;
    std::shared_ptr<std::uint8_t const> const _pixels;
};
