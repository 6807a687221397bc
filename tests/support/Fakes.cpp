#include "support/Fakes.h"

#include "support/Pictures.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
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

KXData FakePictureLoader::jpgRepresentation(KXImage const& image) const
{
    auto const state = _state.lock();
    ++state->encodings;
    return state->encodesForReal
        ? KXPlatform::platformOfThisMachine()->pictureLoader->jpgRepresentation(image)
        : state->jpg;
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

class FakeMovieLoader::Movie final : public KXMovie {
public:
    Movie(SharedState state, std::uint64_t length)
        : _state(std::move(state))
        , _length(length)
    {
        auto access = _state->lock();
        access->mostOpenMovies = std::max(++access->openMovies, access->mostOpenMovies);
    }
    ~Movie() override { --_state->lock()->openMovies; }

    double duration() const override { return 0; }

    KXImage::Ref imageAtTime(double seconds, KXSize maximumSize) override
    {
        auto state = _state->lock();
        state->frameCalls.push_back({ seconds, maximumSize });
        auto const found = state->frames.find(seconds);
        bool const isThere = found != state->frames.end() && _length >= found->second.leastLength;
        return isThere ? found->second.image : nullptr;
    }

    KXImage::Ref keyImageAtTime(double, KXSize) override { return nullptr; }
    KXData attachedPicture() const override { return {}; }

private:
    SharedState const _state;
    std::uint64_t const _length;
};

void FakeMovieLoader::setImageAtTime(KXImage::Ref image, double seconds, std::uint64_t leastLength)
{
    _state->lock()->frames[seconds] = { std::move(image), leastLength };
}

void FakeMovieLoader::failAttempt(std::size_t number)
{
    _state->lock()->failingAttempts.insert(number);
}

std::unique_ptr<KXMovie> FakeMovieLoader::movieWithData(KXAbstractData& data) const
{
    {
        auto state = _state->lock();
        state->lengths.push_back(data.length());
        if (state->failingAttempts.contains(state->lengths.size()))
            return nullptr;
    }
    return std::make_unique<Movie>(_state, data.length());
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

std::vector<std::shared_ptr<KXMemoryPressure::Observer>> FakeMemoryPressure::observers() const
{
    std::vector<std::shared_ptr<Observer>> alive;
    for (auto const& observer : _observers.load()) {
        if (auto owned = observer.lock())
            alive.push_back(std::move(owned));
    }
    return alive;
}

void FakeMemoryPressure::runShort() const
{
    for (auto const& observer : observers())
        (*observer)();
}

std::size_t FakeMemoryPressure::observerCount() const { return observers().size(); }

KXMemoryPressure::Registration FakeMemoryPressure::addObserver(Observer observer) const
{
    auto const kept = std::make_shared<Observer>(std::move(observer));
    _observers.lock()->push_back(kept);
    return kept;
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

std::optional<int> FakeTaskRunner::runToolAtPath(
    std::string const& path, std::vector<std::string> const& arguments) const
{
    auto const state = _state.lock();
    state->calls.push_back({ path, arguments });
    if (state->output && !arguments.empty()) {
        std::ofstream file(arguments.back(), std::ios::binary);
        file.write(reinterpret_cast<char const*>(state->output->data()),
            static_cast<std::streamsize>(state->output->size()));
    }
    return state->status;
}

KXMutableData::Ref FakeFileManager::mutableDataWithContentsOfFile(std::string const& path) const
{
    ++_reads;
    return _failsToRead ? nullptr : _real->mutableDataWithContentsOfFile(path);
}

bool FakeFileManager::writeBytesToFile(
    std::span<std::uint8_t const> bytes, std::string const& path) const
{
    ++_writes;
    if (_throwsInsteadOfWriting)
        throw std::runtime_error("cannot be written");
    return !_failsToWrite && _real->writeBytesToFile(bytes, path);
}

bool FakeFileManager::createFolderAtPath(std::string const& path) const
{
    return !_failsToCreateFolders && _real->createFolderAtPath(path);
}

std::optional<std::uint64_t> FakeFileManager::sizeOfFileAtPath(std::string const& path) const
{
    return _real->sizeOfFileAtPath(path);
}

std::string FakeTemporaryFolders::applicationUniqueTempFolderWithPrefix(
    std::string_view prefix) const
{
    std::string path = _folder + '/' + std::string(prefix) + "-XXXXXX";
    if (_fails || !::mkdtemp(path.data()))
        path.clear();
    return path; // Without a copy, for which there may be no memory.
}

KXPlatform::Ref FakeMachine::platform() const
{
    auto const platform = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
    platform->thumbnailService = thumbnailService;
    platform->pictureLoader = pictureLoader;
    platform->movieLoader = movieLoader;
    platform->iconProvider = iconProvider;
    platform->mainQueue = mainQueue;
    platform->memoryPressure = memoryPressure;
    return platform;
}
