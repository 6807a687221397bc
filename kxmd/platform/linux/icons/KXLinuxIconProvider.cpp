#include "kxmd/platform/linux/icons/KXLinuxIconProviderPrivate.h"

#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gio/gio.h>
#include <string_view>
#include <utility>
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

KXImage::Ref drawnIcon(std::string const& fileType, KXSize size)
{
    auto const icon = KXImage::imageWithSize(size);
    if (!icon)
        return nullptr;
    if (fileType == KXIconProvider::folderType) {
        fillFramed(*icon, folderYellow, { 0.1, 0.7, { 0.4, 0.15 } });
        fillFramed(*icon, folderYellow, { 0.05, 0.15, { 0.9, 0.6 } });
    } else {
        fillFramed(*icon, paper, { 0.2, 0.05, { 0.6, 0.9 } });
    }
    return icon;
}

/// The desktop's name for files of a type.
GAllocated<gchar> contentTypeForFileType(std::string const& fileType)
{
    if (fileType == KXIconProvider::folderType)
        return GAllocated<gchar>(g_content_type_from_mime_type("inode/directory"));
    bool const isExtension
        = fileType != KXIconProvider::documentType && fileType.find('/') == std::string::npos;
    std::string const name = "x." + fileType;
    GAllocated<gchar> type(
        isExtension ? g_content_type_guess(name.c_str(), nullptr, 0, nullptr) : nullptr);
    return type && !g_content_type_is_unknown(type.get()) ? std::move(type) : nullptr;
}

}

KXLinuxIconProvider::KXLinuxIconProvider(
    KXIconThemes::Places places, std::shared_ptr<KXRenderPictureLoader const> pictureLoader)
    : _themes(std::move(places))
    , _pictureLoader(std::move(pictureLoader))
{
}

std::vector<std::string> KXLinuxIconProvider::iconNamesForFileType(std::string const& fileType)
{
    std::vector<std::string> names;
    if (auto const type = contentTypeForFileType(fileType)) {
        GObjectRef<GIcon> const icon(g_content_type_get_icon(type.get()));
        char const* const* name = G_IS_THEMED_ICON(icon.get())
            ? g_themed_icon_get_names(G_THEMED_ICON(icon.get()))
            : nullptr;
        for (; name && *name; ++name) {
            // Those are glyphs of one colour, to be tinted by the toolkit.
            if (!std::string_view(*name).ends_with("-symbolic"))
                names.emplace_back(*name);
        }
    }
    if (fileType == folderType)
        names.emplace_back("folder");
    else
        names.insert(names.end(), { "text-x-generic", "unknown" });
    return names;
}

KXImage::Ref KXLinuxIconProvider::iconOfTheme(std::string const& fileType, KXSize size) const
{
    constexpr double largest = 1024; // Beyond this, stretching by the controller looks the same.
    int const pixels
        = static_cast<int>(std::ceil(std::min(std::max(size.width, size.height), largest)));
    std::string const path = _themes.pathOfIcon(iconNamesForFileType(fileType), pixels);
    if (path.empty())
        return nullptr;
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return nullptr;
    if (path.ends_with(".svg")) {
        auto const side = static_cast<double>(pixels);
        return _pictureLoader->drawingInData(*data, data->length(), { side, side });
    }
    return _pictureLoader->imageInData(*data, data->length(), size);
}

KXImage::Ref KXLinuxIconProvider::iconForFileType(std::string const& fileType, KXSize size) const
{
    if (!(size.width > 0) || !(size.height > 0))
        return nullptr;
    if (auto icon = iconOfTheme(fileType, size))
        return icon;
    return drawnIcon(fileType, size);
}
