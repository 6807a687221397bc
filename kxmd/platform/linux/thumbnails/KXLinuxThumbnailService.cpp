#include "kxmd/platform/linux/thumbnails/KXLinuxThumbnailServicePrivate.h"

#include "kxmd/base/KXPath.h"
#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXMovieThumbnailPrivate.h"

#include <algorithm>
#include <cmath>
#include <gio/gio.h>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// A file that is to be shown, with what every way of showing it needs.
struct KXLinuxThumbnailService::File {
    std::string path;
    KXAbstractData& data;
    std::vector<std::uint8_t> head;
    KXFileContent content;
};

namespace {

std::vector<std::uint8_t> headOf(KXAbstractData& data)
{
    std::vector<std::uint8_t> head(longestContentHead);
    head.resize(static_cast<std::size_t>(data.readBytesToMaxLength(head.data(), head.size())));
    data.setOffset(0);
    return head;
}

/// The desktop's name for what the file is, by its content and, where that does not tell, by its
/// name.
std::string contentTypeOf(std::string const& path, std::span<std::uint8_t const> head)
{
    std::string const name(KXLastPathComponent(path));
    GAllocated<gchar> const type(
        g_content_type_guess(name.c_str(), head.data(), head.size(), nullptr));
    GAllocated<gchar> const mimeType(type ? g_content_type_get_mime_type(type.get()) : nullptr);
    return mimeType ? mimeType.get() : "";
}

bool isOfMovies(std::string_view contentType)
{
    return contentType.starts_with("audio/") || contentType.starts_with("video/");
}

}

KXLinuxThumbnailService::KXLinuxThumbnailService(Parts parts)
    : _parts(std::move(parts))
{
}

KXImage::Ref KXLinuxThumbnailService::imageForPath(
    std::string const& path, KXSize maximumSize) const
{
    if (!(maximumSize.width >= 1) || !(maximumSize.height >= 1))
        return nullptr;
    // Absolute, so that no program takes it for one of its options.
    GAllocated<gchar> const absolute(g_canonicalize_filename(path.c_str(), nullptr));
    auto const data = path.empty() ? nullptr : KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return nullptr;
    auto head = headOf(*data);
    KXFileContent const content = contentOfFileWithHead(head);
    File const file { absolute.get(), *data, std::move(head), content };
    auto const ours = imageByOurselves(file, maximumSize);
    auto const image = ours ? *ours : imageByTheDesktop(file, maximumSize);
    return image ? shrinkImageToSize(image, maximumSize) : nullptr;
}

/// Absent when the file is of no kind that we show ourselves.
std::optional<KXImage::Ref> KXLinuxThumbnailService::imageByOurselves(
    File const& file, KXSize maximumSize) const
{
    switch (file.content) {
    case KXFileContent::picture:
        return _parts.pictureLoader->imageInData(file.data, file.data.length(), maximumSize);
    case KXFileContent::rarePicture:
        return imageOfRarePicture(file, maximumSize);
    case KXFileContent::drawing: // Whoever else tried would take as long.
        return imageOfDrawing(file, maximumSize);
    case KXFileContent::movie:
        return imageOfMovie(file, maximumSize);
    case KXFileContent::pdf:
        if (auto page = _parts.documentThumbnailer->imageOfPDF(file.path, maximumSize))
            return page;
        return std::nullopt;
    case KXFileContent::other:
        break;
    }
    return std::nullopt;
}

/// Absent when its format is not known here.
std::optional<KXImage::Ref> KXLinuxThumbnailService::imageOfRarePicture(
    File const& file, KXSize maximumSize) const
{
    return _parts.rarePictures->knownImageInData(file.data, file.data.length(), maximumSize);
}

KXImage::Ref KXLinuxThumbnailService::imageOfDrawing(File const& file, KXSize maximumSize) const
{
    constexpr double largest = 4096; // Pixels; beyond this, stretching it looks the same.
    KXSize const size { std::floor(std::min(maximumSize.width, largest)),
        std::floor(std::min(maximumSize.height, largest)) };
    return _parts.rarePictures->drawingInData(file.data, file.data.length(), size);
}

/// Null when it is no movie that can be opened, or has neither a frame nor a cover. No program of
/// the desktop is asked then: a list of other files that passes for a movie would make it read
/// these.
KXImage::Ref KXLinuxThumbnailService::imageOfMovie(File const& file, KXSize maximumSize) const
{
    auto const movie = _parts.movieLoader->movieWithData(file.data);
    return movie ? thumbnailOfMovie(*movie, *_parts.pictureLoader, maximumSize) : nullptr;
}

KXImage::Ref KXLinuxThumbnailService::imageByTheDesktop(File const& file, KXSize maximumSize) const
{
    std::string const type = contentTypeOf(file.path, file.head);
    if (isOfMovies(type)) // Of a kind that its first bytes do not tell.
        return imageOfMovie(file, maximumSize);
    return _parts.documentThumbnailer->imageOfDocument(file.path, type, maximumSize);
}
