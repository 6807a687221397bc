// What a host asks of the controllers, their cache and the processors, in any order, of a file of
// any bytes.

#include "Choices.h"
#include "HostMachine.h"

#include "kxmd/core/KXMDFileMetaController.h"
#include "kxmd/host/KXDCFileProxy.h"
#include "kxmd/mp3/KXMP3EditSafety.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "kxmd/processors/KXMDFileProcessorAddAlbumCover.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "kxmd/processors/KXMDFileProcessorConvertALAC.h"
#include "kxmd/thumbnails/KXMDMemoryCache.h"
#include "kxmd/thumbnails/KXMDThumbnailController.h"

#include <algorithm>
#include <cmath>
#include <future>
#include <limits>
#include <stdexcept>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Files = KXMDThumbnailController::Files;

KXSize size(Choices& choices)
{
    constexpr double sides[] { 16, 16, 16, 32, 10.5, 1, 0.25, 0, -3, 1e300,
        std::numeric_limits<double>::quiet_NaN() };
    auto const choice = choices.next<std::uint8_t>();
    return { sides[choice % 11], sides[choice < 0xC0 ? choice % 11 : choice % 7] };
}

/// Pictures are cached by sizes in whole points.
bool isOfSize(KXImage::Ref const& image, KXSize size)
{
    auto const isSame = [](double one, double other) {
        return std::trunc(one) == (std::isnan(other) ? 0 : std::trunc(other));
    };
    return !image
        || (isSame(image->size().width, size.width) && isSame(image->size().height, size.height));
}

/// The cache beside a plain list, the most recently used picture first.
void checkCache(Choices& choices)
{
    std::size_t const budget = choices.next<std::uint8_t>() * std::size_t { 16 };
    KXMDMemoryCache cache(budget);
    std::vector<KXMDMemoryCache::Entry> kept;
    auto const bytesOf
        = [](KXMDMemoryCache::Entry const& entry) { return entry.image->pixels().size(); };
    auto const bytesKept = [&] {
        std::size_t bytes = 0;
        for (auto const& entry : kept)
            bytes += bytesOf(entry);
        return bytes;
    };
    for (int left = choices.next<std::uint8_t>() % 32; left; --left) {
        auto const choice = choices.next<std::uint8_t>();
        std::string const name(1, static_cast<char>('a' + choice % 8));
        auto const found = std::ranges::find(kept, name, &KXMDMemoryCache::Entry::name);
        if (choice / 8 % 4 == 0) {
            auto const image = cache.imageForName(name);
            KXMD_REQUIRE(image == (found == kept.end() ? nullptr : found->image));
            if (image)
                std::rotate(kept.begin(), found, found + 1);
        } else if (choice / 8 % 4 == 3) {
            std::size_t const goal = choice / 32 * std::size_t { 256 };
            auto const evicted = cache.evictToByteCount(goal);
            for (auto const& entry : evicted) {
                KXMD_REQUIRE(bytesKept() > goal && entry.image == kept.back().image);
                kept.pop_back();
            }
            KXMD_REQUIRE(bytesKept() <= goal);
        } else {
            double const side = 1 + choice / 32 * 3;
            auto const image = KXImage::imageWithSize({ side, side });
            if (found != kept.end())
                kept.erase(found);
            auto const evicted = cache.setImageForName(image, name);
            if (image->pixels().size() <= budget)
                kept.insert(kept.begin(), { name, image });
            while (bytesKept() > budget)
                kept.pop_back();
        }
        KXMD_REQUIRE(cache.byteCount() == bytesKept() && bytesKept() <= budget);
    }
}

/// Files with the same pictures and with different ones, and some without.
Files filesOf(Choices& choices, std::string const& path)
{
    Files files;
    for (int left = choices.next<std::uint8_t>() % 8; left; --left) {
        auto const choice = choices.next<std::uint8_t>();
        std::string name = choice % 4 ? "/files/" + std::to_string(choice % 16) : std::string();
        if (choice % 4 == 2)
            name += ".ext";
        auto const file = std::make_shared<KXDCSimpleFile>(choice == 0xFF ? path : name);
        if (choice & 0x10)
            file->setMetadataForKey(std::string("Artist"), KXMDMetadataKeyArtist);
        if (choice & 0x20)
            file->setMetadataForKey(
                std::string(choice & 0x40 ? "Album" : "Other"), KXMDMetadataKeyAlbum);
        if (choice & 0x80)
            file->setMetadataForKey(choice & 8 ? path : "/none", "ThumbnailPath");
        file->setIsFolder(choice % 16 == 3);
        file->setFileKind(choice % 16 == 5 ? KXDCFileKindPlaylist : 0);
        files.push_back(choice == 0x77 ? nullptr : file);
    }
    return files;
}

