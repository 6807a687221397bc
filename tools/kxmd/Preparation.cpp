#include "Preparation.h"

#include "ContentType.h"
#include "CoverSafety.h"
#include "OutputFile.h"
#include "SourceFile.h"
#include "TemporaryFolder.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/base/KXMutableAbstractData.h>
#include <kxmd/core/KXMDFileMetaController.h>
#include <kxmd/processors/KXMDFileProcessorAddAlbumCover.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>
#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <strings.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr KXSize largeEnough { 200, 200 };
constexpr KXSize coverSize { 256, 256 };
constexpr std::uint64_t largeFile = std::uint64_t { 64 } << 20; // Bytes.

/// Files are held whole while they are edited, and their pictures beside them.
std::uint64_t largestEditedFile()
{
    auto const pages = static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES));
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 4;
}

/// Music worth converting. A film would lose its pictures.
bool isLosslessAudio(KXMDFileMeta const& meta)
{
    return !meta.containsVideo()
        && std::ranges::any_of(meta.audioCodecsInfo(),
            [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; });
}

/// The preparation of one file.
class Preparation {
public:
    Preparation(
        PreparationJob const& job, PreparationOptions const& options, KXPlatform::Ref platform)
        : _options(options)
        , _platform(std::move(platform))
        , _convertedTarget(job.convertedTarget)
        , _source(job.source)
        , _file(std::make_shared<KXDCSimpleFile>(job.source))
    {
        _outcome.source = job.source;
        _outcome.target = job.target;
    }

    PreparationOutcome run()
    {
        _outcome.error = _source.error();
        if (_outcome.error.empty())
            prepare();
        return std::move(_outcome);
    }

private:
    void prepare()
    {
        _outcome.sizeBefore = _outcome.predictedSize = _source.size();
        readTags();
        if (!isWhollyRead(_meta->readError()))
            return;
        if (_options.converts && isLosslessAudio(*_meta))
            convert();
        else if (_options.cleans && isRecording())
            clean();
        if (_outcome.isDone() && _options.insertsCovers && lacksCover())
            insertCover();
        if (_outcome.isDone())
            write();
    }

    void readTags()
    {
        auto const& controller = KXMDFileMetaController::sharedController();
        setMeta(controller->fileMetaForFile(*_file));
        controller->mergeFileMetaIntoFile(*_meta, *_file);
        if (auto picture = _options.folderPictures.pictureBeside(_outcome.source); !picture.empty())
            _file->setMetadataForKey(std::move(picture), "ThumbnailPath");
        bool const isMusic = !_meta->audioCodecsInfo().empty() && !_meta->containsVideo();
        bool const isUnknown = _meta->metaType() == KXMDMetaTypeUnknown;
        _outcome.isAudio = isMusic || (isUnknown && isSound(_outcome.source, _source.descriptor()));
    }

    void setMeta(KXMDFileMeta::Ref meta)
    {
        _meta = std::move(meta);
        _file->setMetadataForKey(std::shared_ptr<KXObject>(_meta), "FileMetaObject");
    }

    /// A video without a title comes from a phone; one with a title is a film, whose tags stay.
    bool isRecording() const
    {
        return _meta->metaType() == KXMDMetaTypeMP4 && _meta->containsVideo()
            && !_meta->metadataForKey(KXMDMetadataKeyName);
    }

    /// Whether neither the tags nor the thumbnail service has a picture large enough for a phone.
    bool lacksCover() const
    {
        bool const canHaveOne = _outcome.isAudio && _meta->canInsertAlbumCover();
        if (!canHaveOne || _meta->hasValidAlbumCover())
            return false;
        constexpr KXSize asItIs { 4096, 4096 };
        auto const embedded = _data // A conversion may have lost what the source had.
            ? _meta->albumCoverFromData(*_data)
            : _platform->thumbnailService->imageForPath(_outcome.source, asItIs);
        return !embedded || embedded->size().width < largeEnough.width
            || embedded->size().height < largeEnough.height;
    }

    KXDCSimpleFileProxy proxy() const { return { _file, _outcome.target }; }

    /// Counts a step, with the size that its processor predicts.
    void use(KXDCFileProcessor const& processor, PreparationStep step)
    {
        _outcome.predictedSize
            = processor.processedFilesizeForFileProxy(proxy(), _outcome.predictedSize);
        _outcome.steps.push_back(step);
    }

    /// The same as before `use`: the processor could not do it.
    void takeBack(std::uint64_t predictedSize, char const* remark)
    {
        _outcome.steps.pop_back();
        _outcome.predictedSize = predictedSize;
        _outcome.remark = remark;
    }

    /// A platform that leaves nothing behind; null, with an error, when there is none.
    KXPlatform::Ref platformWithTemporaryFolder()
    {
        _folder.emplace(_platform);
        if (!_folder->platform())
            _outcome.error = "there is no temporary folder to work in";
        return _folder->platform();
    }

    void convert()
    {
        auto const platform = platformWithTemporaryFolder();
        if (!platform)
            return;
        KXMDFileProcessorConvertALAC const processor(platform);
        use(processor, PreparationStep::conversion);
        _data = processor.processedFileDataForFileProxy(proxy(), nullptr);
        auto const meta = _data ? KXMDFileMeta::fileMetaWithAbstractData(*_data) : nullptr;
        if (!meta) {
            _outcome.error = "cannot be converted";
            return;
        }
        _isConverted = true;
        setMeta(meta); // The next processor is asked about the file that there is now.
        _outcome.target = _convertedTarget;
    }

