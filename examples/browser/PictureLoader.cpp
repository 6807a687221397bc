#include "PictureLoader.h"

#include <algorithm>
#include <utility>

PictureLoader::PictureLoader(KXPlatform::Ref platform, double side, Handlers handlers)
    : _platform(std::move(platform))
    , _controller(KXMDThumbnailController::createWithPlatform(_platform))
    , _size { side, side }
    , _handlers(std::move(handlers))
{
}

PictureLoader::Ref PictureLoader::create(KXPlatform::Ref platform, double side, Handlers handlers)
{
    return Ref(new PictureLoader(std::move(platform), side, std::move(handlers)));
}

void PictureLoader::setWanted(Files files)
{
    std::erase_if(files, [this](KXDCFile::Ref const& file) {
        return std::ranges::find(_inFlight, file) != _inFlight.end();
    });
    std::ranges::reverse(files);
    _wanted = std::move(files);
    _counts.mostWanted = std::max(_counts.mostWanted, _wanted.size());
    askForNext();
}

void PictureLoader::askForNext()
{
    while (_inFlight.size() < inFlightAtOnce && !_wanted.empty()) {
        auto const file = std::move(_wanted.back());
        _wanted.pop_back();
        askFor(file);
    }
}

void PictureLoader::askFor(KXDCFile::Ref const& file)
{
    ++_counts.asked;
    _inFlight.push_back(file);
    _counts.mostInFlight = std::max(_counts.mostInFlight, _inFlight.size());
    if (file->isFolder()) {
        askForFolder(file);
        return;
    }
    auto const cached = _controller->thumbnailForFile(
        file, _size, [weakSelf = weak_from_this(), file](KXImage::Ref const& picture) {
            if (auto const self = weakSelf.lock()) {
                self->takePicture(file, picture);
                self->askForNext();
            }
        });
    if (cached) // Then the handler is not called.
        takePicture(file, cached);
}

void PictureLoader::askForFolder(KXDCFile::Ref const& folder)
{
    // Which files a folder holds is read from the disk, so a thread of ours does it. There the
    // controller may be asked for pictures that come at once, however long it takes.
    _folderQueue.async([weakSelf = weak_from_this(), platform = _platform, controller = _controller,
                           size = _size, folder] {
        auto const picture = pictureOfFolder(folder->sourcePath(), *controller, size);
        platform->mainQueue->async([weakSelf, folder, picture] {
            if (auto const self = weakSelf.lock()) {
                self->takePicture(folder, picture);
                self->askForNext();
            }
        });
    });
}

void PictureLoader::takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture)
{
    std::erase(_inFlight, file);
    _handlers.pictureCame(file, picture);
}

KXImage::Ref PictureLoader::iconForFile(KXDCFile::Ref const& file)
{
    // Each type is asked for once, however many files of it the window shows.
    auto const [icon, isNew] = _icons.try_emplace(_controller->iconTypeForFile(*file));
    if (!isNew)
        return icon->second;
    ++_iconsInFlight;
    if (auto const cached = _controller->iconForFile(file, _size,
            [weakSelf = weak_from_this(), type = icon->first](KXImage::Ref const& image) {
                if (auto const self = weakSelf.lock()) {
                    --self->_iconsInFlight;
                    self->_icons[type] = image;
                    self->_handlers.iconCame();
                }
            })) {
        --_iconsInFlight; // Then the handler is not called.
        icon->second = cached;
    }
    return icon->second;
}