/// One question after the other.
class Asker {
public:
    Asker(HostMachine const& machine, Files files, std::string path)
        : _machine(machine)
        , _controller(KXMDThumbnailController::createWithPlatform(machine.platform, 4096))
        , _files(std::move(files))
        , _path(std::move(path))
    {
    }

    void ask(Choices& choices)
    {
        auto const kind = choices.next<std::uint8_t>();
        KXSize const wanted = size(choices);
        auto const file = _files.empty() ? nullptr : _files[kind / 8 % _files.size()];
        std::string const path = file ? file->sourcePath() : _path;
        switch (kind % 8) {
        case 0:
            KXMD_REQUIRE(!file || isOfSize(_controller->thumbnailForFile(*file, wanted), wanted));
            KXMD_REQUIRE(!file || isOfSize(_controller->iconForFile(*file, wanted), wanted));
            break;
        case 1:
            KXMD_REQUIRE(isOfSize(_controller->thumbnailForPath(path, wanted), wanted));
            break;
        case 2:
            askForComposite(wanted);
            break;
        case 3:
            store(path, wanted);
            break;
        case 4:
            _machine.memoryPressure->runShort();
            KXMD_REQUIRE(isBusy() || !_controller->thumbnailExistsForPath(path, wanted));
            break;
        case 5:
            expect(_controller->thumbnailForFile(file, wanted, handler(wanted)),
                file && !_controller->cacheNameForFile(*file, wanted).empty());
            expect(_controller->iconForFile(file, wanted, handler(wanted)), file != nullptr);
            break;
        case 6:
            expect(_controller->thumbnailForPath(path, wanted, handler(wanted)), true);
            break;
        default:
            askForCompositeLater(wanted);
        }
    }

    /// Runs what waits for the main queue; every handler is called once.
    void finish()
    {
        _machine.mainQueue->runAll(_expected);
        KXMD_REQUIRE(_called == _expected);
    }

    KXMDThumbnailController::Ref const& controller() const { return _controller; }

private:
    KXMDThumbnailController::Handler handler(KXSize wanted)
    {
        return [this, wanted](KXImage::Ref const& image) {
            ++_called;
            KXMD_REQUIRE(isOfSize(image, wanted));
        };
    }

    void expect(KXImage::Ref const& atOnce, bool isAnswered) { _expected += isAnswered && !atOnce; }

    /// Whether the controller's own thread may put pictures into the cache meanwhile.
    bool isBusy() const { return _expected; }

    void askForComposite(KXSize wanted)
    {
        bool const holdsNull = std::ranges::find(_files, nullptr) != _files.end();
        try {
            auto const image = _controller->compositeThumbnailForFiles(_files, wanted);
            KXMD_REQUIRE(isOfSize(image, wanted) && !(image && holdsNull));
        } catch (std::out_of_range const&) {
            KXMD_REQUIRE(_files.empty());
        } catch (std::invalid_argument const&) {
            KXMD_REQUIRE(isAnyNameless(wanted));
        }
    }

    void askForCompositeLater(KXSize wanted)
    {
        try {
            bool const isNamed = !_controller->cacheNameForCompositeFiles(_files, wanted).empty();
            expect(
                _controller->compositeThumbnailForFiles(_files, wanted, handler(wanted)), isNamed);
        } catch (std::invalid_argument const&) {
            KXMD_REQUIRE(isAnyNameless(wanted));
        }
    }

    bool isAnyNameless(KXSize wanted) const
    {
        return std::ranges::any_of(_files, [&](auto const& file) {
            return file && _controller->cacheNameForFile(*file, wanted).empty();
        });
    }

    void store(std::string const& path, KXSize wanted)
    {
        auto const image = KXImage::imageWithSize({ 7, 9 });
        _controller->setThumbnailForPath(path, image, wanted);
        auto const scaled = _controller->scaleImage(image, wanted);
        constexpr std::size_t budget = 4096;
        bool const isKept = scaled && !path.empty() && scaled->pixels().size() <= budget;
        if (isKept && !isBusy())
            KXMD_REQUIRE(_controller->thumbnailExistsForPath(path, wanted));
        auto const jpg = _controller->jpgRepresentationOfImage(image);
        KXMD_REQUIRE(
            _controller->jpgRepresentationOfImage(image).bytes().data() == jpg.bytes().data());
    }

    HostMachine const& _machine;
    KXMDThumbnailController::Ref const _controller;
    Files const _files;
    std::string const _path;
    std::size_t _expected { 0 };
    std::size_t _called { 0 };
};