    void clean()
    {
        auto const source = KXAbstractData::abstractDataWithPath(_outcome.source);
        if (!source) {
            _outcome.error = "cannot be read";
            return;
        }
        if (!mayEdit(_source.size()))
            return;
        using Processor = KXMDFileProcessorCleanIPhoneVideo;
        bool const isClean = Processor::cleanedSizeOfData(*source) == source->length();
        auto const danger = isClean ? std::nullopt : Processor::reasonAgainstCleaningData(*source);
        if (!isWhollyRead(source->readError()) || isClean || isDangerous(danger))
            return;
        auto const platform = platformWithTemporaryFolder();
        if (!platform)
            return;
        Processor const processor(platform);
        use(processor, PreparationStep::cleaning);
        _data = processor.processedFileDataForFileProxy(proxy(), nullptr);
        if (!_data || _data->length() != _outcome.predictedSize)
            _outcome.error = "cannot be cleaned";
    }

    void insertCover()
    {
        KXMDFileProcessorAddAlbumCover const processor;
        auto const& controller = KXMDThumbnailController::sharedController();
        auto const picture = controller->thumbnailForFile(*_file, coverSize);
        if (!picture || !mayEdit(_data ? _data->length() : _source.size()))
            return;
        auto const data = wholeFile();
        if (!data) {
            _outcome.error = "cannot be read as a whole";
            return;
        }
        auto const reader = KXMutableAbstractData::abstractDataWithData(data);
        auto const encoded = controller->jpgRepresentationOfImage(picture);
        if (isDangerous(reasonAgainstAddingCover(*_meta, encoded, *reader)))
            return;
        std::uint64_t const size = _outcome.predictedSize;
        use(processor, PreparationStep::coverInsertion);
        auto const processed = processor.processedFileDataForFileProxy(proxy(), reader);
        if (processed != reader)
            _data = processed;
        else // Its buffer may have lost the old covers; what there was before is written.
            takeBack(size, "copied as it is: no cover can be inserted");
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

    /// Whether a file of that size may be held in memory; waits until no other large one is.
    bool mayEdit(std::uint64_t size)
    {
        if (size > largestEditedFile()) {
            _outcome.remark = "copied as it is: too large to be edited in memory";
            return false;
        }
        if (size > largeFile && !_largeFileLock.owns_lock())
            _largeFileLock = std::unique_lock(_options.largeFiles);
        return true;
    }

    bool isWhollyRead(std::error_code error)
    {
        if (error)
            _outcome.error = problemOfReading(error);
        return !error;
    }

    bool isDangerous(std::optional<std::string> const& reason)
    {
        if (reason)
            _outcome.remark = "copied as it is: " + *reason;
        return reason.has_value();
    }

    void write()
    {
        auto target = std::make_unique<AtomicFile>(_outcome.target);
        bool const isWritten = target->open(_source.permissions())
            && (_data ? appendData(*_data, *target)
                      : target->writeContentsOf(_source.descriptor()));
        if (!target->error().empty())
            _outcome.error = target->errorWithPath();
        else if (!isWritten || _source.hasChanged())
            _outcome.error = "changed while it was read";
        if (!_outcome.isDone())
            return;
        _outcome.file = std::move(target);
        _outcome.size = _data ? _data->length() : _source.size();
        // The size of a conversion is only known when it is done.
        if (_outcome.size != _outcome.predictedSize && !_isConverted)
            _outcome.remark = std::to_string(_outcome.predictedSize) + " bytes were predicted";
    }

    PreparationOptions const& _options;
    KXPlatform::Ref const _platform;
    std::string const _convertedTarget;
    SourceFile const _source;
    std::unique_lock<std::mutex> _largeFileLock;
    std::optional<TemporaryFolder> _folder; ///< Outlives the readers over what is in it.
    KXDCFile::Ref const _file;
    KXMDFileMeta::Ref _meta;
    KXAbstractData::Ref _data; ///< What is written instead of the source; null for a copy.
    bool _isConverted { false };
    PreparationOutcome _outcome;
};

}

PreparationOutcome preparedFile(
    PreparationJob const& job, PreparationOptions const& options, KXPlatform::Ref const& platform)
{
    return Preparation(job, options, platform).run();
}

std::string convertedTarget(std::string const& target)
{
    // Of files that may hold lossless audio; a dot in a title begins no extension.
    constexpr std::array<std::string_view, 9> extensions { ".m4a", ".m4b", ".m4r", ".mp4", ".m4v",
        ".mov", ".qt", ".3gp", ".alac" };
    auto const endsWith = [&target](std::string_view extension) {
        std::size_t const length = target.size() - std::min(target.size(), extension.size());
        bool const hasName = length && target[length - 1] != '/';
        return hasName && ::strcasecmp(target.c_str() + length, extension.data()) == 0;
    };
    bool const hasExtension = std::ranges::any_of(extensions, endsWith);
    return (hasExtension ? target.substr(0, target.rfind('.')) : target) + ".m4a";
}
