#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/base/KXSerialQueue.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/host/KXDCFile.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/KXPlatform.h"
#include "kxmd/thumbnails/KXMDEncodedPictures.h"
#include "kxmd/thumbnails/KXMDMemoryCache.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Where an application gets its pictures of files: thumbnails, composites of several files, icons
/// by type. Keeps them in a memory cache under names that files with the same picture share.
///
/// The cache has a budget of bytes, and is emptied whenever memory runs short.
///
/// Sizes are in points. Safe to use from several threads. Pictures are produced outside of any
/// lock, so two threads may produce the same one; the later stays in the cache.
class KX_EXPORT KXMDThumbnailController
    : public std::enable_shared_from_this<KXMDThumbnailController> {
public:
    /// A shared controller; work that is under way owns it as well.
    using Ref = std::shared_ptr<KXMDThumbnailController>;
    /// Files in the order in which a composite shows them.
    using Files = std::vector<KXDCFile::Ref>;

    /// Receives a picture, or null, on the platform's main queue.
    using Handler = std::function<void(KXImage::Ref image)>;

    /// Bytes of pixels that a controller keeps in memory if nothing else is said: 64 MiB.
    static constexpr std::size_t defaultByteBudget = std::size_t { 64 } << 20;

    /// `sharedController` The controller of the process, over the process-wide platform; made on
    /// first use and never destroyed.
    [[nodiscard]] static Ref const& sharedController();

    /// `initWithPlatform:byteBudget:` A controller with a queue and a cache of its own; null
    /// stands for the process-wide platform.
    [[nodiscard]] static Ref createWithPlatform(
        KXPlatform::Ref platform, std::size_t byteBudget = defaultByteBudget);

    /// `thumbnailForFile:size:` The picture that stands for `file`, a centred square of it
    /// stretched to `size`; null when there is nothing to show.
    ///
    /// It is the picture named by the file's "ThumbnailPath" or else that of its source path.
    [[nodiscard]] KXImage::Ref thumbnailForFile(KXDCFile const& file, KXSize size);

    /// `thumbnailForFile:size:handler:` The cached picture at once, and `handler` is not called; or
    /// null, and the picture is made on the controller's queue and handed to `handler` on the main
    /// queue, exactly once. A file without a cache name, or no file, gives null, and `handler` is
    /// never called.
    [[nodiscard]] KXImage::Ref thumbnailForFile(KXDCFile::Ref file, KXSize size, Handler handler);

    /// `thumbnailForPath:size:` The picture of the file at `path`, as above.
    [[nodiscard]] KXImage::Ref thumbnailForPath(std::string const& path, KXSize size);

    /// `thumbnailForPath:size:handler:` As `thumbnailForFile:size:handler:`.
    [[nodiscard]] KXImage::Ref thumbnailForPath(
        std::string const& path, KXSize size, Handler handler);

    /// `setThumbnailForPath:image:size:` Keeps a centred square of `image`, stretched to `size`, as
    /// the picture of `path`. Does nothing without a path, an image, a width or a height.
    void setThumbnailForPath(std::string const& path, KXImage::Ref const& image, KXSize size);

    /// `thumbnailExistsForPath:size:` Whether the picture of `path` is in the cache. Never makes
    /// one.
    [[nodiscard]] bool thumbnailExistsForPath(std::string const& path, KXSize size);

    /// `compositeThumbnailForFiles:size:` Four different pictures in the quarters of one, the first
    /// at the bottom left, the second beside it; of fewer different files the first one's picture.
    ///
    /// A file whose picture cannot be made leaves its quarter transparent. Null for a list that
    /// holds null. Throws `std::out_of_range` for an empty list and `std::invalid_argument` for a
    /// file without a cache name.
    [[nodiscard]] KXImage::Ref compositeThumbnailForFiles(Files const& files, KXSize size);

    /// `compositeThumbnailForFiles:size:handler:` As `thumbnailForFile:size:handler:`; null and no
    /// call for an empty list and for one that holds null. Throws for a file without a cache name.
    [[nodiscard]] KXImage::Ref compositeThumbnailForFiles(
        Files files, KXSize size, Handler handler);

    /// `iconForFile:size:` The icon of the file's type, stretched to `size`.
    [[nodiscard]] KXImage::Ref iconForFile(KXDCFile const& file, KXSize size);

    /// `iconForFile:size:handler:` As `thumbnailForFile:size:handler:`.
    [[nodiscard]] KXImage::Ref iconForFile(KXDCFile::Ref file, KXSize size, Handler handler);

    /// `iconTypeForFile:` The type that the file's icon goes by: a file name extension, or one of
    /// the types of `KXIconProvider`.
    [[nodiscard]] std::string iconTypeForFile(KXDCFile const& file) const;

    /// `cacheNameForFile:size:` The name of the picture that stands for `file`; tracks of one album
    /// share it. Empty when nothing does.
    [[nodiscard]] std::string cacheNameForFile(KXDCFile const& file, KXSize size) const;

    /// `cacheNameForPath:size:` The name of the picture of a path, or of another key text.
    [[nodiscard]] std::string cacheNameForPath(std::string_view path, KXSize size) const;

    /// `cacheNameForCompositeFiles:size:` The name of the files' composite; empty for an empty
    /// list and for one that holds null. Throws `std::invalid_argument` for a file without a cache
    /// name.
    [[nodiscard]] std::string cacheNameForCompositeFiles(Files const& files, KXSize size) const;

    /// `cacheNameForIcon:size:` The name of the icon of the file's type.
    [[nodiscard]] std::string cacheNameForIcon(KXDCFile const& file, KXSize size) const;

    /// `imageForCacheName:` The cached picture of that name, or null.
    [[nodiscard]] KXImage::Ref imageForCacheName(std::string const& cacheName);

    /// `setImage:forCacheName:` Keeps `image` under that name; does nothing without both.
    void setImageForCacheName(KXImage::Ref const& image, std::string const& cacheName);

    /// `scaleImage:size:` The largest centred square of `image`, stretched to exactly `size`;
    /// `image` itself when it has that size. Null without an image and for a size that no picture
    /// can have.
    [[nodiscard]] KXImage::Ref scaleImage(KXImage::Ref const& image, KXSize size) const;

    /// `jpgRepresentationOfImage:` `image` as a JPEG file, encoded once for as long as it lives:
    /// tracks that share a thumbnail share its file. Empty without an image and when it cannot be
    /// encoded.
    [[nodiscard]] KXData jpgRepresentationOfImage(KXImage::Ref const& image);

    /// `platform` What the controller works by; never null.
    [[nodiscard]] KXPlatform::Ref const& platform() const { return _platform; }

private:
    /// The first four files of a list with different pictures.
    struct CompositeChoice {
        std::vector<KXDCFile const*> files;
        std::vector<std::string> names;
        std::string cacheName() const;
    };

    KXMDThumbnailController(KXPlatform::Ref platform, std::size_t byteBudget);

    CompositeChoice chooseForComposite(Files const& files, KXSize size) const;
    KXImage::Ref tiledImageOfFiles(std::vector<KXDCFile const*> const& files, KXSize size);
    KXImage::Ref imageFromThumbnailPath(std::string const& path, KXSize size) const;
    KXImage::Ref cachedImageOrProduce(
        std::string const& cacheName, std::function<KXImage::Ref()> produce, Handler handler);
    void observeMemoryPressure();

    KXPlatform::Ref const _platform;
    KXGuarded<KXMDMemoryCache> _memoryCache;
    KXGuarded<KXMDEncodedPictures> _encodedPictures;
    std::once_flag _firstStore;
    KXMemoryPressure::Registration _memoryPressure;
    KXSerialQueue _thumbnailCacheQueue;
};
