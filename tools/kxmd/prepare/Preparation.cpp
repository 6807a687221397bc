#include "Preparation.h"

#include "Checksum.h"
#include "Sound.h"
#include "tools/kxmd/ContentType.h"
#include "tools/kxmd/CoverSafety.h"
#include "tools/kxmd/OutputFile.h"
#include "tools/kxmd/SourceFile.h"
#include "tools/kxmd/TemporaryFolder.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/base/KXMutableAbstractData.h>
#include <kxmd/core/KXMDCoverPlace.h>
#include <kxmd/core/KXMDFileMetaController.h>
#include <kxmd/mp4/KXMP4CameraData.h>
#include <kxmd/mp4/KXMP4MovieKind.h>
#include <kxmd/mp4/safety/KXMP4EditSafety.h>
#include <kxmd/processors/KXMDFileProcessorAddAlbumCover.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>
#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <strings.h>
#include <utility>

namespace {

constexpr KXSize largeEnough { 200, 200 };
constexpr unsigned processorsCoverSize = 256; // Pixels a side.

bool endsWith(std::string_view name, std::string_view extension)
{
    return name.size() > extension.size()
        && ::strncasecmp(
               name.data() + name.size() - extension.size(), extension.data(), extension.size())
        == 0;
}

bool endsWithOneOf(std::string_view name, std::span<std::string_view const> extensions)
{
    return std::ranges::any_of(
        extensions, [name](std::string_view extension) { return endsWith(name, extension); });
}

/// Whether the name says that a file is music, whatever its brand is.
bool isNamedAsMusic(std::string_view path)
{
    constexpr std::array<std::string_view, 4> extensions { ".m4a", ".m4b", ".m4p", ".m4r" };
    return endsWithOneOf(path, extensions);
}

/// Whether the name says that a file is sound, of which not every desktop knows the type.
bool isNamedAsSound(std::string_view path)
{
    constexpr std::array<std::string_view, 8> extensions { ".ape", ".au", ".caf", ".mka", ".rf64",
        ".tta", ".w64", ".wv" };
    return endsWithOneOf(path, extensions);
}

/// The preparation of one file.
class Preparation {
public:
    Preparation(PreparationJob const& job, PreparationOptions const& options,
        FolderPictures& folderPictures, KXPlatform::Ref platform)
        : _job(job)
        , _options(options)
        , _folderPictures(folderPictures)
        , _platform(std::move(platform))
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
        if (!_outcome.isDone())
            _outcome.action = PreparationAction::failed;
        return std::move(_outcome);
    }

private:
    void prepare()
    {
        _outcome.sizeBefore = _outcome.predictedSize = _source.size();
        _outcome.modified = _source.modified();
        if (_options.sumsUp && !sumUp())
            return;
        readTags();
        if (!isWhollyRead())
            return;
        try {
            edit();
        } catch (std::bad_alloc const&) {
            leaveAsItIs("there is not enough memory to edit it");
        }
        if (_outcome.isLeftAsItWas && _outcome.steps.empty())
            _outcome.remark.insert(0, "copied as it is: ");
        if (isWhollyRead())
            finish();
    }

    /// Finds out the source's checksum. False when there is nothing left to do.
    bool sumUp()
    {
        _outcome.checksum = checksumOf(_source.descriptor());
        if (_outcome.checksum.empty()) {
            _outcome.error = "cannot be read";
            return false;
        }
        if (_outcome.checksum != _job.knownChecksum)
            return true;
        _outcome.action = PreparationAction::unchanged;
        return false;
    }

    // What the file is.

    void readTags()
    {
        _reader = KXAbstractData::abstractDataWithPath(_outcome.source);
        setMeta(_reader ? KXMDFileMeta::fileMetaWithAnyAbstractData(*_reader)
                        : KXMDFileMeta::fileMetaWithSourcePath(_outcome.source));
        KXMDFileMetaController::sharedController()->mergeFileMetaIntoFile(*_meta, *_file);
        if (_reader && !_meta->readError() && _meta->metaType() != KXMDMetaTypeMP3)
            _kind = KXMP4MovieKind::kindOfData(*_reader);
        _file->setHasDRM(_kind && _kind->isProtected);
        _isMusic = isMusic();
        if (_isMusic)
            _outcome.song = song();
    }

    void setMeta(KXMDFileMeta::Ref meta)
    {
        _meta = std::move(meta);
        _file->setMetadataForKey(std::shared_ptr<KXObject>(_meta), "FileMetaObject");
    }

    bool isMusic() const
    {
        if (_kind)
            return _kind->isMusic
                || (!_meta->audioCodecsInfo().empty() && isNamedAsMusic(_job.source));
        bool const isUnknown = _meta->metaType() == KXMDMetaTypeUnknown;
        if (!isUnknown)
            return !_meta->audioCodecsInfo().empty();
        return isNamedAsSound(_job.source) || isSound(_job.source, _source.descriptor());
    }

