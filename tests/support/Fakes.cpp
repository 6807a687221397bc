#include "support/Fakes.h"

#include "support/Pictures.h"

#include <utility>

namespace {

template <class Images> KXImage::Ref imageAt(Images const& images, std::string const& key)
{
    auto const found = images.find(key);
    return found == images.end() ? nullptr : found->second;
}

}

void FakeThumbnailService::setImageForPath(KXImage::Ref image, std::string const& path)
{
    _state.lock()->images[path] = std::move(image);
}

KXImage::Ref FakeThumbnailService::imageForPath(std::string const& path, KXSize maximumSize) const
{
    auto state = _state.lock();
    state->calls.push_back({ path, maximumSize });
    return imageAt(state->images, path);
}

void FakePictureLoader::setImageForWord(KXImage::Ref image, std::string const& word)
{
    _state.lock()->images[word] = std::move(image);
}

std::optional<KXSize> FakePictureLoader::sizeOfPictureInData(KXAbstractData&, std::uint64_t) const
{
    return std::nullopt;
}

KXImage::Ref FakePictureLoader::imageInData(
    KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const
{
    std::vector<std::uint8_t> bytes(length);
    bytes.resize(data.readBytesToMaxLength(bytes.data(), length));
    std::string const word(bytes.begin(), bytes.end());
    auto state = _state.lock();
    state->calls.push_back({ word, wantedSize });
    return imageAt(state->images, word);
}

FakeIconProvider::FakeIconProvider() { setImage(pictures::quarters(2, 2)); }

std::vector<FakeIconProvider::Call> FakeIconProvider::callsExceptFor(
    std::string const& fileType) const
{
    auto calls = _state.lock()->calls;
    std::erase_if(calls, [&fileType](Call const& call) { return call.fileType == fileType; });
    return calls;
}

KXImage::Ref FakeIconProvider::iconForFileType(std::string const& fileType, KXSize size) const
{
    auto state = _state.lock();
    state->calls.push_back({ fileType, size });
    return state->image;
}

void KXManualQueue::async(Work work)
{
    std::scoped_lock const lock(_mutex);
    _works.push_back(std::move(work));
    _changed.notify_all();
}

std::size_t KXManualQueue::runAll()
{
    std::size_t count = 0;
    std::unique_lock lock(_mutex);
    for (; !_works.empty(); ++count) {
        Work work = std::move(_works.front());
        _works.pop_front();
        lock.unlock();
        work();
        work = nullptr; // What it holds is let go unlocked.
        lock.lock();
    }
    return count;
}

void KXManualQueue::waitAndRunAll()
{
    {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return !_works.empty(); });
    }
    runAll();
}

std::size_t KXManualQueue::waiting() const
{
    std::scoped_lock const lock(_mutex);
    return _works.size();
}

KXPlatform::Ref FakeMachine::platform() const
{
    auto const platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
    platform->thumbnailService = thumbnailService;
    platform->pictureLoader = pictureLoader;
    platform->iconProvider = iconProvider;
    platform->mainQueue = mainQueue;
    return platform;
}
