#include "kxmd/mp3/KXMP3EditSafety.h"

#include <algorithm>
#include <array>
#include <functional>

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

/// Whether `word` is the identifier of a frame of version 2.3 or 2.4. Some programs fill up those
/// of version 2.2 with a zero or a space.
bool isIdentifier(std::uint32_t word)
{
    auto const isLetterOrDigit = [word](int shift) {
        std::uint8_t const byte = word >> shift & 0xFF;
        return (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    };
    bool const isFilledUp = (word & 0xFF) == 0 || (word & 0xFF) == ' ';
    return isLetterOrDigit(24) && isLetterOrDigit(16) && isLetterOrDigit(8)
        && (isLetterOrDigit(0) || isFilledUp);
}

/// Whether all bytes there are zero.
bool isPadding(KXAbstractData& data, std::uint64_t begin, std::uint64_t end)
{
    std::array<std::uint8_t, 4096> piece;
    data.setOffset(begin);
    while (begin < end) {
        std::uint64_t const count = data.readBytesToMaxLength(
            piece.data(), std::min<std::uint64_t>(end - begin, piece.size()));
        if (!count)
            return true; // The file ends.
        if (std::any_of(piece.begin(), piece.begin() + count, std::identity()))
            return false;
        begin += count;
    }
    return true;
}

}

KXMP3EditSafety::KXMP3EditSafety(KXAbstractData& data)
    : _isMP3(_meta.parseAbstractData(data))
    , _isReadByOthersAlike(isReadByOthersAlike(data))
{
}

/// Whether other programs find the same frames as we do, so that the edits fall between frames for
/// them too. In version 2.4 that may fail: we skip four bytes too many after an extended header,
/// and some programs write plain sizes as in version 2.3, which most readers notice.
bool KXMP3EditSafety::isReadByOthersAlike(KXAbstractData& data) const
{
    constexpr std::uint8_t extendedHeaderFlag = 0x40;
    auto const frames = _meta.frames();
    if (_meta.majorVersion() != KXID3Version4 || frames->empty())
        return true;
    if (_meta.id3Flags() & extendedHeaderFlag)
        return false;
    for (std::size_t i = 0; i < frames->size(); ++i) {
        // What is left of the last cover hides nothing, unless the new one comes after it.
        bool const isLastCover
            = (*frames)[i]->tag() == _meta.albumCoverTag() && i + 2 >= frames->size();
        auto const length = lengthForOthers(*(*frames)[i], data);
        if (length == Length::longer || (length == Length::longerAndLast && !isLastCover))
            return false;
    }
    return true;
}

/// Longer when a frame's size only makes sense as a plain number: the next frame, or the end of the
/// tag, is not where the frame ends for us but where it ends by that number.
KXMP3EditSafety::Length KXMP3EditSafety::lengthForOthers(
    KXMDFileMetaMP3Frame const& frame, KXAbstractData& data) const
{
    constexpr std::uint64_t identifierSize = 4;
    std::uint64_t const end = frame.offset() + frame.size();
    std::uint64_t const later
        = frame.offset() + frame.headerSize() + wordAt(data, frame.offset() + identifierSize);
    if (later == end || later > endOfTag() || isIdentifier(wordAt(data, end)))
        return Length::same;
    std::uint32_t const next = later + identifierSize <= endOfTag() ? wordAt(data, later) : 0;
    if (isIdentifier(next))
        return Length::longer;
    return next || isPadding(data, end, later) ? Length::same : Length::longerAndLast;
}

std::optional<std::string> KXMP3EditSafety::reasonAgainstRemovingAlbumCover() const
{
    if (!_isMP3 || !_meta.albumCoverSizeForEmbeddedTags())
        return {};
    return reasonAgainstAnyEdit();
}

std::optional<std::string> KXMP3EditSafety::reasonAgainstAddingAlbumCoverOfSize(
    std::uint64_t frameSize) const
{
    if (!_isMP3 || _meta.frames()->empty())
        return {};
    if (auto reason = reasonAgainstAnyEdit())
        return reason;
    if (frameSize > largestFrameOfVersion(_meta.majorVersion()))
        return "the cover is too large for a frame of its tag";
    std::uint64_t const removed = _meta.albumCoverSizeForEmbeddedTags();
    if (_meta.headerSize() - removed + frameSize > largestTag)
        return "the tag would grow past 256 MiB";
    return {};
}

std::optional<std::string> KXMP3EditSafety::reasonAgainstAnyEdit() const
{
    if (hasCoverPastItsEnd())
        return "a cover runs past the end of the tag";
    if (!_isReadByOthersAlike)
        return "frames of its tag would not be found by other programs";
    return {};
}

std::uint64_t KXMP3EditSafety::endOfTag() const { return tagHeaderSize + _meta.headerSize(); }

bool KXMP3EditSafety::hasCoverPastItsEnd() const
{
    auto const covers = _meta.allFramesWithTag(_meta.albumCoverTag());
    return covers && std::ranges::any_of(*covers, [this](auto const& cover) {
        return cover->offset() + cover->size() > endOfTag();
    });
}
