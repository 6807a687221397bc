#include "kxmd/thumbnails/KXMDThumbnailController.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPath.h"
#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/thumbnails/KXMDCacheNamePrivate.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t compositeTiles = 4;

/// Whether a list of files holds null where a file is asked for.
bool holdsNull(KXMDThumbnailController::Files const& files)
{
    return std::ranges::find(files, nullptr) != files.end();
}

}

KXMDThumbnailController::KXMDThumbnailController(KXPlatform::Ref platform, std::size_t byteBudget)
    : _platform(platform ? std::move(platform) : KXPlatform::shared())
    , _memoryCache(KXMDMemoryCache(byteBudget))
    , _thumbnailCacheQueue("org.kxmd.thumbnailcontroller")
{
}

KXMDThumbnailController::Ref KXMDThumbnailController::createWithPlatform(
    KXPlatform::Ref platform, std::size_t byteBudget)
{
    return Ref(new KXMDThumbnailController(std::move(platform), byteBudget));
}

KXMDThumbnailController::Ref const& KXMDThumbnailController::sharedController()
{
    // Never destroyed: its queue may still work while the process exits.
    static auto const& controller = *new Ref(createWithPlatform(KXPlatform::shared()));
    return controller;
}

// Cache names.

std::string KXMDThumbnailController::cacheNameForPath(std::string_view path, KXSize size) const
{
    return cacheNameForKey(path, size, *_platform->textDigest);
}

std::string KXMDThumbnailController::cacheNameForFile(KXDCFile const& file, KXSize size) const
{
    std::string const key = cacheKeyOfFile(file);
    return key.empty() ? std::string() : cacheNameForPath(key, size);
}

std::string KXMDThumbnailController::CompositeChoice::cacheName() const
{
    if (names.empty())
        return {};
    if (names.size() < compositeTiles)
        return names.front();
    std::string joined = names.front();
    for (std::size_t i = 1; i < names.size(); ++i)
        joined.append("-").append(names[i]);
    return joined;
}

KXMDThumbnailController::CompositeChoice KXMDThumbnailController::chooseForComposite(
    Files const& files, KXSize size) const
{
    CompositeChoice choice;
    for (auto const& file : files) {
        std::string name = cacheNameForFile(*file, size);
        if (name.empty())
            throw std::invalid_argument("a file of the composite has no cache name");
        if (std::ranges::find(choice.names, name) != choice.names.end())
            continue;
        choice.files.push_back(file.get());
        choice.names.push_back(std::move(name));
        if (choice.files.size() == compositeTiles)
            break;
    }
    return choice;
}

std::string KXMDThumbnailController::cacheNameForCompositeFiles(
    Files const& files, KXSize size) const
{
    return holdsNull(files) ? std::string() : chooseForComposite(files, size).cacheName();
}

std::string KXMDThumbnailController::iconTypeForFile(KXDCFile const& file) const
{
    if (file.isFolder())
        return std::string(KXIconProvider::folderType);
    if (file.fileKind() == KXDCFileKindPlaylist)
        return "m3u";
    std::string const filename = file.filename();
    std::string_view const extension = KXPathExtension(filename);
    return std::string(extension.empty() ? KXIconProvider::documentType : extension);
}

std::string KXMDThumbnailController::cacheNameForIcon(KXDCFile const& file, KXSize size) const
{
    return cacheNameForPath(iconTypeForFile(file), size);
}

// The cache.

KXImage::Ref KXMDThumbnailController::imageForCacheName(std::string const& cacheName)
{
    return cacheName.empty() ? nullptr : _memoryCache.lock()->imageForName(cacheName);
}

void KXMDThumbnailController::setImageForCacheName(
    KXImage::Ref const& image, std::string const& cacheName)
{
    if (!image || cacheName.empty())
        return;
    std::call_once(_firstStore, [this] { observeMemoryPressure(); });
    // What makes room is destroyed after the lock is left: a host's picture may ask us then.
    auto const evicted = _memoryCache.lock()->setImageForName(image, cacheName);
}

void KXMDThumbnailController::observeMemoryPressure()
{
    _memoryPressure = _platform->memoryPressure->addObserver([weakSelf = weak_from_this()] {
        if (auto const self = weakSelf.lock()) {
            auto const evicted = self->_memoryCache.lock()->evictToByteCount(0);
        }
    });
}

// Producing pictures.

KXImage::Ref KXMDThumbnailController::scaleImage(KXImage::Ref const& image, KXSize size) const
{
    return squareOfImage(image, size);
}

KXImage::Ref KXMDThumbnailController::thumbnailForPath(std::string const& path, KXSize size)
{
    std::string const cacheName = cacheNameForPath(path, size);
    if (auto cached = imageForCacheName(cacheName))
        return cached;
    auto image = _platform->thumbnailService->squareForPath(path, size);
    setImageForCacheName(image, cacheName);
    return image;
}

KXImage::Ref KXMDThumbnailController::imageFromThumbnailPath(
    std::string const& path, KXSize size) const
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return nullptr;
    auto const image = _platform->pictureLoader->imageInData(*data, data->length(), size);
    return image ? scaleImage(image, size) : nullptr;
}

KXImage::Ref KXMDThumbnailController::thumbnailForFile(KXDCFile const& file, KXSize size)
{
    std::string const cacheName = cacheNameForFile(file, size);
    if (auto cached = imageForCacheName(cacheName))
        return cached;
    if (auto const path = thumbnailPathOfFile(file); !path.empty()) {
        auto image = imageFromThumbnailPath(path, size);
        setImageForCacheName(image, cacheName);
        if (image)
            return image;
    }
    // Cached under the name of the path, not of the album: each track shows its own picture until
    // something is stored under the album's name. Deliberate: tracks may have covers of their own.
    std::string const path = file.sourcePath();
    return path.empty() ? nullptr : thumbnailForPath(path, size);
}

