#pragma once

#include "kxmd/base/KXGuarded.h"
#include "kxmd/platform/KXPlatform.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Stands in for the machine in tests, and writes down what it is asked for. All of it may be used
// on several threads at once.

/// Knows pictures of paths.
class FakeThumbnailService final : public KXThumbnailService {
public:
    struct Call {
        std::string path;
        KXSize maximumSize;
        bool operator==(Call const&) const = default;
    };

    /// From now on the picture of `path` is `image`, whatever size is asked for.
    void setImageForPath(KXImage::Ref image, std::string const& path);
    std::vector<Call> calls() const { return _state.lock()->calls; }

    KXImage::Ref imageForPath(std::string const& path, KXSize maximumSize) const override;

private:
    struct State {
        std::map<std::string, KXImage::Ref> images;
        std::vector<Call> calls;
    };
    mutable KXGuarded<State> _state;
};

/// Takes files that consist of a word for pictures, and encodes every picture as it was told.
class FakePictureLoader final : public KXPictureLoader {
public:
    struct Call {
        std::string word;
        KXSize wantedSize;
        bool operator==(Call const&) const = default;
    };

    /// From now on the picture in data that consists of `word` is `image`.
    void setImageForWord(KXImage::Ref image, std::string const& word);
    /// Every call of `imageInData`.
    std::vector<Call> calls() const { return _state.lock()->calls; }

    KXImage::Ref imageInData(
        KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const override;
    /// From now on every picture is `data` as a JPEG file.
    void setJPGRepresentation(KXData data) { _state.lock()->jpg = std::move(data); }
    /// From now on pictures are encoded as this machine does it.
    void encodeForReal() { _state.lock()->encodesForReal = true; }
    /// How many pictures were encoded.
    std::size_t encodings() const { return _state.lock()->encodings; }
    KXData jpgRepresentation(KXImage const& image) const override;
    KXData pngRepresentation(KXImage const&) const override { return {}; }

private:
    struct State {
        std::map<std::string, KXImage::Ref> images;
        KXData jpg;
        bool encodesForReal { false };
        std::size_t encodings { 0 };
        std::vector<Call> calls;
    };
    mutable KXGuarded<State> _state;
};

/// Takes any data for a movie whose frames it was told, unless it is told to fail.
class FakeMovieLoader final : public KXMovieLoader {
public:
    struct FrameCall {
        double seconds { 0 };
        KXSize maximumSize;
        bool operator==(FrameCall const&) const = default;
    };

    /// From now on movies of at least `leastLength` bytes show `image` at `seconds`.
    void setImageAtTime(KXImage::Ref image, double seconds, std::uint64_t leastLength = 0);
    /// The attempt of that number, counted from 1 over all calls, fails.
    void failAttempt(std::size_t number);

    /// The length of the data of each attempt, failed ones too.
    std::vector<std::uint64_t> lengths() const { return _state->lock()->lengths; }
    /// Every frame that a movie was asked for.
    std::vector<FrameCall> frameCalls() const { return _state->lock()->frameCalls; }
    /// How many movies are open now, and how many were at most.
    std::size_t openMovies() const { return _state->lock()->openMovies; }
    std::size_t mostOpenMovies() const { return _state->lock()->mostOpenMovies; }

    std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override;

private:
    struct Frame {
        KXImage::Ref image;
        std::uint64_t leastLength { 0 };
    };
    struct State {
        std::map<double, Frame> frames;
        std::set<std::size_t> failingAttempts;
        std::vector<std::uint64_t> lengths;
        std::vector<FrameCall> frameCalls;
        std::size_t openMovies { 0 };
        std::size_t mostOpenMovies { 0 };
    };
    using SharedState = std::shared_ptr<KXGuarded<State>>;
    class Movie;

    SharedState const _state = std::make_shared<KXGuarded<State>>();
};

/// Has the same icon for every type, unless told otherwise.
class FakeIconProvider final : public KXIconProvider {
public:
    struct Call {
        std::string fileType;
        KXSize size;
        bool operator==(Call const&) const = default;
    };

    FakeIconProvider();

    /// From now on the icon of every type is `image`.
    void setImage(KXImage::Ref image) { _state.lock()->image = std::move(image); }
    /// Every call, but for those of one type.
    std::vector<Call> callsExceptFor(std::string const& fileType) const;
    std::vector<Call> calls() const { return callsExceptFor({}); }