void checkMetadata(HostMachine const& machine, KXDCSimpleFile& file)
{
    auto const controller = KXMDFileMetaController::createWithPlatform(machine.platform);
    std::promise<KXMDFileMeta::Ref> answer;
    controller->fileMetaForFile(std::make_shared<KXDCSimpleFile>(file.sourcePath()),
        [&answer](KXMDFileMeta::Ref later) { answer.set_value(std::move(later)); });
    auto const meta = controller->fileMetaForFile(file);
    auto const later = answer.get_future().get();
    KXMD_REQUIRE(later && later->filesize() == meta->filesize());
    KXMD_REQUIRE(meta && !meta->readError() == !file.sourcePath().ends_with("-none"));
    controller->mergeFileMetaIntoFile(*meta, file);
    for (auto const key : { KXMDMetadataKeyName, KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum,
             KXMDMetadataKeyAlbumArtist })
        KXMD_REQUIRE(
            KXTextOfValue(file.metadataForKey(key)) == meta->metadataForKey(key).value_or(""));
    if (auto const name = meta->metadataForKey(KXMDMetadataKeyName))
        KXMD_REQUIRE(file.name() == name);
    file.setMetadataForKey(std::shared_ptr<KXObject>(meta), "FileMetaObject");
}

/// A file as long as predicted comes from an edit that is called safe.
void checkCover(
    KXMDThumbnailController::Ref const& controller, KXDCFileProxy const& proxy, Bytes const& bytes)
{
    KXMDFileProcessorAddAlbumCover const processor(controller);
    auto const source = immutableReader(bytes.data(), bytes.size());
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*source);
    std::uint64_t const predicted = processor.processedFilesizeForFileProxy(proxy, bytes.size());
    auto const processed
        = processor.processedFileDataForFileProxy(proxy, mutableReader(bytes.data(), bytes.size()));
    KXMD_REQUIRE(processed && !processor.processedFileDataForFileProxy(proxy, nullptr));
    if (!meta || !meta->canInsertAlbumCover()) {
        KXMD_REQUIRE(processed->length() == bytes.size() && predicted == bytes.size());
        return;
    }
}

void checkCleaning(HostMachine const& machine, KXDCFileProxy const& proxy, Bytes const& bytes)
{
    KXMDFileProcessorCleanIPhoneVideo const processor(machine.platform);
    auto const source = immutableReader(bytes.data(), bytes.size());
    bool const isSafe = !KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*source);
    auto const cleaned = processor.processedFileDataForFileProxy(proxy, nullptr);
    KXMD_REQUIRE(cleaned && cleaned->length() <= bytes.size());
    if (isSafe)
        KXMD_REQUIRE(
            processor.processedFilesizeForFileProxy(proxy, bytes.size()) == cleaned->length());
    using Fault = FastFiles::Fault;
    bool const isChanged = cleaned->length() != bytes.size();
    for (Fault const fault : { Fault::reading, Fault::writing, Fault::exception }) {
        machine.files->setFault(fault);
        try {
            auto const uncleaned = processor.processedFileDataForFileProxy(proxy, nullptr);
            KXMD_REQUIRE(uncleaned && uncleaned->length() == bytes.size());
            KXMD_REQUIRE(!isChanged || fault != Fault::exception);
        } catch (std::runtime_error const&) {
            KXMD_REQUIRE(isChanged && fault == Fault::exception);
        }
    }
    machine.files->setFault(Fault::none);
}

void checkConversion(HostMachine const& machine, KXDCFileProxy const& proxy, bool isFailing)
{
    machine.taskRunner->setIsFailing(isFailing);
    KXMDFileProcessorConvertALAC const processor(machine.platform);
    auto const converted = processor.processedFileDataForFileProxy(proxy, nullptr);
    KXMD_REQUIRE(!converted == isFailing);
    if (converted)
        KXMD_REQUIRE(processor.processedFilesizeForFileProxy(proxy, 0) == converted->length());
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    KXSetLogSink([](std::string_view, std::string_view text) { KXMD_REQUIRE(!text.empty()); });
    static HostMachine const machine;
    static std::string const path = machine.folders->applicationTempFolder() + "/source";
    Choices choices(bytes, length);
    checkCache(choices);
    bool const isFailing = choices.next<std::uint8_t>() % 2;
    auto const files = filesOf(choices, path);
    int questions = choices.next<std::uint8_t>() % 16;
    Bytes content;
    Asker asker(machine, files, path);
    for (; questions; --questions)
        asker.ask(choices);
    content.assign(choices.rest().begin(), choices.rest().end());
    KXMD_REQUIRE(machine.platform->fileManager->writeBytesToFile(content, path));
    asker.finish();

    auto const file = std::make_shared<KXDCSimpleFile>(path);
    KXDCSimpleFileProxy const proxy(file, "/phone/file");
    checkMetadata(machine, *file);
    checkMetadata(machine, *std::make_shared<KXDCSimpleFile>(path + "-none"));
    checkCover(asker.controller(), proxy, content);
    checkCleaning(machine, proxy, content);
    checkConversion(machine, proxy, isFailing);
    return 0;
}
