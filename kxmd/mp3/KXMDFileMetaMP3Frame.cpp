#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include "kxmd/base/KXCodeListPrivate.h"
#include "kxmd/base/KXLog.h"
#include "kxmd/image/KXPictureSizePrivate.h"

#include <algorithm>
#include <array>
#include <bit>

namespace {

// Lies inside of "APIC", the identifier of ID3v2.2: PIC. The odd first item stays.
constexpr KXCodeList pictureFrames { "IPC,APIC" };
constexpr KXCodeList textFrames { "TAL,TP1,TT2,TALB,TPE1,TIT2,TPE2" };

// Of a picture frame's image format and of its description, terminators included, in bytes.
constexpr std::uint64_t longestPictureText = 256;

std::uint32_t readUInt24OrZero(KXAbstractData& data)
{
    std::array<std::uint8_t, 3> bytes;
    if (!data.readBytesTo(bytes.data(), bytes.size()))
        return 0;
    return std::uint32_t { bytes[0] } << 16 | std::uint32_t { bytes[1] } << 8 | bytes[2];
}

}

std::uint32_t KXMDFileMetaMP3Frame::syncSafeSizeToSize(std::uint32_t syncSafeSize)
{
    std::uint32_t const value = __builtin_bswap32(syncSafeSize);
    return (value & 0x7F) | (value >> 1 & 0x3F80) | (value >> 2 & 0x1FC000)
        | (value >> 3 & 0x0FE00000);
}

std::uint32_t KXMDFileMetaMP3Frame::sizeToSyncSafeSize(std::uint32_t size)
{
    return __builtin_bswap32(
        (size & 0x7F) | (size << 1 & 0x7F00) | (size << 2 & 0x7F0000) | (size << 3 & 0x7F000000));
}

std::uint32_t KXMDFileMetaMP3Frame::headerSize() const
{
    if (!majorVersion())
        return 0;
    return majorVersion() <= KXID3Version2 ? 6 : 10;
}

KXMDFileMetaMP3Frame::Ref KXMDFileMetaMP3Frame::frameWithData(
    KXAbstractData& data, std::uint16_t version)
{
    std::uint64_t const offset = data.offset();
    // Four bytes also for ID3v2.2, whose identifiers have three.
    if (!data.readUInt32OrZero(KXSwap::yes))
        return nullptr;
    data.setOffset(offset);

    auto frame = std::make_shared<KXMDFileMetaMP3Frame>();
    frame->_offset = offset;
    if (!frame->readHeader(data, version)) {
        KXLog("Metadata", "KXMetaMP3Frame->frameWithData: Couldn't parse frame id");
        return nullptr;
    }
    if (pictureFrames.contains(frame->_tag))
        frame->readPicture(data);
    else if (textFrames.contains(frame->_tag))
        frame->readText(data);
    data.setOffset(offset + frame->_size);
    return frame;
}

/// ID3v2.2.0, 3.2; ID3v2.3.0, 3.3; ID3v2.4.0 structure, 4.
bool KXMDFileMetaMP3Frame::readHeader(KXAbstractData& data, std::uint16_t version)
{
    _id3Version = version;
    KXID3Version const major = majorVersion();
    if (major != KXID3Version2 && major != KXID3Version3 && major != KXID3Version4)
        return false;
    std::optional<std::string> identifier;
    std::uint64_t const identifierLength = major == KXID3Version2 ? 3 : 4;
    if (!data.readStringTo(identifier, identifierLength, KXStringEncodingLatin1))
        return false;
    _tag = std::move(*identifier);

    std::uint32_t dataSize = 0;
    if (major == KXID3Version2) {
        dataSize = readUInt24OrZero(data);
    } else if (major == KXID3Version3) {
        dataSize = data.readUInt32OrZero(KXSwap::yes);
        _flags = data.readUInt16OrZero(KXSwap::yes);
    } else {
        dataSize = syncSafeSizeToSize(data.readUInt32OrZero(KXSwap::no));
        _flags = data.readUInt16OrZero(KXSwap::yes);
    }
    _dataSize = dataSize;
    _size = headerSize() + dataSize; // In 32 bits.
    return true;
}

