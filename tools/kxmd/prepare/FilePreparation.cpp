#include "FilePreparation.h"

#include "Extensions.h"
#include "Sound.h"
#include "shared/AtomicFile.h"
#include "shared/EditedCopy.h"
#include "shared/LosslessSound.h"
#include "tools/kxmd/Desktop.h"

#include <kxmd/core/KXMDFileMetaController.h>

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

namespace {

/// Whether the name says that a file is music, whatever its brand is.
bool isNamedAsMusic(std::string_view path)
{
    constexpr std::array<std::string_view, 4> extensions { ".m4a", ".m4b", ".m4p", ".m4r" };
    return hasExtensionOf(extensions, path);
}

bool isNamedAsMP3(std::string_view path)
{
    constexpr std::array<std::string_view, 1> extensions { ".mp3" };
    return hasExtensionOf(extensions, path);
}

/// Whether the name says that a file is sound, of which not every desktop knows the type.
bool isNamedAsSound(std::string_view path)
{
    constexpr std::array<std::string_view, 8> extensions { ".ape", ".au", ".caf", ".mka", ".rf64",
        ".tta", ".w64", ".wv" };
    return hasExtensionOf(extensions, path);
}

bool isNamedAsLossless(std::string_view path)
{
    constexpr std::array<std::string_view, 9> extensions { ".aif", ".aifc", ".aiff", ".ape",
        ".flac", ".tta", ".wav", ".wave", ".wv" };
    return hasExtensionOf(extensions, path);
}

}

FilePreparation::FilePreparation(PreparationJob const& job, PreparationOptions const& options,
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

PreparationOutcome FilePreparation::run()
{
    _outcome.error = _source.error();
    if (_outcome.error.empty())
        prepare();
    if (!_outcome.isDone())
        _outcome.action = PreparationAction::failed;
    return std::move(_outcome);
}

void FilePreparation::prepare()
{
    _outcome.sizeBefore = _outcome.predictedSize = _source.size();
    _outcome.modified = _source.modified();
    _outcome.inode = _source.inode();
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
bool FilePreparation::sumUp()
{
    _outcome.checksum = desktop().checksumOf(_source.descriptor());
    if (_outcome.checksum.empty()) {
        _outcome.error = "cannot be read";
        return false;
    }
    if (_outcome.checksum != _job.knownChecksum)
        return true;
    _outcome.action = PreparationAction::unchanged;
    return false;
}

void FilePreparation::readTags()
{
    _reader = KXAbstractData::abstractDataWithPath(_outcome.source);
    setMeta(_reader ? KXMDFileMeta::fileMetaWithAnyAbstractData(*_reader)
                    : KXMDFileMeta::fileMetaWithSourcePath(_outcome.source));
    KXMDFileMetaController::sharedController()->mergeFileMetaIntoFile(*_meta, *_file);
    if (_reader && !_meta->readError() && _meta->metaType() != KXMDMetaTypeMP3)
        _kind = KXMP4MovieKind::kindOfData(*_reader);
    _file->setHasDRM(_kind && _kind->isProtected);
    _isMusic = isMusic();
    bool const isVideo = _kind && _kind->hasMovingPictures;
    _outcome.kind = _isMusic ? PreparationKind::music
        : isVideo            ? PreparationKind::video
                             : PreparationKind::other;
    if (_isMusic)
        _outcome.song = song();
}

void FilePreparation::setMeta(KXMDFileMeta::Ref meta)
{
    _meta = std::move(meta);
    _file->setMetadataForKey(std::shared_ptr<KXObject>(_meta), "FileMetaObject");
}

bool FilePreparation::isMusic() const
{
    if (_kind)
        return _kind->isMusic || (!_meta->audioCodecsInfo().empty() && isNamedAsMusic(_job.source));
    bool const isUnknown = _meta->metaType() == KXMDMetaTypeUnknown;
    if (!isUnknown)
        return !_meta->audioCodecsInfo().empty();
    return isNamedAsSound(_job.source) || desktop().isSound(_job.source, _source.descriptor());
}

/// What the movie library knows of the file; asked for once.
std::optional<KXMediaProbe> const& FilePreparation::probe()
{
    if (!_isProbed)
        _probe = KXMediaProbe::probeWithSourcePath(_job.source, _platform);
    _isProbed = true;
    return _probe;
}

PreparedSong FilePreparation::song()
{
    PreparedSong song { .isProtected = _file->hasDRM(),
        .title = _meta->metadataForKey(KXMDMetadataKeyName).value_or(""),
        .artist = _meta->metadataForKey(KXMDMetadataKeyArtist).value_or("") };
    if (_options.listsSongs && !_options.isDryRun && probe())
        addProbeTo(song, *probe());
    return song;
}

/// Music worth converting. A film would lose its pictures, and what is protected does not play.
bool FilePreparation::isLosslessMusic()
{
    if (_file->hasDRM() || (_kind && _kind->hasMovingPictures))
        return false;
    auto const codecs = _meta->audioCodecsInfo();
    auto const isALAC = [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; };
    auto const isKnown = [](KXMDCodecInfo const& info) { return info.codec() != 0; };
    if (std::ranges::any_of(codecs, isALAC))
        return true;
    bool const isKnownSound
        = _kind ? std::ranges::all_of(codecs, isKnown) : isNamedAsMP3(_job.source);
    if (!_isMusic || isKnownSound)
        return false;
    if (!probe() && isNamedAsLossless(_job.source))
        remark("cannot be converted: it is damaged, or nothing here can decode it");
    return probe() && isLossless(*probe());
}

bool FilePreparation::isRecording() const { return _kind && _kind->isRecording() && !_isMusic; }

bool FilePreparation::isWhollyRead()
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

void FilePreparation::finish()
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

void FilePreparation::write(SourceFile const& base)
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