    /// What the movie library knows of the file; asked for once.
    std::optional<KXMediaProbe> const& probe()
    {
        if (!_isProbed)
            _probe = KXMediaProbe::probeWithSourcePath(_job.source, _platform);
        _isProbed = true;
        return _probe;
    }

    PreparedSong song()
    {
        PreparedSong song { .isProtected = _file->hasDRM(),
            .title = _meta->metadataForKey(KXMDMetadataKeyName).value_or(""),
            .artist = _meta->metadataForKey(KXMDMetadataKeyArtist).value_or("") };
        if (_options.listsSongs && !_options.isDryRun && probe())
            addProbeTo(song, *probe());
        return song;
    }

    /// Music worth converting. A film would lose its pictures, and what is protected does not play.
    bool isLosslessMusic()
    {
        if (_file->hasDRM() || (_kind && _kind->hasMovingPictures))
            return false;
        auto const codecs = _meta->audioCodecsInfo();
        auto const isALAC = [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; };
        auto const isKnown = [](KXMDCodecInfo const& info) { return info.codec() != 0; };
        if (std::ranges::any_of(codecs, isALAC))
            return true;
        bool const isKnownSound
            = _kind ? std::ranges::all_of(codecs, isKnown) : endsWith(_job.source, ".mp3");
        return _isMusic && !isKnownSound && probe() && isLossless(*probe());
    }

    bool isRecording() const { return _kind && _kind->isRecording() && !_isMusic; }

    // What is done to it.

    void edit()
    {
        if (_options.converts && isLosslessMusic())
            convert();
        else if (_options.cleans && isRecording())
            clean();
        if (_options.insertsCovers && _isMusic)
            completeCover();
    }

    KXDCSimpleFileProxy proxy() const { return { _file, _outcome.target }; }

    /// Counts a step, with the size that its processor predicts.
    void use(KXDCFileProcessor const& processor, PreparationStep step)
    {
        _outcome.predictedSize
            = processor.processedFilesizeForFileProxy(proxy(), _outcome.predictedSize);
        _outcome.steps.push_back(step);
    }

    /// What is not done to a file, with the size that it has without that.
    void takeBack(std::uint64_t predictedSize, std::string const& reason)
    {
        _outcome.steps.pop_back();
        _outcome.predictedSize = predictedSize;
        remark(reason);
    }

    void remark(std::string const& reason)
    {
        _outcome.remark = reason;
        _outcome.isLeftAsItWas = true;
    }

    /// Drops all that was made so far.
    void leaveAsItIs(std::string const& reason)
    {
        _edited.reset();
        _converted.reset();
        _reader = KXAbstractData::abstractDataWithPath(_job.source);
        _outcome.steps.clear();
        _outcome.target = _job.target;
        _outcome.predictedSize = _source.size();
        remark(reason);
    }

    /// What was made so far, to be edited on.
    KXMutableData::Ref edited() const
    {
        return _edited ? _edited : std::make_shared<KXMutableData>(_reader);
    }

    void convert()
    {
        if (_options.isDryRun)
            return estimateConversion();
        _folder.emplace(_platform);
        if (!_folder->platform())
            return remark("there is no temporary folder to convert it in");
        KXMDFileProcessorConvertALAC const processor(_folder->platform());
        use(processor, PreparationStep::conversion);
        auto const data = processor.processedFileDataForFileProxy(proxy(), nullptr);
        auto const meta = data ? KXMDFileMeta::fileMetaWithAbstractData(*data) : nullptr;
        _converted.emplace(processor.pathToCacheForFile(*_file));
        if (!meta || !_converted->error().empty())
            return leaveAsItIs("cannot be converted");
        _reader = data;
        setMeta(meta); // The next processor is asked about the file that there is now.
        _outcome.target = _job.convertedTarget;
    }

    void estimateConversion()
    {
        _outcome.steps.push_back(PreparationStep::conversion);
        _outcome.target = _job.convertedTarget;
        if (probe() && probe()->duration > 0)
            _outcome.predictedSize = convertedSizeOf(*probe());
        // The copy can take a cover, whatever the source is.
        _isEstimated = true;
    }

    void clean()
    {
        auto const data = edited();
        if (!removeUserData(data))
            return;
        if (!_options.keepsMetadata)
            removeCameraData(data);
        if (_outcome.has(PreparationStep::cleaning))
            _edited = data;
    }

