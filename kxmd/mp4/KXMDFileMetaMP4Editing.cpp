#include "kxmd/host/KXLog.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"
#include "kxmd/platform/KXPlatform.h"

#include <utility>
#include <vector>

namespace {

void appendUInt32(std::vector<std::uint8_t>& bytes, std::uint32_t value)
{
    for (int const shift : { 24, 16, 8, 0 })
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendText(std::vector<std::uint8_t>& bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

}

bool KXMDFileMetaMP4::parseMutableData(KXMutableData::Ref const& data)
{
    return parseAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
}

KXMDFileMeta::ImageRef KXMDFileMetaMP4::albumCoverFromData(KXAbstractData& data) const
{
    auto const loader = KXPlatform::shared()->pictureLoader;
    for (auto const& cover : atomsWithPath(coverPath)) {
        data.setOffset(cover->offset());
        if (cover->size() > data.remainingLength())
            continue;
        if (auto image = loader->imageInData(data, cover->size(), {}))
            return image;
    }
    return nullptr;
}

bool KXMDFileMetaMP4::removeAlbumCoverFromData(KXMutableData::Ref const& data)
{
    if (!parseMutableData(data) || atomsWithPath(chunkOffsetTablePath).empty())
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
    if (!removeAlbumCoverFromData(data) || !image)
        return false;
    auto const tagLists = atomsWithPath(tagListPath);
    auto const tags = tagLists.empty() ? KXMP4Atom::List() : tagLists.back()->children();
    auto const cover = albumCoverAtomDataForImage(image);
    if (tags.empty() || !cover.length())
        return false;
    // A chunk offset table that does not lie in the file makes this false, though the file can
    // still be parsed: its media would not be found.
    bool const isInserted = tags.back()->insertBeforeSelfInMutableData(*data, cover.bytes());
    return parseMutableData(data) && isInserted;
}

KXData KXMDFileMetaMP4::albumCoverAtomDataForImage(ImageRef const& image) const
{
    if (!image)
        return {};
    auto const picture = KXPlatform::shared()->pictureLoader->jpgRepresentation(*image);
    if (!picture.length())
        return {};
    constexpr std::uint32_t headersSize = 24, dataHeaderSize = 16;
    constexpr std::uint32_t typeJPEG = 13;
    auto const length = static_cast<std::uint32_t>(picture.length());
    std::vector<std::uint8_t> atom;
    atom.reserve(picture.length() + headersSize);
    appendUInt32(atom, length + headersSize);
    appendText(atom, "covr");
    appendUInt32(atom, length + dataHeaderSize);
    appendText(atom, "data");
    appendUInt32(atom, typeJPEG); // Version 0 and the type.
    appendUInt32(atom, 0); // Locale.
    atom.insert(atom.end(), picture.bytes().begin(), picture.bytes().end());
    return KXData(std::move(atom));
}

std::uint64_t KXMDFileMetaMP4::albumCoverSizeForImage(ImageRef const& image) const
{
    return albumCoverAtomDataForImage(image).length();
}

std::uint64_t KXMDFileMetaMP4::albumCoverSizeForEmbeddedTags() const
{
    std::uint64_t size = 0;
    for (auto const& cover : atomsWithPath(coverPath))
        size += cover->size();
    return size;
}
