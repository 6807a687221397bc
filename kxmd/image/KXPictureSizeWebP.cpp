#include "kxmd/image/KXPictureSizeWalksPrivate.h"

#include <algorithm>

// RFC 9649. Numbers are stored with the least significant byte first; the codes of chunks are read
// the other way round.

namespace {

constexpr std::uint64_t chunkHeaderLength = 8; // Code and length.

/// A chunk (2.3), as far as it is there.
struct Chunk {
    KXFourCharacterCode code;
    std::uint64_t length { 0 }; ///< As it claims, without padding.
    KXPictureReader content;
};

std::optional<Chunk> readChunk(KXPictureReader& chunks)
{
    KXFourCharacterCode code;
    std::uint32_t length;
    if (!chunks.readCodeTo(code) || !chunks.readUInt32To(length, KXSwap::no))
        return std::nullopt;
    auto const content = chunks.readPart(std::min<std::uint64_t>(length, chunks.remainingLength()));
    return content ? std::optional<Chunk>({ code, length, *content }) : std::nullopt;
}

bool readUInt24To(std::uint32_t& value, KXPictureReader& data)
{
    std::uint16_t low = 0;
    std::uint8_t high = 0;
    bool const isRead = data.readUInt16To(low, KXSwap::no) && data.readUInt8To(high);
    value = low | std::uint32_t { high } << 16;
    return isRead;
}

/// The size of a key frame of VP8 (RFC 6386, 9.1).
std::optional<KXSize> sizeOfLossyFrame(Chunk frame)
{
    constexpr std::uint32_t startCode = 0x2A019D;
    constexpr std::uint32_t greatestVersion = 3;
    constexpr std::uint16_t sideBits = 0x3FFF; // The two above tell how to enlarge it.
    std::uint32_t tag, code;
    std::uint16_t width, height;
    if (!readUInt24To(tag, frame.content) || !readUInt24To(code, frame.content)
        || !frame.content.readUInt16To(width, KXSwap::no)
        || !frame.content.readUInt16To(height, KXSwap::no))
        return std::nullopt;
    bool const isKeyFrame = !(tag & 1), isShown = tag >> 4 & 1;
    std::uint32_t const version = tag >> 1 & 7, firstPartitionLength = tag >> 5;
    if (code != startCode || !isKeyFrame || !isShown || version > greatestVersion
        || firstPartitionLength >= frame.length)
        return std::nullopt;
    return sizeOfPixels(width & sideBits, height & sideBits);
}

/// The size in the header of a lossless picture (3.4).
std::optional<KXSize> sizeOfLosslessFrame(Chunk frame)
{
    constexpr std::uint8_t signature = 0x2F;
    constexpr std::uint32_t sideBits = 0x3FFF;
    std::uint8_t first;
    std::uint32_t fields; // Width and height less 1, 14 bits each, alpha, three bits of version.
    if (!frame.content.readUInt8To(first) || first != signature
        || !frame.content.readUInt32To(fields, KXSwap::no) || fields >> 29)
        return std::nullopt;
    return sizeOfPixels((fields & sideBits) + 1, (fields >> 14 & sideBits) + 1);
}

bool isFrame(Chunk const& chunk) { return chunk.code == "VP8 " || chunk.code == "VP8L"; }

std::optional<KXSize> sizeOfFrame(Chunk const& frame)
{
    return frame.code == "VP8L" ? sizeOfLosslessFrame(frame) : sizeOfLossyFrame(frame);
}

/// Whether the frame after a canvas has its size, as it has in a picture that does not move. True
/// where the file ends before its frame does; by its own length it ends at `riffEnd`.
bool frameAgreesWith(KXSize canvas, KXPictureReader chunks, std::uint64_t riffEnd)
{
    while (chunks.takeStep()) {
        std::uint64_t const start = chunks.position();
        auto const chunk = readChunk(chunks);
        if (!chunk)
            return true;
        std::uint64_t const padding = chunk->length & 1;
        if (chunk->length + padding > riffEnd - std::min(riffEnd, start + chunkHeaderLength))
            return false;
        bool const isWhole = chunk->content.remainingLength() == chunk->length;
        if (isFrame(*chunk)) {
            auto const size = sizeOfFrame(*chunk);
            return size ? *size == canvas : !isWhole;
        }
        if (!chunks.skipBytes(padding))
            return true;
    }
    return false;
}

/// The canvas of the extended format (2.7); `chunks` are those after it.
std::optional<KXSize> sizeOfCanvas(
    Chunk canvas, KXPictureReader const& chunks, std::uint64_t riffEnd)
{
    constexpr std::uint64_t length = 10, mostPixels = 0xFFFFFFFF;
    constexpr std::uint32_t animationFlag = 2;
    std::uint32_t flags, width, height; // The sides less 1.
    if (canvas.length != length || !canvas.content.readUInt32To(flags, KXSwap::no)
        || !readUInt24To(width, canvas.content) || !readUInt24To(height, canvas.content)
        || std::uint64_t { width + 1 } * (height + 1) > mostPixels)
        return std::nullopt;
    auto const size = sizeOfPixels(width + 1, height + 1);
    bool const moves = flags & animationFlag;
    return moves || frameAgreesWith(*size, chunks, riffEnd) ? size : std::nullopt;
}

}

std::optional<KXSize> sizeOfWebP(KXPictureReader picture)
{
    constexpr std::uint64_t lengthBefore = 8; // "RIFF" and the file's length from there on (2.4).
    constexpr std::uint64_t codeLength = 4; // "WEBP", which the signature has told.
    constexpr std::uint32_t leastLength = codeLength + chunkHeaderLength;
    KXFourCharacterCode riff;
    std::uint32_t riffLength;
    if (!picture.readCodeTo(riff) || riff != "RIFF" || !picture.readUInt32To(riffLength, KXSwap::no)
        || riffLength < leastLength || !picture.skipBytes(codeLength))
        return std::nullopt;
    auto const first = readChunk(picture);
    if (first && first->code == "VP8X")
        return sizeOfCanvas(*first, picture, lengthBefore + riffLength);
    if (!first || !isFrame(*first) || first->length > riffLength - leastLength)
        return std::nullopt;
    return sizeOfFrame(*first); // The simple formats (2.5 and 2.6).
}
