#pragma once

#include "AnyPicture.h"
#include "FuzzTarget.h"

#include "kxmd/platform/KXPlatform.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// Pictures of every path but those that end in a zero digit, of a size that the path decides.
class ThumbnailsOfPaths final : public KXThumbnailService {
public:
    KXImage::Ref imageForPath(std::string const& path, KXSize) const override
    {
        double const side = static_cast<double>(1 + path.size() % 16);
        return path.ends_with('0') ? nullptr : KXImage::imageWithSize({ side, 20 - side });
    }
};

/// The same icon for every type.
class OneIcon final : public KXIconProvider {
public:
    KXImage::Ref iconForFileType(std::string const& type, KXSize) const override
    {
        KXMD_REQUIRE(!type.empty());
        return KXImage::imageWithSize({ 3, 5 });
    }
};

/// Runs its works when it is told to.
class WaitingQueue final : public KXQueue {
public:
    void async(Work work) override
    {
        std::scoped_lock const lock(_mutex);
        _works.push_back(std::move(work));
        _changed.notify_all();
    }

    /// Waits until there are `count` works, and runs them.
    void runAll(std::size_t count)
    {
        using namespace std::chrono_literals;
        std::unique_lock lock(_mutex);
        KXMD_REQUIRE(_changed.wait_for(lock, 15s, [&] { return _works.size() >= count; }));
        auto const works = std::exchange(_works, {});
        lock.unlock();
        KXMD_REQUIRE(works.size() == count);
        for (Work const& work : works)
            work();
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<Work> _works;
};

/// Runs short of memory when it is told to.
class ShortMemory final : public KXMemoryPressure {
public:
    Registration addObserver(Observer observer) const override
    {
        auto const kept = std::make_shared<Observer>(std::move(observer));
        _observer = kept;
        return kept;
    }
    void runShort() const
    {
        if (auto const observer = _observer.lock())
            (*observer)();
    }

private:
    mutable std::weak_ptr<Observer> _observer;
};

/// Writes a few bytes to the file that the last argument names, unless it is to fail.
class OneTool final : public KXTaskRunner {
public:
    void setIsFailing(bool isFailing) { _isFailing = isFailing; }
    std::optional<int> runToolAtPath(
        std::string const&, std::vector<std::string> const& arguments) const override
    {
        if (!_isFailing)
            std::ofstream(arguments.back(), std::ios::binary) << "converted";
        return _isFailing ? std::nullopt : std::optional(0);
    }

private:
    bool _isFailing { false };
};

/// A folder of this process, and the folders in it that are asked for.
class FolderOfProcess final : public KXTemporaryFolders {
public:
    FolderOfProcess()
        : _folder((std::filesystem::temp_directory_path() / "kxmd-fuzz-XXXXXX").string())
    {
        KXMD_REQUIRE(::mkdtemp(_folder.data()));
    }
    ~FolderOfProcess() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(_folder, ignored);
    }
    std::string applicationTempFolder() const override { return _folder; }
    std::string applicationUniqueTempFolderWithPrefix(std::string_view prefix) const override
    {
        std::string const folder = _folder + '/' + std::string(prefix);
        std::filesystem::create_directory(folder);
        return folder;
    }

private:
    std::string _folder;
};

/// Files that are not brought to the disk, which would take most of the time; they fail when they
/// are told to.
class FastFiles final : public KXFileManager {
public:
    enum class Fault { none, reading, writing, exception };

    void setFault(Fault fault) { _fault = fault; }
    KXMutableData::Ref mutableDataWithContentsOfFile(std::string const& path) const override
    {
        return _fault == Fault::reading ? nullptr : _real->mutableDataWithContentsOfFile(path);
    }
    bool writeBytesToFile(
        std::span<std::uint8_t const> bytes, std::string const& path) const override
    {
        if (_fault == Fault::exception)
            throw std::runtime_error("of the host");
        if (_fault == Fault::writing)
            return false;
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<char const*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
        return !file.flush().fail();
    }
    bool createFolderAtPath(std::string const& path) const override
    {
        return _real->createFolderAtPath(path);
    }
    void removeEmptyFolderAtPath(std::string const& path) const override
    {
        _real->removeEmptyFolderAtPath(path);
    }
    std::optional<std::uint64_t> sizeOfFileAtPath(std::string const& path) const override
    {
        return _real->sizeOfFileAtPath(path);
    }

private:
    Fault _fault { Fault::none };
    std::shared_ptr<KXFileManager const> const _real
        = KXPlatform::platformOfThisMachine()->fileManager;
};

/// A machine of these; digests are real.
struct HostMachine {
    std::shared_ptr<WaitingQueue> const mainQueue = std::make_shared<WaitingQueue>();
    std::shared_ptr<ShortMemory> const memoryPressure = std::make_shared<ShortMemory>();
    std::shared_ptr<OneTool> const taskRunner = std::make_shared<OneTool>();
    std::shared_ptr<FastFiles> const files = std::make_shared<FastFiles>();
    std::shared_ptr<FolderOfProcess> const folders = std::make_shared<FolderOfProcess>();
    KXPlatform::Ref const platform = made();

private:
    KXPlatform::Ref made() const
    {
        auto own = std::make_shared<KXPlatform>(*KXPlatform::platformOfThisMachine());
        own->pictureLoader = std::make_shared<AnyPicture const>();
        own->thumbnailService = std::make_shared<ThumbnailsOfPaths const>();
        own->iconProvider = std::make_shared<OneIcon const>();
        own->mainQueue = mainQueue;
        own->memoryPressure = memoryPressure;
        own->taskRunner = taskRunner;
        own->temporaryFolders = folders;
        own->fileManager = files;
        return own;
    }
};
