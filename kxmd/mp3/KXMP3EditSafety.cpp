#include "kxmd/mp3/KXMP3EditSafety.h"

#include <algorithm>

namespace {

constexpr std::uint64_t tagHeaderSize = 10;
constexpr std::uint64_t largestTag = 0x0FFFFFFF; // Four bytes of seven bits: ID3v2.4.0, 3.1.

/// The most bytes of a frame, its header included: ID3v2.2.0, 3.2; ID3v2.3.0, 3.3; ID3v2.4.0, 4.
std::uint64_t largestFrameOfVersion(std::uint16_t majorVersion)
{
    constexpr std::uint64_t shortHeader = 6, header = 10;
    switch (majorVersion) {
    case KXID3Version2:
        return shortHeader + 0xFFFFFF;
    case KXID3Version3:
        return header + 0xFFFFFFFF;
    }
    return header + 0x0FFFFFFF;
}

std::uint32_t wordAt(KXAbstractData& data, std::uint64_t offset)
{
    data.setOffset(offset);
    return data.readUInt32OrZero(KXSwap::yes);
}

/// Whether a frame of version 2.3 or 2.4 may begin there.
bool isIdentifierAt(KXAbstractData& data, std::uint64_t offset)
{
    std::uint32_t const word = wordAt(data, offset);
    auto const isLetterOrDigit = [word](int shift) {
        std::uint8_t const byte = word >> shift & 0xFF;
        return (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    };
    return isLetterOrDigit(24) && isLetterOrDigit(16) && isLetterOrDigit(8) && isLetterOrDigit(0);
}

}

KXMP3EditSafety::KXMP3EditSafety(KXAbstractData& data)
    : _isMP3(_meta.parseAbstractData(data))
    , _isReadByOthersAlike(isReadByOthersAlike(data))
{
}

/// Whether the edits happen between frames as others find them. In version 2.4 they need not: we
/// skip four bytes too many behind an extended header, and some programs write sizes in eight bits
/// of a byte, as in version 2.3, which most others notice.
bool KXMP3EditSafety::isReadByOthersAlike(KXAbstractData& data) const
{
    constexpr std::uint8_t extendedHeaderFlag = 0x40;
    auto const frames = _meta.frames();
    if (_meta.majorVersion() != KXID3Version4 || frames->empty())
        return true;
    if (_meta.id3Flags() & extendedHeaderFlag)
        return false;
    return std::ranges::all_of(*frames, [&](auto const& frame) {
        bool const isCover = frame->tag() == _meta.albumCoverTag();
        bool const isLast = frame == frames->back(); // The new cover comes in front of it.
        return (isLast && !isCover) || !endsLaterForOthers(*frame, data, isCover);
    });
}

/// Whether others take a frame to reach over its end; `onlyWithMore`, only if they find more frames
/// behind it.
bool KXMP3EditSafety::endsLaterForOthers(
    KXMDFileMetaMP3Frame const& frame, KXAbstractData& data, bool onlyWithMore) const
{
    std::uint64_t const end = frame.offset() + frame.size();
    std::uint64_t const endInEightBits
        = frame.offset() + frame.headerSize() + wordAt(data, frame.offset() + 4);
    if (end == endInEightBits || isIdentifierAt(data, end))
        return false;
    bool const isEndOfFrames = end >= tagHeaderSize + _meta.headerSize() || !wordAt(data, end);
    return isIdentifierAt(data, endInEightBits) || (!onlyWithMore && !isEndOfFrames);
}

std::optional<std::string> KXMP3EditSafety::reasonAgainstRemovingAlbumCover() const
{
    if (!_isMP3 || !_meta.albumCoverSizeForEmbeddedTags())
        return {};
    if (hasCoverPastItsEnd())
        return "a cover runs past the end of the tag";
    if (!_isReadByOthersAlike)
        return "frames of its tag would not be found by other programs";
    return {};
}

std::optional<std::string> KXMP3EditSafety::reasonAgainstAddingAlbumCoverOfSize(
    std::uint64_t frameSize) const
{
    if (!_isMP3 || _meta.frames()->empty())
        return {};
    if (auto reason = reasonAgainstRemovingAlbumCover())
        return reason;
    if (!_isReadByOthersAlike)
        return "frames of its tag would not be found by other programs";
    if (frameSize > largestFrameOfVersion(_meta.majorVersion()))
        return "the cover is too large for a frame of its tag";
    std::uint64_t const removed = _meta.albumCoverSizeForEmbeddedTags();
    if (_meta.headerSize() - removed + frameSize > largestTag)
        return "the tag would grow past 256 MiB";
    return {};
}

bool KXMP3EditSafety::hasCoverPastItsEnd() const
{
    auto const covers = _meta.allFramesWithTag(_meta.albumCoverTag());
    std::uint64_t const end = tagHeaderSize + _meta.headerSize();
    return covers && std::ranges::any_of(*covers, [end](auto const& cover) {
        return cover->offset() + cover->size() > end;
    });
}
