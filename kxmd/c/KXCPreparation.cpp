// One file on its way to a phone.

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/base/KXStandardFilesPrivate.h"
#include "kxmd/c/KXCEditPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCFilePrivate.h"
#include "kxmd/c/KXCImagePrivate.h"
#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/mp4/KXMP4CameraData.h"
#include "kxmd/mp4/KXMP4MovieKind.h"
#include "kxmd/platform/KXPlatform.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "kxmd/processors/KXMDFileProcessorConvertALAC.h"
#include "shared/LosslessSound.h"
#include "shared/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <memory>

namespace {

constexpr unsigned allSteps
    = KXMD_STEP_CONVERT | KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA | KXMD_STEP_INSERT_COVER;
constexpr KXSize coverSize { 256, 256 };

/// What the caller wants.
struct Order {
    char const* source;
    char const* target;
    unsigned steps;
    void const* cover;
    std::size_t coverLength;

    bool wants(unsigned step) const { return steps & step; }
};

/// The preparation of one file.
class Preparation {
public:
    explicit Preparation(Order const& order);

    /// Prepares the file and writes it; returns the steps that were made.
    unsigned run();

private:
    void read(KXAbstractData::Ref reader);
    bool isLosslessMusic() const;
    bool isRecording() const { return _kind && _kind->isRecording(); }
    bool isMusicWithoutCover() const;
    void convert();
    void cleanUserData();
    void cleanCameraData();
    void insertCover();
    KXData cover() const;
    void makeEdit(KXCEdit const& edit, kxmd_step step);
    void write();

