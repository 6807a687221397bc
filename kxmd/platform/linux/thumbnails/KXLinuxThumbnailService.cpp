#include "kxmd/platform/linux/thumbnails/KXLinuxThumbnailServicePrivate.h"

#include "kxmd/base/KXPath.h"
#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXMovieThumbnailPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXSongPicturePrivate.h"

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
    KXAbstractData::Ref data;
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

/// Whether a pixel fits in.
bool hasRoom(KXSize size) { return size.width >= 1 && size.height >= 1; }

/// Whether a picture of that size has a pixel for each point, and is of a size that decoders may
/// make besides the picture that they decode.
bool isInWholePixels(KXSize size)
{
    constexpr double longestSide = 2048;
    auto const isWhole
        = [](double side) { return side >= 1 && side <= longestSide && side == std::floor(side); };
    return isWhole(size.width) && isWhole(size.height);
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
    if (!hasRoom(maximumSize))
        return nullptr;
    auto const file = openFile(path);
    return file ? imageOfFile(*file, maximumSize) : nullptr;
}

KXImage::Ref KXLinuxThumbnailService::squareForPath(std::string const& path, KXSize size) const
{
    KXSize const twice { size.width * 2, size.height * 2 };
    if (!hasRoom(twice))
        return nullptr;
    auto const file = openFile(path);
    if (!file)
        return nullptr;
    // Straight from the decoded pixels, which makes a better picture than shrinking twice.
    bool const isPicture
        = file->content == KXFileContent::picture || file->content == KXFileContent::rarePicture;
    if (isPicture && isInWholePixels(size)) {
        auto const square = imageOfPicture(*file, size, KXRenderRequest::Shape::square);
        return square ? *square : squareOfImage(imageByTheDesktop(*file, twice), size);
    }
    return squareOfImage(imageOfFile(*file, twice), size);
}

/// Null when there is no such file.
std::unique_ptr<KXLinuxThumbnailService::File const> KXLinuxThumbnailService::openFile(
    std::string const& path)
{
    // Absolute, so that no program takes it for one of its options.
    GAllocated<gchar> const absolute(g_canonicalize_filename(path.c_str(), nullptr));
    auto data = path.empty() ? nullptr : KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return nullptr;
    auto head = headOf(*data);
    KXFileContent const content = contentOfFileWithHead(head);
    return std::make_unique<File const>(
        File { absolute.get(), std::move(data), std::move(head), content });
}

KXImage::Ref KXLinuxThumbnailService::imageOfFile(File const& file, KXSize maximumSize) const
{
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
    case KXFileContent::rarePicture:
        return imageOfPicture(file, maximumSize, KXRenderRequest::Shape::fitting);
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

/// Absent when it is of a rare format that is not known here.
std::optional<KXImage::Ref> KXLinuxThumbnailService::imageOfPicture(
    File const& file, KXSize size, KXRenderRequest::Shape shape) const
{
    auto image = _parts.pictures->knownImageInData(*file.data, file.data->length(), size, shape);
    bool const isRare = file.content == KXFileContent::rarePicture;
    return image || isRare ? image : std::optional<KXImage::Ref>(nullptr);
}

KXImage::Ref KXLinuxThumbnailService::imageOfDrawing(File const& file, KXSize maximumSize) const
{
    constexpr double largest = 4096; // Pixels; beyond this, stretching it looks the same.
    KXSize const size { std::floor(std::min(maximumSize.width, largest)),
        std::floor(std::min(maximumSize.height, largest)) };
    return _parts.pictures->drawingInData(*file.data, file.data->length(), size);
}

/// Null when it is no movie that can be opened, or has neither a frame nor a cover. No program of
/// the desktop is asked then: a list of other files that passes for a movie would make it read
/// these.
KXImage::Ref KXLinuxThumbnailService::imageOfMovie(File const& file, KXSize maximumSize) const
{
    auto const movie = isSongWithoutPicture(*file.data)
        ? nullptr
        : _parts.movieLoader->movieWithData(*file.data);
    return movie ? thumbnailOfMovie(*movie, *_parts.pictureLoader, maximumSize) : nullptr;
}

KXImage::Ref KXLinuxThumbnailService::imageByTheDesktop(File const& file, KXSize maximumSize) const
{
    std::string const type = contentTypeOf(file.path, file.head);
    if (isOfMovies(type)) // Of a kind that its first bytes do not tell.
        return imageOfMovie(file, maximumSize);
    return _parts.documentThumbnailer->imageOfDocument(file.path, type, maximumSize);
}
