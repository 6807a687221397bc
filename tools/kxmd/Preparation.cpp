#include "Preparation.h"

#include "AtomicFile.h"
#include "OutputFile.h"
#include "TemporaryFolder.h"

#include <kxmd/core/KXMDFileMetaController.h>
#include <kxmd/mp4/KXMP4EditSafety.h>
#include <kxmd/processors/KXMDFileProcessorAddAlbumCover.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>
#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace {

/// A file held open, so that it can be told whether it changed.
class Source {
public:
    explicit Source(std::string const& path)
        : _descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
        , _error(_descriptor < 0 ? std::strerror(errno) : "")
        , _before(state())
    {
    }
    ~Source()
    {
        if (_descriptor >= 0)
            ::close(_descriptor);
    }
    Source(Source const&) = delete;
    Source& operator=(Source const&) = delete;

    int descriptor() const { return _descriptor; }
    std::string const& error() const { return _error; }
    std::uint64_t size() const { return static_cast<std::uint64_t>(std::get<0>(_before)); }
    bool hasChanged() const { return state() != _before; }

private:
    using State = std::tuple<off_t, time_t, long>; ///< Size and time of the last change.

    State state() const
    {
        struct stat status { };
        if (_descriptor >= 0)
            ::fstat(_descriptor, &status);
        return { status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec };
    }

    int const _descriptor;
    std::string const _error;
    State const _before;
};

constexpr KXSize largeEnough { 200, 200 };

/// Files are held whole while they are edited, several at once.
std::uint64_t largestEditedFile()
{
    auto const pages = static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES));
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 4;
}

bool isLossless(KXMDFileMeta const& meta)
{
    return std::ranges::any_of(meta.audioCodecsInfo(),
        [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; });
}

/// The preparation of one file.
class Preparation {
public:
    Preparation(std::string source, std::string target, PreparationOptions const& options,
        KXPlatform::Ref platform)
        : _options(options)
        , _platform(std::move(platform))
        , _source(source)
        , _file(std::make_shared<KXDCSimpleFile>(source))
    {
        _outcome.source = std::move(source);
        _outcome.target = std::move(target);
    }

    PreparationOutcome run()
    {
        std::error_code ignored; // A target that does not exist yet is another file.
        if (!_source.error().empty())
            _outcome.error = _source.error();
        else if (std::filesystem::equivalent(_outcome.source, _outcome.target, ignored))
            _outcome.error = "is its own target";
        else
            prepare();
        return std::move(_outcome);
    }

private:
    void prepare()
    {
        _outcome.sizeBefore = _outcome.predictedSize = _source.size();
        readTags();
        TemporaryFolder const folder(_platform);
        if (folder.platform())
            process(folder.platform());
        else
            _outcome.remark = "there is no temporary folder to work in";
        if (_outcome.error.empty())
            write();
    }

    void readTags()
    {
        auto const& controller = KXMDFileMetaController::sharedController();
        _meta = controller->fileMetaForFile(*_file);
        controller->mergeFileMetaIntoFile(*_meta, *_file);
        _file->setMetadataForKey(std::shared_ptr<KXObject>(_meta), "FileMetaObject");
        if (auto picture = _options.folderPictures.pictureBeside(_outcome.source); !picture.empty())
            _file->setMetadataForKey(std::move(picture), "ThumbnailPath");
        _outcome.isAudio = !_meta->audioCodecsInfo().empty() && !_meta->containsVideo();
    }

    void process(KXPlatform::Ref const& platform)
    {
        if (_options.converts && isLossless(*_meta))
            convert(platform);
        else if (_options.cleans && isRecording())
            clean(platform);
        if (_outcome.error.empty() && _options.insertsCovers && lacksCover())
            insertCover();
    }

    /// A video without a title comes from a phone; one with a title is a film, whose tags stay.
    bool isRecording() const
    {
        return _meta->metaType() == KXMDMetaTypeMP4 && _meta->containsVideo()
            && !_meta->metadataForKey(KXMDMetadataKeyName);
    }

    /// Whether no judgement finds a picture of the size that a phone shows.
    bool lacksCover() const
    {
        bool const canHaveOne = _outcome.isAudio && _meta->canInsertAlbumCover();
        if (!canHaveOne || _meta->hasValidAlbumCover())
            return false;
        constexpr KXSize asItIs { 4096, 4096 };
        auto const embedded = _platform->thumbnailService->imageForPath(_outcome.source, asItIs);
        return !embedded || embedded->size().width < largeEnough.width
            || embedded->size().height < largeEnough.height;
    }

    void use(KXDCFileProcessor const& processor, char const* name)
    {
        _outcome.predictedSize
            = processor.processedFilesizeForFileProxy(proxy(), _outcome.predictedSize);
        _outcome.processors.emplace_back(name);
    }