    KXImage::Ref iconForFileType(std::string const& fileType, KXSize size) const override;

private:
    struct State {
        KXImage::Ref image;
        std::vector<Call> calls;
    };
    mutable KXGuarded<State> _state;
};

/// Runs short of memory when it is told to.
class FakeMemoryPressure final : public KXMemoryPressure {
public:
    /// Calls every observer that is registered.
    void runShort() const;
    /// How many observers are registered.
    std::size_t observerCount() const;

    Registration addObserver(Observer observer) const override;

private:
    std::vector<std::shared_ptr<Observer>> observers() const;

    mutable KXGuarded<std::vector<std::weak_ptr<Observer>>> _observers;
};

/// Runs its works when it is told to, on the thread that tells it to.
class KXManualQueue final : public KXQueue {
public:
    void async(Work work) override;

    /// Runs every work, also those that they submit, and returns how many there were.
    std::size_t runAll();
    /// Waits until there is a work, and then runs all.
    void waitAndRunAll();
    /// How many works wait to be run.
    std::size_t waiting() const;

private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Work> _works;
};

/// Runs nothing: it writes down what it is asked to run, and answers.
class FakeTaskRunner final : public KXTaskRunner {
public:
    struct Call {
        std::string path;
        std::vector<std::string> arguments;
        bool operator==(Call const&) const = default;
    };

    /// From now on each program ends with `status`; without one it cannot be run.
    void setStatus(std::optional<int> status) { _state.lock()->status = status; }
    /// From now on each program writes `bytes` to the file that its last argument names.
    void setOutput(std::vector<std::uint8_t> bytes) { _state.lock()->output = std::move(bytes); }
    std::vector<Call> calls() const { return _state.lock()->calls; }

    std::optional<int> runToolAtPath(
        std::string const& path, std::vector<std::string> const& arguments) const override;

private:
    struct State {
        std::optional<int> status { 0 };
        std::optional<std::vector<std::uint8_t>> output;
        std::vector<Call> calls;
    };
    mutable KXGuarded<State> _state;
};

/// This machine's files, but for what it is told to fail at.
class FakeFileManager final : public KXFileManager {
public:
    void failToRead() { _failsToRead = true; }
    void failToWrite() { _failsToWrite = true; }
    void throwInsteadOfWriting() { _throwsInsteadOfWriting = true; }
    void failToCreateFolders() { _failsToCreateFolders = true; }
    /// How often a file was to be read whole, and how often one was to be written.
    std::size_t reads() const { return _reads; }
    std::size_t writes() const { return _writes; }

    KXMutableData::Ref mutableDataWithContentsOfFile(std::string const& path) const override;
    bool writeBytesToFile(
        std::span<std::uint8_t const> bytes, std::string const& path) const override;
    bool createFolderAtPath(std::string const& path) const override;
    void removeEmptyFolderAtPath(std::string const& path) const override
    {
        _real->removeEmptyFolderAtPath(path);
    }
    std::optional<std::uint64_t> sizeOfFileAtPath(std::string const& path) const override;

private:
    std::shared_ptr<KXFileManager const> const _real
        = KXPlatform::platformOfThisMachine()->fileManager;
    bool _failsToRead { false };
    bool _failsToWrite { false };
    bool _throwsInsteadOfWriting { false };
    bool _failsToCreateFolders { false };
    mutable std::atomic<std::size_t> _reads { 0 };
    mutable std::atomic<std::size_t> _writes { 0 };
};

/// Temporary folders in a folder of a test.
class FakeTemporaryFolders final : public KXTemporaryFolders {
public:
    explicit FakeTemporaryFolders(std::string folder)
        : _folder(std::move(folder))
    {
    }
    void fail() { _fails = true; }

    std::string applicationTempFolder() const override { return _folder; }
    std::string applicationUniqueTempFolderWithPrefix(std::string_view prefix) const override;

private:
    std::string const _folder;
    bool _fails { false };
};

/// A machine of fakes. Text digest and temporary folders are real.
struct FakeMachine {
    std::shared_ptr<FakeThumbnailService> const thumbnailService
        = std::make_shared<FakeThumbnailService>();
    std::shared_ptr<FakePictureLoader> const pictureLoader = std::make_shared<FakePictureLoader>();
    std::shared_ptr<FakeMovieLoader> const movieLoader = std::make_shared<FakeMovieLoader>();
    std::shared_ptr<FakeIconProvider> const iconProvider = std::make_shared<FakeIconProvider>();
    std::shared_ptr<KXManualQueue> const mainQueue = std::make_shared<KXManualQueue>();
    std::shared_ptr<FakeMemoryPressure> const memoryPressure
        = std::make_shared<FakeMemoryPressure>();

    /// A new platform over these.
    KXPlatform::Ref platform() const;
};