KXData KXMDThumbnailController::jpgRepresentationOfImage(KXImage::Ref const& image)
{
    if (!image)
        return {};
    KXData jpg = _encodedPictures.lock()->jpgOfImage(image);
    if (!jpg.length()) {
        jpg = _platform->pictureLoader->jpgRepresentation(*image);
        _encodedPictures.lock()->setJPGOfImage(jpg, image);
    }
    return jpg;
}

void KXMDThumbnailController::setThumbnailForPath(
    std::string const& path, KXImage::Ref const& image, KXSize size)
{
    if (!path.empty() && image && size.width != 0 && size.height != 0)
        setImageForCacheName(scaleImage(image, size), cacheNameForPath(path, size));
}

bool KXMDThumbnailController::thumbnailExistsForPath(std::string const& path, KXSize size)
{
    return imageForCacheName(cacheNameForPath(path, size)) != nullptr;
}

KXImage::Ref KXMDThumbnailController::tiledImageOfFiles(
    std::vector<KXDCFile const*> const& files, KXSize size)
{
    auto const composite = KXImage::imageWithSize(size);
    if (!composite)
        return nullptr;
    KXSize const quarter { size.width * 0.5, size.height * 0.5 };
    for (std::size_t i = 0; i < files.size(); ++i) {
        auto const tile = thumbnailForFile(*files[i], size);
        if (!tile)
            continue;
        KXRect const into { i % 2 ? quarter.width : 0, i / 2 ? quarter.height : 0, quarter };
        composite->drawImageFromRectInRect(*tile, { 0, 0, size }, into);
    }
    return composite;
}

KXImage::Ref KXMDThumbnailController::compositeThumbnailForFiles(Files const& files, KXSize size)
{
    if (holdsNull(files))
        return nullptr;
    auto const choice = chooseForComposite(files, size);
    std::string const cacheName = choice.cacheName();
    if (auto cached = imageForCacheName(cacheName))
        return cached;
    auto composite = choice.files.size() < compositeTiles
        ? thumbnailForFile(*choice.files.at(0), size) // Throws for an empty list.
        : tiledImageOfFiles(choice.files, size);
    setImageForCacheName(composite, cacheName);
    return composite;
}

KXImage::Ref KXMDThumbnailController::iconForFile(KXDCFile const& file, KXSize size)
{
    std::string const cacheName = cacheNameForIcon(file, size);
    if (auto cached = imageForCacheName(cacheName))
        return cached;
    auto const icon = _platform->iconProvider->iconForFileType(iconTypeForFile(file), size);
    auto const stretched = KXImage::imageWithSize(size);
    if (!icon || !stretched)
        return nullptr;
    stretched->drawImageFromRectInRect(*icon, { 0, 0, icon->size() }, { 0, 0, size });
    setImageForCacheName(stretched, cacheName);
    return stretched;
}

// Asynchronous forms.

namespace {

/// The picture that `produce` makes. Null when it throws: on the queue's thread nobody would catch
/// it, and the handler waits for an answer.
KXImage::Ref imageOrNothing(std::function<KXImage::Ref()> const& produce)
{
    try {
        return produce();
    } catch (std::invalid_argument const&) {
        // A composite's files have lost their cache names since.
    } catch (...) {
        KXLog("Metadata", "KXMDThumbnailController->a picture could not be made");
    }
    return nullptr;
}

}

KXImage::Ref KXMDThumbnailController::cachedImageOrProduce(
    std::string const& cacheName, std::function<KXImage::Ref()> produce, Handler handler)
{
    if (cacheName.empty())
        return nullptr;
    if (auto cached = imageForCacheName(cacheName))
        return cached;
    _thumbnailCacheQueue.async([self = shared_from_this(), produce = std::move(produce),
                                   handler = std::move(handler)]() mutable {
        self->_platform->mainQueue->async(
            [handler = std::move(handler), image = imageOrNothing(produce)] {
                if (handler)
                    handler(image);
            });
    });
    return nullptr;
}

KXImage::Ref KXMDThumbnailController::thumbnailForFile(
    KXDCFile::Ref file, KXSize size, Handler handler)
{
    std::string const cacheName = file ? cacheNameForFile(*file, size) : std::string();
    return cachedImageOrProduce(
        cacheName, [this, file = std::move(file), size] { return thumbnailForFile(*file, size); },
        std::move(handler));
}

KXImage::Ref KXMDThumbnailController::thumbnailForPath(
    std::string const& path, KXSize size, Handler handler)
{
    return cachedImageOrProduce(
        cacheNameForPath(path, size), [this, path, size] { return thumbnailForPath(path, size); },
        std::move(handler));
}

KXImage::Ref KXMDThumbnailController::compositeThumbnailForFiles(
    Files files, KXSize size, Handler handler)
{
    std::string const cacheName = cacheNameForCompositeFiles(files, size);
    return cachedImageOrProduce(
        cacheName,
        [this, files = std::move(files), size] { return compositeThumbnailForFiles(files, size); },
        std::move(handler));
}

KXImage::Ref KXMDThumbnailController::iconForFile(KXDCFile::Ref file, KXSize size, Handler handler)
{
    std::string const cacheName = file ? cacheNameForIcon(*file, size) : std::string();
    return cachedImageOrProduce(
        cacheName, [this, file = std::move(file), size] { return iconForFile(*file, size); },
        std::move(handler));
}