/// ID3v2.2.0, 4.15; ID3v2.3.0, 4.15; ID3v2.4.0 frames, 4.14.
void KXMDFileMetaMP3Frame::readPicture(KXAbstractData& data)
{
    std::uint8_t kind; // Text encoding first, then picture type.
    std::optional<std::string> text;
    if (!data.readUInt8To(kind))
        return;
    bool const hasFormat = majorVersion() == KXID3Version2
        ? data.readStringTo(text, 3, KXStringEncodingLatin1)
        : data.readStringToZeroTerminationInto(text, longestPictureText, KXStringEncodingLatin1);
    if (!hasFormat || !data.readUInt8To(kind))
        return;
    // Deliberate: the picture type chooses, not the text encoding. Anything else would change which
    // covers of existing files are measured.
    KXStringEncoding const encoding = kind ? KXStringEncodingUnicode : KXStringEncodingLatin1;
    if (!data.readStringToZeroTerminationInto(text, longestPictureText, encoding))
        return;

    std::uint64_t const end = _offset + _size;
    if (data.offset() >= end)
        return;
    if (auto const size = sizeOfEncodedPictureInData(data, end - data.offset()))
        _albumCoverSize = *size;
}

/// ID3v2.2.0, 4.2; ID3v2.3.0, 4.2; ID3v2.4.0 frames, 4.2.
void KXMDFileMetaMP3Frame::readText(KXAbstractData& data)
{
    constexpr std::uint8_t utf16 = 1;
    std::uint8_t encodingByte;
    if (!data.readUInt8To(encodingByte))
        return;
    // All other encodings, UTF-16 without byte-order mark and UTF-8 of ID3v2.4 included, are read
    // as Latin-1. Deliberate.
    KXStringEncoding const encoding
        = encodingByte == utf16 ? KXStringEncodingUnicode : KXStringEncodingLatin1;
    // In 32 bits: that of an empty frame wraps to more than any text is granted.
    std::uint32_t const length = static_cast<std::uint32_t>(_dataSize) - 1;
    std::optional<std::string> text;
    if (length <= data.budget().textBytes()
        && data.readStringWithZeroTerminationTo(text, length, encoding) && !text->empty()
        && data.budget().takeTextBytes(text->size())) {
        _content = std::move(text);
        return;
    }
    KXLog("Metadata", "KXMetaMP3Frame->frameWithData: Couldn't parse string value");
}

bool KXMDFileMetaMP3Frame::removeSelfFromMutableData(KXMutableData& data) const
{
    return data.removeBytesAt(_offset, _size)
        && adjustSizeInMutableData(data, -static_cast<std::int64_t>(_size));
}

bool KXMDFileMetaMP3Frame::insertBeforeSelfInMutableData(
    KXMutableData& data, std::span<std::uint8_t const> frameData) const
{
    return _offset < data.length() && data.insertBytesAt(frameData, _offset)
        && adjustSizeInMutableData(data, static_cast<std::int64_t>(frameData.size()));
}

bool KXMDFileMetaMP3Frame::adjustSizeInMutableData(
    KXMutableData& data, std::int64_t difference) const
{
    // ID3v2.4.0 structure, 3.1.
    constexpr std::uint64_t sizeOffset = 6;
    std::array<std::uint8_t, 4> bytes;
    if (!data.readBytesToAt(bytes.data(), bytes.size(), sizeOffset))
        return false;
    std::uint32_t const size = syncSafeSizeToSize(std::bit_cast<std::uint32_t>(bytes))
        + static_cast<std::uint32_t>(difference);
    bytes = std::bit_cast<decltype(bytes)>(sizeToSyncSafeSize(size));
    return data.replaceBytesAt(sizeOffset, bytes);
}