    KXDCSimpleFileProxy proxy() const { return { _file, _outcome.target }; }

    void convert(KXPlatform::Ref const& platform)
    {
        std::string target = convertedTarget(_outcome.target);
        if (target != _outcome.target && !_options.targets.claim(target)) {
            _outcome.error = "another file has the target that it is converted to";
            return;
        }
        KXMDFileProcessorConvertALAC const processor(platform);
        use(processor, "KXMDFileProcessorConvertALAC");
        _data = processor.processedFileDataForFileProxy(proxy(), nullptr);
        if (!_data)
            _outcome.error = "cannot be converted";
        _outcome.target = std::move(target);
    }

    void clean(KXPlatform::Ref const& platform)
    {
        auto const source = KXAbstractData::abstractDataWithPath(_outcome.source);
        if (!source || isTooLargeToEdit())
            return;
        KXMDFileProcessorCleanIPhoneVideo const processor(platform);
        if (processor.processedFilesizeForFileProxy(proxy(), _source.size()) == _source.size())
            return; // There is nothing to remove.
        if (isDangerous(KXMP4EditSafety(*source).reasonAgainstCleaning()))
            return;
        use(processor, "KXMDFileProcessorCleanIPhoneVideo");
        _data = processor.processedFileDataForFileProxy(proxy(), nullptr);
    }

    void insertCover()
    {
        KXMDFileProcessorAddAlbumCover const processor;
        auto const& controller = KXMDThumbnailController::sharedController();
        auto const picture = controller->thumbnailForFile(*_file, { 256, 256 });
        if (!picture || isTooLargeToEdit())
            return;
        auto const data = wholeFile();
        if (!data) {
            _outcome.error = "cannot be read as a whole";
            return;
        }
        auto const reader = KXMutableAbstractData::abstractDataWithData(data);
        if (_meta->metaType() == KXMDMetaTypeMP4
            && isDangerous(KXMP4EditSafety(*reader).reasonAgainstAddingAlbumCoverOfSize(
                _meta->albumCoverSizeForImage(picture))))
            return;
        use(processor, "KXMDFileProcessorAddAlbumCover");
        auto const processed = processor.processedFileDataForFileProxy(proxy(), reader);
        if (processed != reader) {
            _data = processed;
            return;
        }
        // The buffer may have lost its old covers; the file is copied as it is.
        _outcome.processors.pop_back();
        _outcome.predictedSize = _outcome.sizeBefore;
        _outcome.remark = "cannot take a cover";
    }

    /// What was made so far, or the source, in memory.
    KXMutableData::Ref wholeFile() const
    {
        if (!_data)
            return _platform->fileManager->mutableDataWithContentsOfFile(_outcome.source);
        std::vector<std::uint8_t> bytes(_data->length());
        _data->setOffset(0);
        if (!_data->readBytesTo(bytes.data(), bytes.size()))
            return nullptr;
        return std::make_shared<KXMutableData>(std::move(bytes));
    }

    bool isTooLargeToEdit()
    {
        if (_source.size() <= largestEditedFile())
            return false;
        _outcome.remark = "copied as it is: too large to be edited in memory";
        return true;
    }

    bool isDangerous(std::optional<std::string> const& reason)
    {
        if (reason)
            _outcome.remark = "copied as it is: " + *reason;
        return reason.has_value();
    }

    void write()
    {
        AtomicFile target(_outcome.target);
        bool const isWritten = target.open()
            && (_data ? appendData(*_data, target) : target.writeContentsOf(_source.descriptor()))
            && !_source.hasChanged() && target.commit();
        if (!isWritten) {
            _outcome.error = target.error().empty() ? "changed while it was read" : target.error();
            return;
        }
        _outcome.size = _data ? _data->length() : _source.size();
    }

    PreparationOptions const& _options;
    KXPlatform::Ref const _platform;
    Source const _source;
    KXDCFile::Ref const _file;
    KXMDFileMeta::Ref _meta;
    KXAbstractData::Ref _data; ///< What is written instead of the source; null for a copy.
    PreparationOutcome _outcome;
};

}

PreparationOutcome preparedFile(std::string const& source, std::string target,
    PreparationOptions const& options, KXPlatform::Ref const& platform)
{
    return Preparation(source, std::move(target), options, platform).run();
}

std::string convertedTarget(std::string const& target)
{
    std::size_t const slash = target.rfind('/');
    std::size_t const name = slash == std::string::npos ? 0 : slash + 1;
    std::size_t const stop = target.rfind('.');
    bool const hasExtension = stop != std::string::npos && stop > name;
    return (hasExtension ? target.substr(0, stop) : target) + ".m4a";
}
