// Detection and metadata of any bytes.

#include "AnyPicture.h"
#include "FuzzTarget.h"

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <vector>

namespace {

KXPlatform::Ref platform()
{
    static KXPlatform::Ref const shared = [] {
        auto own = std::make_shared<KXPlatform>();
        own->pictureLoader = std::make_shared<AnyPicture const>();
        return own;
    }();
    return shared;
}

/// A cover takes as much as is predicted, before it is encoded and after.
void checkCover(KXMDFileMeta& meta, KXAbstractData& data)
{
    meta.setPlatform(platform());
    auto const image = KXImage::imageWithSize({ 2, 2 });
    KXData const jpg = platform()->pictureLoader->jpgRepresentation(*image);
    std::uint64_t const size = meta.albumCoverSizeForImage(image);
    KXMD_REQUIRE(size == meta.albumCoverSizeForEncodedImage(jpg));
    if (auto const* const mp3 = dynamic_cast<KXMDFileMetaMP3*>(&meta))
        KXMD_REQUIRE(mp3->albumCoverFrameDataForImage(image).length() == size);
    if (auto const* const mp4 = dynamic_cast<KXMDFileMetaMP4*>(&meta))
        KXMD_REQUIRE(mp4->albumCoverAtomDataForImage(image).length() == size);
    std::uint64_t const with = meta.filesizeWithValidAlbumCover(image);
    KXMD_REQUIRE(with == meta.filesizeWithValidEncodedAlbumCover(jpg));
    std::vector<std::uint8_t> bytes(data.length());
    data.setOffset(0);
    KXMD_REQUIRE(data.readBytesTo(bytes.data(), bytes.size()));
    auto const one = std::make_shared<KXMutableData>(bytes);
    auto const other = std::make_shared<KXMutableData>(bytes);
    KXMD_REQUIRE(
        meta.addAlbumCoverToData(image, one) == meta.addEncodedAlbumCoverToData(jpg, other));
    KXMD_REQUIRE(std::ranges::equal(one->bytes(), other->bytes()));
    bool const hasCover = meta.albumCoverSizeForEmbeddedTags();
    KXMD_REQUIRE(!meta.albumCoverFromData(data) || hasCover);
}

/// A file that is neither can neither be edited nor described.
void checkEmpty(KXAbstractData& data)
{
    auto const meta = KXMDFileMeta::fileMetaWithAnyAbstractData(data);
    KXMD_REQUIRE(meta->filesize() == data.length());
    meta->setMetadataForKey("one", "key");
    meta->setMetadataForKey("other", "key");
    KXMD_REQUIRE(meta->metadataForKey("key") == "other");
    if (meta->metaType() == KXMDMetaTypeMP3 || meta->metaType() == KXMDMetaTypeMP4)
        return;
    auto const image = KXImage::imageWithSize({ 2, 2 });
    auto const buffer = std::make_shared<KXMutableData>();
    KXData const jpg(std::vector<std::uint8_t>(3));
    KXMD_REQUIRE(!meta->containsVideo() && !meta->albumCoverFromData(data));
    KXMD_REQUIRE(!meta->removeAlbumCoverFromData(buffer));
    KXMD_REQUIRE(!meta->addAlbumCoverToData(image, buffer));
    KXMD_REQUIRE(!meta->addEncodedAlbumCoverToData(jpg, buffer) && !buffer->length());
    KXMD_REQUIRE(!meta->albumCoverSizeForImage(image) && !meta->albumCoverSizeForEncodedImage(jpg));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    auto const data = immutableReader(bytes, length);
    auto const type = KXMDFileMeta::metaTypeForData(*data);
    KXMD_REQUIRE(data->offset() == 0);

    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    KXMD_REQUIRE(meta || type == KXMDMetaTypeMP3);
    auto const again = KXMDFileMeta::fileMetaWithAbstractData(*mutableReader(bytes, length));
    KXMD_REQUIRE(!meta == !again);
    checkEmpty(*data);
    if (!meta)
        return 0;

    KXMD_REQUIRE(meta->filesize() == length);
    for (auto const key : { KXMDMetadataKeyName, KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum,
             KXMDMetadataKeyAlbumArtist }) {
        auto const value = meta->metadataForKey(key);
        KXMD_REQUIRE(value == again->metadataForKey(key));
        // Latin-1 doubles at most.
        KXMD_REQUIRE(!value || (!value->empty() && value->size() <= 2 * length));
    }
    for (auto const& info : meta->videoCodecsInfo())
        KXMD_REQUIRE(!info.description().empty());
    for (auto const& info : meta->audioCodecsInfo())
        KXMD_REQUIRE(!info.description().empty());
    KXMD_REQUIRE(meta->hasValidAlbumCover() == again->hasValidAlbumCover());
    KXMD_REQUIRE(meta->canInsertAlbumCover() == again->canInsertAlbumCover());
    KXMD_REQUIRE(meta->albumCoverSizeForEmbeddedTags() == again->albumCoverSizeForEmbeddedTags());
    checkCover(*meta, *data);
    return 0;
}
