#include "kxmd/base/KXByteBuilderPrivate.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp3/KXMP3PicturePrivate.h"
#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>
#include <vector>

namespace {

/// The size of a frame after its header, as the header of the version has it.
void appendFrameSize(KXByteBuilder& bytes, std::uint32_t size, std::uint16_t version)
{
    if (version == KXID3Version4)
        bytes.appendBytes(std::bit_cast<std::array<std::uint8_t, 4>>(
            KXMDFileMetaMP3Frame::sizeToSyncSafeSize(size)));
    else
        bytes.appendNumber(size, version == KXID3Version2 ? 3 : 4);
}

// How often a tag is read anew while its covers are removed. Once does for all but tags with frames
// in each other and sizes that wrap, which were made to keep us busy.
constexpr int mostRounds = 100;

/// Removes frames, given in file order, in one pass, and takes their sizes off the tag's.
bool removeFramesFromData(KXMDFileMetaMP3Frame::List const& frames, KXMutableData& data)
{
    std::vector<KXMutableData::Range> ranges;
    std::int64_t total = 0;
    for (auto const& frame : frames) {
        ranges.push_back({ frame->offset(), frame->size() });
        total += static_cast<std::int64_t>(frame->size());
    }
    return data.removeRanges(ranges) && frames.front()->adjustSizeInMutableData(data, -total);
}

/// Whether one frame's identifier and size are a part of the next. Its size has wrapped then.
bool areFramesInEachOther(KXMDFileMetaMP3Frame::List const& frames)
{
    return std::ranges::any_of(frames, [](auto const& frame) {
        std::uint64_t const identifierAndSize = std::min(frame->headerSize(), 8u);
        return frame->size() < identifierAndSize;
    });
}

/// The covers, in file order, that go when the last one is removed again and again. The tag shrinks
/// with each; frames that then begin past its end are no longer found, and stay.
KXMDFileMetaMP3Frame::List removableCovers(
    KXMDFileMetaMP3Frame::List const& covers, std::uint64_t tagSize)
{
    KXMDFileMetaMP3Frame::List removable;
    for (auto cover = covers.rbegin(); cover != covers.rend(); ++cover) {
        if ((*cover)->offset() >= tagSize)
            continue;
        if ((*cover)->size() > tagSize)
            break; // The tag's size will wrap, and its frames have to be found anew.
        removable.push_back(*cover);
        tagSize -= (*cover)->size();
    }
    std::ranges::reverse(removable);
    return removable;
}

}

bool KXMDFileMetaMP3::parseMutableData(KXMutableData::Ref const& data)
{
    return parseAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
}

KXMDFileMeta::ImageRef KXMDFileMetaMP3::albumCoverFromData(KXAbstractData& data) const
{
    auto const loader = platform()->pictureLoader;
    auto const decoded = [&loader](KXMP3Picture const& picture) {
        return loader->imageInData(*picture.data(), picture.data()->remainingLength(), {});
    };
    std::vector<KXMP3Picture> others; // Those that are not front covers.
    for (auto const& frame : albumCoverFrames()) {
        auto picture = KXMP3Picture::pictureOfFrame(*frame, data);
        if (!picture)
            continue;
        if (!picture->isFrontCover())
            others.push_back(std::move(*picture));
        else if (auto image = decoded(*picture))
            return image;
    }
    for (auto const& picture : others) {
        if (auto image = decoded(picture))
            return image;
    }
    return nullptr;
}

bool KXMDFileMetaMP3::removeAlbumCoverFromData(KXMutableData::Ref const& data)
{
    if (!data || !parseMutableData(data))
        return false;
    int rounds = 0;
    for (auto covers = albumCoverFrames(); !covers.empty(); covers = albumCoverFrames()) {
        if (!covers.back()->size() || ++rounds > mostRounds)
            return false; // One that takes no room would be found again and again.
        auto removable = removableCovers(covers, _headerSize);
        if (removable.empty() || areFramesInEachOther(*frames()))
            removable = { covers.back() };
        if (!removeFramesFromData(removable, *data) || !parseMutableData(data))
            return false;
    }
    return true;
}

bool KXMDFileMetaMP3::addAlbumCoverToData(ImageRef const& image, KXMutableData::Ref const& data)
{
    return addEncodedAlbumCoverToData(encodedAlbumCover(image), data);
}

bool KXMDFileMetaMP3::addEncodedAlbumCoverToData(
    KXData const& picture, KXMutableData::Ref const& data)
{
    if (!removeAlbumCoverFromData(data) || frames()->empty())
        return false;
    KXData const cover = albumCoverFrameWithJPEG(picture);
    return cover.length() && frames()->back()->insertBeforeSelfInMutableData(*data, cover.bytes())
        && parseMutableData(data);
}

KXData KXMDFileMetaMP3::albumCoverFrameDataForImage(ImageRef const& image) const
{
    return albumCoverFrameWithJPEG(encodedAlbumCover(image));
}

KXData KXMDFileMetaMP3::albumCoverFrameWithJPEG(KXData const& picture) const
{
    KXData const head = albumCoverFrameHead(picture.length());
    if (!head.length())
        return {};
    KXByteBuilder frame(head.length() + picture.length());
    frame.appendBytes(head.bytes());
    frame.appendBytes(picture.bytes());
    return frame.takeData();
}

/// What precedes a picture of so many bytes in its frame; empty for none and for an unknown
/// version. ID3v2.2.0, 4.15; ID3v2.3.0, 4.15; ID3v2.4.0 frames, 4.14.
KXData KXMDFileMetaMP3::albumCoverFrameHead(std::uint64_t pictureLength) const
{
    if (!pictureLength || mimeJPEG().empty())
        return {};
    bool const isShort = majorVersion() == KXID3Version2;
    // Text encoding, format, picture type, description; two terminators, of which the three letters
    // of the short format need none.
    std::size_t const fieldsSize = 1 + mimeJPEG().size() + (isShort ? 0 : 1) + 1 + 1;
    constexpr std::size_t longestHeader = 10;
    KXByteBuilder head(longestHeader + fieldsSize);
    head.appendText(albumCoverTag());
    appendFrameSize(head, static_cast<std::uint32_t>(fieldsSize + pictureLength), majorVersion());
    if (!isShort)
        head.appendNumber(0, 2); // Flags.
    head.appendUInt8(0); // Text encoding: Latin-1.
    head.appendText(mimeJPEG());
    if (!isShort)
        head.appendUInt8(0); // Ends the format.
    head.appendUInt8(0); // Picture type: other. Deliberate: readers take it wherever it stands.
    head.appendUInt8(0); // No description.
    return head.takeData();
}

std::uint64_t KXMDFileMetaMP3::albumCoverSizeForImage(ImageRef const& image) const
{
    return albumCoverSizeForEncodedImage(encodedAlbumCover(image));
}

std::uint64_t KXMDFileMetaMP3::albumCoverSizeForEncodedImage(KXData const& picture) const
{
    KXData const head = albumCoverFrameHead(picture.length());
    return head.length() ? head.length() + picture.length() : 0;
}

std::uint64_t KXMDFileMetaMP3::albumCoverSizeForEmbeddedTags() const
{
    std::uint64_t size = 0;
    for (auto const& frame : albumCoverFrames())
        size += frame->size();
    return size;
}