    /// False, with a remark, when it has to stay.
    bool removeUserData(KXMutableData::Ref const& data)
    {
        using Processor = KXMDFileProcessorCleanIPhoneVideo;
        if (Processor::cleanedSizeOfData(*_reader) == _reader->length())
            return true;
        if (auto const danger = Processor::reasonAgainstCleaningData(*_reader)) {
            remark(*danger);
            return false;
        }
        std::uint64_t const size = _outcome.predictedSize;
        use(Processor(_platform), PreparationStep::cleaning);
        if (Processor::cleanData(data) && data->length() == _outcome.predictedSize)
            return true;
        takeBack(size, "cannot be cleaned");
        return false;
    }

    /// What the camera wrote beside the movie's user data.
    void removeCameraData(KXMutableData::Ref const& data)
    {
        auto const reader = KXMutableAbstractData::abstractDataWithData(data);
        if (auto const danger = KXMP4CameraData::reasonAgainstRemovingFromData(*reader))
            return remark("what the camera wrote cannot all be removed: " + *danger);
        if (!KXMP4CameraData::bytesInData(*reader))
            return;
        if (!KXMP4CameraData::removeFromData(data))
            return remark("what the camera wrote cannot all be removed");
        if (!_outcome.has(PreparationStep::cleaning))
            _outcome.steps.push_back(PreparationStep::cleaning);
        _outcome.predictedSize = data->length();
    }

    // Covers.

    /// Inserts a cover where neither the tags nor the thumbnail service has a picture large enough
    /// for a phone.
    void completeCover()
    {
        bool const hasPlace = _meta->canInsertAlbumCover();
        bool const canTakeOne = _isEstimated || hasPlace || isBare();
        if (hasPlace && _meta->hasValidAlbumCover())
            return;
        _outcome.cover = _folderPictures.stateFor(_outcome.source);
        bool const hasSmallOne = canTakeOne && _meta->albumCoverSizeForEmbeddedTags();
        if (!hasSmallOne && _folderPictures.pictureFor(_outcome.source).empty())
            return;
        if (hasLargePicture())
            _outcome.cover.reset();
        else if (canTakeOne)
            insertCover();
        else
            remark("there is no place for a cover");
    }

    /// Whether the file has no place for a cover, but could have one.
    bool isBare() const { return KXMDCoverPlace::canMakeInData(*_reader); }

    bool hasLargePicture() const
    {
        constexpr KXSize asItIs { 4096, 4096 };
        bool const isMadeNew = _converted.has_value(); // May have lost what the source had.
        auto const picture = isMadeNew
            ? _meta->albumCoverFromData(*_reader)
            : _platform->thumbnailService->imageForPath(_outcome.source, asItIs);
        return picture && picture->size().width >= largeEnough.width
            && picture->size().height >= largeEnough.height;
    }

    void insertCover()
    {
        if (auto path = _folderPictures.pictureFor(_outcome.source); !path.empty())
            _file->setMetadataForKey(std::move(path), "ThumbnailPath");
        double const side = _options.coverSize;
        auto const& controller = KXMDThumbnailController::sharedController();
        auto const picture = controller->thumbnailForFile(*_file, { side, side });
        if (!picture)
            return;
        auto const encoded = controller->jpgRepresentationOfImage(picture);
        if (_isEstimated)
            addToEstimate(encoded);
        else if (isBare())
            addCoverWithPlace(encoded);
        else
            addCover(encoded);
    }

    void addToEstimate(KXData const& encoded)
    {
        _outcome.steps.push_back(PreparationStep::coverInsertion);
        _outcome.predictedSize += encoded.length();
    }

    void addCover(KXData const& encoded)
    {
        if (auto const danger = reasonAgainstAddingCover(*_meta, encoded, *_reader))
            return remark(*danger);
        auto const data = KXMutableAbstractData::abstractDataWithData(edited());
        std::uint64_t const size = _outcome.predictedSize;
        bool isAdded;
        if (_options.coverSize == processorsCoverSize) {
            KXMDFileProcessorAddAlbumCover const processor;
            use(processor, PreparationStep::coverInsertion);
            isAdded = processor.processedFileDataForFileProxy(proxy(), data) != data;
        } else {
            _outcome.steps.push_back(PreparationStep::coverInsertion);
            _outcome.predictedSize = _meta->filesizeWithValidEncodedAlbumCover(encoded);
            isAdded = addEncoded(encoded, data->mutableData());
        }
        if (isAdded)
            _edited = data->mutableData();
        else // It may have lost the old covers; what there was before is written.
            takeBack(size, "no cover can be inserted");
    }

    static bool addEncoded(KXData const& encoded, KXMutableData::Ref const& data)
    {
        auto const reader = KXMutableAbstractData::abstractDataWithData(data);
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
        return meta && meta->addEncodedAlbumCoverToData(encoded, data);
    }

