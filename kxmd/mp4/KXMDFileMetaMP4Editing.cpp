#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"
#include "kxmd/mp4/atoms/KXMP4TagValuePrivate.h"
#include "kxmd/platform/KXPlatform.h"

bool KXMDFileMetaMP4::parseMutableData(KXMutableData::Ref const& data)
{
    return parseAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
}

KXMDFileMeta::ImageRef KXMDFileMetaMP4::albumCoverFromData(KXAbstractData& data) const
{
    auto const loader = platform()->pictureLoader;
    for (auto const& cover : atomsWithPath(coverPath)) {
        data.setOffset(cover->offset());
        if (cover->size() > data.remainingLength())
            continue;
        std::uint64_t const length = skipCoverAtomHeaders(data, cover->size());
        if (auto image = loader->imageInData(data, length, {}))
            return image;
    }
    return nullptr;
}

bool KXMDFileMetaMP4::removeAlbumCoverFromData(KXMutableData::Ref const& data)
{
    if (!data || !parseMutableData(data) || !hasChunkOffsetTable())
        return false;
    auto covers = atomsWithPath(coverPath);
    if (!canRemoveInGoodTime(covers.size(), *mp4Atom())) {
        KXLog("Metadata", "KXMDFileMetaMP4->too many album covers, none is removed");
        return false;
    }
    std::size_t left = covers.size(); // Sizes that contradict each other may bring up more.
    for (; !covers.empty(); covers = atomsWithPath(coverPath)) {
        if (!left-- || !covers.back()->removeSelfFromMutableData(*data) || !parseMutableData(data))
            return false;
    }
    return true;
}

bool KXMDFileMetaMP4::addAlbumCoverToData(ImageRef const& image, KXMutableData::Ref const& data)
{
    return addEncodedAlbumCoverToData(encodedAlbumCover(image), data);
}

bool KXMDFileMetaMP4::addEncodedAlbumCoverToData(
    KXData const& picture, KXMutableData::Ref const& data)
{
    // The table is looked for again: a cover of a wrong size may have taken it along.
    if (!removeAlbumCoverFromData(data) || !hasChunkOffsetTable() || !picture.length())
        return false;
    auto const place = placeOfCover(*mp4Atom());
    if (!place)
        return false;
    // A chunk offset table that does not lie in the file makes this false, though the file can
    // still be parsed: its media would not be found.
    KXData const cover = coverAtomWithJPEG(picture.bytes());
    bool const isInserted = place->insertBeforeSelfInMutableData(*data, cover.bytes());
    return parseMutableData(data) && isInserted;
}

KXData KXMDFileMetaMP4::albumCoverAtomDataForImage(ImageRef const& image) const
{
    KXData const picture = encodedAlbumCover(image);
    return picture.length() ? coverAtomWithJPEG(picture.bytes()) : KXData();
}

std::uint64_t KXMDFileMetaMP4::albumCoverSizeForImage(ImageRef const& image) const
{
    return albumCoverSizeForEncodedImage(encodedAlbumCover(image));
}

std::uint64_t KXMDFileMetaMP4::albumCoverSizeForEncodedImage(KXData const& picture) const
{
    return picture.length() ? coverAtomHeadersSize + picture.length() : 0;
}

std::uint64_t KXMDFileMetaMP4::albumCoverSizeForEmbeddedTags() const
{
    std::uint64_t size = 0;
    for (auto const& cover : atomsWithPath(coverPath))
        size += cover->size();
    return size;
}
