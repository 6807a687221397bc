#include "FilePreparation.h"
#include "shared/CoverSafety.h"

#include <kxmd/base/KXMutableAbstractData.h>
#include <kxmd/core/KXMDCoverPlace.h>
#include <kxmd/mp4/safety/KXMP4EditSafety.h>
#include <kxmd/processors/KXMDFileProcessorAddAlbumCover.h>

#include <utility>

namespace {

constexpr KXSize largeEnough { 200, 200 };
constexpr unsigned processorsCoverSize = 256; // Pixels a side.

}

/// Inserts a cover where neither the tags nor the thumbnail service has a picture large enough
/// for a phone.
void FilePreparation::completeCover()
{
    bool const hasPlace = _meta->canInsertAlbumCover();
    bool const canTakeOne = _isEstimated || hasPlace || isBare();
    if (hasPlace && _meta->hasValidAlbumCover())
        return;
    _outcome.album = album();
    _outcome.cover = _folderPictures.stateFor(_outcome.source, _outcome.album);
    bool const hasSmallOne = canTakeOne && _meta->albumCoverSizeForEmbeddedTags();
    if (!hasSmallOne && _folderPictures.pictureFor(_outcome.source, _outcome.album).empty()) {
        if (!_outcome.cover->empty())
            remark("no picture beside it can be shown");
        return;
    }
    if (hasLargePicture())
        _outcome.cover.reset();
    else if (canTakeOne)
        insertCover();
    else
        remark("there is no place for a cover");
}

/// The album's name as the copy has it; empty without one.
std::string FilePreparation::album()
{
    if (auto album = _meta->metadataForKey(KXMDMetadataKeyAlbum))
        return *album;
    if (!_isEstimated || !probe())
        return {};
    auto const tag = probe()->tags.find("album"); // Which the converter keeps.
    return tag == probe()->tags.end() ? std::string() : tag->second;
}

/// Whether the file has no place for a cover, but could have one.
bool FilePreparation::isBare()
{
    if (!_isBare)
        _isBare = KXMDCoverPlace::canMakeInData(*_reader);
    return *_isBare;
}

bool FilePreparation::hasLargePicture() const
{
    constexpr KXSize asItIs { 4096, 4096 };
    bool const isMadeNew = _converted.has_value(); // May have lost what the source had.
    auto const picture = isMadeNew
        ? _meta->albumCoverFromData(*_reader)
        : _platform->thumbnailService->imageForPath(_outcome.source, asItIs);
    return picture && picture->size().width >= largeEnough.width
        && picture->size().height >= largeEnough.height;
}

void FilePreparation::insertCover()
{
    auto path = _folderPictures.pictureFor(_outcome.source, _outcome.album);
    if (!path.empty())
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

void FilePreparation::addToEstimate(KXData const& encoded)
{
    _outcome.steps.push_back(PreparationStep::coverInsertion);
    _outcome.predictedSize += encoded.length();
}

void FilePreparation::addCover(KXData const& encoded)
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

bool FilePreparation::addEncoded(KXData const& encoded, KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    return meta && meta->addEncodedAlbumCoverToData(encoded, data);
}

/// Makes a place for a cover, and puts one there.
void FilePreparation::addCoverWithPlace(KXData const& encoded)
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
