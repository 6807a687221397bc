#include "kxmd/platform/linux/KXLinuxIconProviderPrivate.h"

#include <array>
#include <vector>

namespace {

using Colour = std::array<std::uint8_t, KXImage::bytesPerPixel>;

constexpr Colour paper { 250, 250, 250, 255 };
constexpr Colour folderYellow { 240, 196, 92, 255 };
constexpr Colour edge { 150, 150, 150, 255 };

void fill(KXImage& image, Colour colour, KXRect rect)
{
    auto const pixel
        = KXImage::imageWithPixels(std::vector<std::uint8_t>(colour.begin(), colour.end()), 1, 1);
    image.drawImageFromRectInRect(*pixel, { 0, 0, { 1, 1 } }, rect);
}

/// A rectangle with an edge around it, its corners given in parts of the whole.
void fillFramed(KXImage& image, Colour colour, KXRect parts)
{
    KXSize const whole = image.size();
    double const thickness = whole.width / 32;
    KXRect const outer { parts.x * whole.width, parts.y * whole.height,
        { parts.size.width * whole.width, parts.size.height * whole.height } };
    fill(image, edge, outer);
    fill(image, colour,
        { outer.x + thickness, outer.y + thickness,
            { outer.size.width - 2 * thickness, outer.size.height - 2 * thickness } });
}

}

KXImage::Ref KXLinuxIconProvider::iconForFileType(std::string const& fileType, KXSize size) const
{
    auto const icon = KXImage::imageWithSize(size);
    if (!icon)
        return nullptr;
    if (fileType == folderType) {
        fillFramed(*icon, folderYellow, { 0.1, 0.7, { 0.4, 0.15 } });
        fillFramed(*icon, folderYellow, { 0.05, 0.15, { 0.9, 0.6 } });
    } else {
        fillFramed(*icon, paper, { 0.2, 0.05, { 0.6, 0.9 } });
    }
    return icon;
}