    Order const& _order;
    std::optional<TemporaryFolder> _folder; ///< Outlives the readers over what is in it.
    KXAbstractData::Ref _reader; ///< Over the source, or over what was made of it so far.
    std::optional<SourceFile> _source;
    std::optional<SourceFile> _converted;
    KXMDFileMeta::Ref _meta;
    std::optional<KXMP4MovieKind> _kind;
    KXMutableData::Ref _edited; ///< Null until there is an edit.
    unsigned _done { 0 };
};

Preparation::Preparation(Order const& order)
    : _order(order)
{
    auto reader = KXCReaderOfPath(order.source); // First, since it opens nothing but files.
    KXStandardFiles const standardFiles;
    _source.emplace(order.source);
    if (auto const problem = _source->error(); !problem.empty())
        throw KXCFailure(KXMD_ERROR_OPEN, "cannot be opened: " + problem);
    read(std::move(reader));
}

/// Finds out what the file is that `reader` reads.
void Preparation::read(KXAbstractData::Ref reader)
{
    _reader = std::move(reader);
    _meta = KXMDFileMeta::fileMetaWithAnyAbstractData(*_reader);
    _kind = _meta->metaType() == KXMDMetaTypeMP3 ? std::nullopt
                                                 : KXMP4MovieKind::kindOfData(*_reader);
    KXCRequireWholeRead(*_reader);
}

/// Music worth converting. A film would lose its pictures, and what is protected does not play.
bool Preparation::isLosslessMusic() const
{
    if (_kind && (_kind->isProtected || _kind->hasMovingPictures))
        return false;
    auto const codecs = _meta->audioCodecsInfo();
    auto const isALAC = [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; };
    auto const isUnknown = [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecNone; };
    if (std::ranges::any_of(codecs, isALAC))
        return true;
    if (!codecs.empty() && std::ranges::none_of(codecs, isUnknown))
        return false;
    auto const probe = KXMediaProbe::probeWithSourcePath(_order.source);
    return probe && isLossless(*probe);
}

bool Preparation::isMusicWithoutCover() const
{
    bool const hasPlace = _meta->canInsertAlbumCover();
    if (hasPlace && _meta->hasValidAlbumCover())
        return false;
    bool const isMusic = _kind ? _kind->isMusic : !_meta->audioCodecsInfo().empty();
    return (isMusic && hasPlace) || KXMDCoverPlace::canMakeInData(*_reader);
}

void Preparation::convert()
{
    _folder.emplace(KXPlatform::shared());
    if (!_folder->platform())
        throw KXCFailure(KXMD_ERROR_NOT_POSSIBLE, "there is no temporary folder to convert it in");
    KXMDFileProcessorConvertALAC const processor(_folder->platform());
    auto const file = std::make_shared<KXDCSimpleFile>(_order.source);
    auto converted = processor.processedFileDataForFileProxy(
        KXDCSimpleFileProxy(file, _order.target), nullptr);
    if (!converted)
        KXCFailWithout(KXCDecoder::converter, KXMD_ERROR_NOT_POSSIBLE, "cannot be converted");
    KXStandardFiles const standardFiles;
    _converted.emplace(processor.pathToCacheForFile(*file));
    read(std::move(converted));
    _done |= KXMD_STEP_CONVERT;
}

/// Makes an edit of what there is so far.
void Preparation::makeEdit(KXCEdit const& edit, kxmd_step step)
{
    edit.check();
    auto const edited = _edited ? _edited : std::make_shared<KXMutableData>(_reader);
    edit.makeIn(edited);
    _edited = edited;
    _done |= static_cast<unsigned>(step);
}

void Preparation::cleanUserData()
{
    using Processor = KXMDFileProcessorCleanIPhoneVideo;
    if (Processor::cleanedSizeOfData(*_reader) == _reader->length())
        return;
    makeEdit({ _reader, &Processor::cleanData,
                 [this] { return Processor::reasonAgainstCleaningData(*_reader); },
                 "cannot be cleaned" },
        KXMD_STEP_CLEAN);
}

void Preparation::cleanCameraData()
{
    auto const reader = _edited ? KXMutableAbstractData::abstractDataWithData(_edited) : _reader;
    if (!KXMP4CameraData::bytesInData(*reader))
        return;
    makeEdit({ reader, &KXMP4CameraData::removeFromData,
                 [&reader] { return KXMP4CameraData::reasonAgainstRemovingFromData(*reader); },
                 "what the camera wrote cannot all be removed" },
        KXMD_STEP_CLEAN_CAMERA_DATA);
}

/// The picture to insert, as JPEG; empty when there is none.
KXData Preparation::cover() const
{
    if (_order.cover)
        return KXCAsJPEG(_order.cover, _order.coverLength);
    auto const& service = *KXPlatform::shared()->thumbnailService;
    auto const picture = service.squareForPath(_order.source, coverSize);
    return picture ? KXCEncodedPicture(*picture, KXMD_PICTURE_JPEG) : KXData();
}

void Preparation::insertCover()
{
    KXData const jpeg = cover();
    if (jpeg.length())
        makeEdit(KXCInsertionOf(jpeg, _reader, _meta, true), KXMD_STEP_INSERT_COVER);
}

void Preparation::write()
{
    KXCRequireWholeRead(*_reader);
    if (_source->hasChanged())
        throw KXCFailure(KXMD_ERROR_CHANGED, "changed while it was read");
    auto const data = _edited ? _edited : std::make_shared<KXMutableData>(_reader);
    KXCWriteEdited(*data, _converted ? &*_converted : &*_source,
        { .path = _order.target,
            .permissions = _source->permissions(),
            .modificationTime = _source->modificationTime() });
}

unsigned Preparation::run()
{
    if (_order.wants(KXMD_STEP_CONVERT) && isLosslessMusic())
        convert();
    if (_order.wants(KXMD_STEP_CLEAN) && isRecording())
        cleanUserData();
    if (_order.wants(KXMD_STEP_CLEAN_CAMERA_DATA) && isRecording())
        cleanCameraData();
    if (_order.wants(KXMD_STEP_INSERT_COVER) && isMusicWithoutCover())
        insertCover();
    write();
    return _done;
}

void requirePossible(Order const& order)
{
    KXCRequire(order.source && *order.source, "there is no source");
    KXCRequire(order.target && *order.target, "there is no target");
    KXCRequire(!(order.steps & ~allSteps), "there is no such step");
    KXCRequire(!order.cover || order.coverLength, "there is no picture");
    std::error_code ignored; // A path that does not exist yet is another file.
    KXCRequire(!std::filesystem::equivalent(order.source, order.target, ignored),
        "the target is the source itself");
}

}

bool kxmd_prepare_file(char const* source, char const* target, unsigned steps, void const* cover,
    size_t length, unsigned* done, kxmd_error** error) noexcept
{
    if (done)
        *done = 0;
    return KXCAnswer(error, [&] {
        Order const order { source, target, steps, cover, length };
        requirePossible(order);
        unsigned const made = Preparation(order).run();
        if (done)
            *done = made;
        return true;
    });
}
