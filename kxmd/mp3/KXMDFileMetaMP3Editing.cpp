#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/platform/KXPlatform.h"

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

void append(Bytes& bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

/// The size of a frame behind its header, as the header of the version has it.
void appendFrameSize(Bytes& bytes, std::uint32_t size, std::uint16_t version)
{
    if (version == KXID3Version4) {
        auto const syncSafe = std::bit_cast<std::array<std::uint8_t, 4>>(
            KXMDFileMetaMP3Frame::sizeToSyncSafeSize(size));
        bytes.insert(bytes.end(), syncSafe.begin(), syncSafe.end());
        return;
    }
    for (int shift = version == KXID3Version2 ? 16 : 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(size >> shift));
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

/// Those of `covers` that go when the last one is removed again and again, in file order. Frames
/// that begin where the tag, which shrinks with each, then has ended are no longer found, and stay.
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
    auto const loader = KXPlatform::shared()->pictureLoader;
    for (auto const& frame : albumCoverFrames()) {
        std::uint64_t const end = frame->offset() + frame->size();
        if (!frame->pictureOffset() || end > data.length())
            continue;
        data.setOffset(frame->pictureOffset());
        if (auto image = loader->imageInData(data, end - frame->pictureOffset(), {}))
            return image;
    }
    return nullptr;
}

bool KXMDFileMetaMP3::removeAlbumCoverFromData(KXMutableData::Ref const& data)
{
    if (!parseMutableData(data))
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
    if (!removeAlbumCoverFromData(data) || frames()->empty())
        return false;
    auto const cover = albumCoverFrameDataForImage(image);
    return cover.length() && frames()->back()->insertBeforeSelfInMutableData(*data, cover.bytes())
        && parseMutableData(data);
}

/// ID3v2.2.0, 4.15; ID3v2.3.0, 4.15; ID3v2.4.0 frames, 4.14.
KXData KXMDFileMetaMP3::albumCoverFrameDataForImage(ImageRef const& image) const
{
    if (!image || mimeJPEG().empty())
        return {};
    auto const picture = KXPlatform::shared()->pictureLoader->jpgRepresentation(*image);
    if (!picture.length())
        return {};
    bool const isShort = majorVersion() == KXID3Version2;
    Bytes head { 0 }; // Text encoding: Latin-1.
    append(head, mimeJPEG());
    if (!isShort)
        head.push_back(0); // Ends the MIME type; the format of ID3v2.2 has three letters.
    head.push_back(0); // Picture type: other. Deliberate: readers take it wherever it stands.
    head.push_back(0); // No description.

    Bytes frame;
    frame.reserve(picture.length() + head.size() + 10);
    append(frame, albumCoverTag());
    auto const size = static_cast<std::uint32_t>(head.size() + picture.length());
    appendFrameSize(frame, size, majorVersion());
    if (!isShort)
        frame.insert(frame.end(), 2, 0); // Flags.
    frame.insert(frame.end(), head.begin(), head.end());
    frame.insert(frame.end(), picture.bytes().begin(), picture.bytes().end());
    return KXData(std::move(frame));
}

std::uint64_t KXMDFileMetaMP3::albumCoverSizeForImage(ImageRef const& image) const
{
    return albumCoverFrameDataForImage(image).length();
}

std::uint64_t KXMDFileMetaMP3::albumCoverSizeForEmbeddedTags() const
{
    std::uint64_t size = 0;
    for (auto const& frame : albumCoverFrames())
        size += frame->size();
    return size;
}
