// Detection and metadata of any bytes.

#include "FuzzTarget.h"

#include "kxmd/core/KXMDFileMeta.h"

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
    return 0;
}
