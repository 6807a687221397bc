#include "shared/CoverSafety.h"

#include <kxmd/mp3/KXMP3EditSafety.h>
#include <kxmd/mp4/safety/KXMP4EditSafety.h>

std::optional<std::string> reasonAgainstRemovingCover(
    KXMDFileMeta const& meta, KXAbstractData& data)
{
    if (meta.metaType() == KXMDMetaTypeMP4)
        return KXMP4EditSafety(data).reasonAgainstRemovingAlbumCover();
    return KXMP3EditSafety(data).reasonAgainstRemovingAlbumCover();
}

std::optional<std::string> reasonAgainstAddingCover(
    KXMDFileMeta const& meta, KXData const& encodedPicture, KXAbstractData& data)
{
    std::uint64_t const size = meta.albumCoverSizeForEncodedImage(encodedPicture);
    if (meta.metaType() == KXMDMetaTypeMP4)
        return KXMP4EditSafety(data).reasonAgainstAddingAlbumCoverOfSize(size);
    return KXMP3EditSafety(data).reasonAgainstAddingAlbumCoverOfSize(size);
}