    /// Makes a place for a cover, and puts one there.
    void addCoverWithPlace(KXData const& encoded)
    {
        auto const adding = [&encoded](KXMutableData::Ref const& data) {
            return KXMDCoverPlace::makeInData(data) && addEncoded(encoded, data);
        };
        auto const danger = _kind ? KXMP4EditSafety(*_reader).reasonAgainstEdit(adding)
                                  : KXMDCoverPlace::reasonAgainstMakingInData(*_reader);
        if (danger)
            return remark(*danger);
        auto const data = edited();
        if (!adding(data))
            return remark("no cover can be inserted");
        _edited = data;
        _outcome.steps.push_back(PreparationStep::coverInsertion);
        _outcome.predictedSize = data->length();
    }

    // The result.

    bool isWhollyRead()
    {
        auto error = _meta->readError();
        if (!error && _reader)
            error = _reader->readError();
        if (error)
            _outcome.error = problemOfReading(error);
        else if (!_reader)
            _outcome.error = "cannot be read";
        return _outcome.isDone();
    }

    void finish()
    {
        using Action = PreparationAction;
        bool const isConverted = _outcome.has(PreparationStep::conversion);
        _outcome.action = isConverted ? Action::converted
            : _outcome.steps.empty()  ? Action::copied
                                      : Action::edited;
        _outcome.size = _outcome.predictedSize;
        if (_options.isDryRun)
            return;
        SourceFile const& base = _converted ? *_converted : _source;
        _outcome.size = _edited ? _edited->length() : base.size();
        write(base);
        // The size of a conversion is only known when it is done.
        if (_outcome.isDone() && _outcome.size != _outcome.predictedSize && !isConverted)
            _outcome.remark = std::to_string(_outcome.predictedSize) + " bytes were predicted";
    }

    void write(SourceFile const& base)
    {
        auto target = std::make_unique<AtomicFile>(_outcome.target);
        bool const isWritten = target->open(_source.permissions())
            && (_edited ? appendEdited(*_edited, base.descriptor(), *target)
                        : target->writeRangeOf(base.descriptor(), 0, base.size()));
        if (!target->error().empty())
            _outcome.error = target->errorWithPath();
        else if (target->readError())
            _outcome.error = problemOfReading(target->readError());
        else if (!isWritten || _source.hasChanged())
            _outcome.error = "changed while it was read";
        if (!_outcome.isDone())
            return;
        target->setModificationTime(_source.modificationTime());
        _outcome.file = std::move(target);
    }

    PreparationJob const& _job;
    PreparationOptions const& _options;
    FolderPictures& _folderPictures;
    KXPlatform::Ref const _platform;
    SourceFile const _source;
    std::optional<TemporaryFolder> _folder; ///< Outlives the readers over what is in it.
    std::shared_ptr<KXDCSimpleFile> const _file;
    KXMDFileMeta::Ref _meta;
    KXAbstractData::Ref _reader; ///< Over the source, or what it was converted to.
    std::optional<KXMP4MovieKind> _kind;
    std::optional<KXMediaProbe> _probe;
    bool _isProbed { false };
    bool _isMusic { false };
    std::optional<SourceFile> _converted;
    bool _isEstimated { false }; ///< It would be converted.
    KXMutableData::Ref _edited; ///< What is written; null for the source, or the converted file.
    PreparationOutcome _outcome;
};

}

std::string PreparationOptions::digest() const
{
    std::string text;
    auto const add
        = [&text](std::string const& option) { text += (text.empty() ? "" : " ") + option; };
    if (insertsCovers)
        add("covers=" + std::to_string(coverSize));
    if (cleans)
        add(keepsMetadata ? "clean=userdata" : "clean");
    if (converts)
        add("convert");
    return text;
}

PreparationOutcome preparedFile(PreparationJob const& job, PreparationOptions const& options,
    FolderPictures& folderPictures, KXPlatform::Ref const& platform)
{
    return Preparation(job, options, folderPictures, platform).run();
}

std::string convertedTarget(std::string const& target)
{
    // Of files that may hold lossless audio; a dot in a title begins no extension.
    constexpr std::array<std::string_view, 25> extensions { ".m4a", ".m4b", ".m4r", ".mp4", ".m4v",
        ".mov", ".qt", ".3gp", ".alac", ".flac", ".wav", ".wave", ".w64", ".rf64", ".aif", ".aiff",
        ".aifc", ".caf", ".ape", ".wv", ".tta", ".mka", ".ogg", ".oga", ".au" };
    std::size_t const dot = target.rfind('.');
    bool const isReplaced = endsWithOneOf(target, extensions) && target[dot - 1] != '/';
    return (isReplaced ? target.substr(0, dot) : target) + ".m4a";
}
