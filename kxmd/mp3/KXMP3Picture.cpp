#include "kxmd/mp3/KXMP3PicturePrivate.h"

#include "kxmd/base/KXMemoryDataPrivate.h"

#include <utility>
#include <vector>

namespace {

/// What the flags of a frame say of the bytes after its header.
struct FrameFormat {
    std::uint64_t extraHeaderSize { 0 };
    bool isUnsynchronised { false };
    bool isReadable { true }; ///< Neither compressed nor encrypted.
};

FrameFormat formatOfVersion3(std::uint16_t flags)
{
    constexpr std::uint16_t compressed = 0x80, encrypted = 0x40, grouped = 0x20;
    return { .extraHeaderSize = flags & grouped ? 1u : 0u,
        .isReadable = !(flags & (compressed | encrypted)) };
}

FrameFormat formatOfVersion4(std::uint16_t flags)
{
    constexpr std::uint16_t grouped = 0x40, compressed = 0x08, encrypted = 0x04,
                            unsynchronised = 0x02, hasLengthIndicator = 0x01;
    std::uint64_t const groupSize = flags & grouped ? 1 : 0;
    std::uint64_t const indicatorSize = flags & hasLengthIndicator ? 4 : 0;
    return { .extraHeaderSize = groupSize + indicatorSize,
        .isUnsynchronised = (flags & unsynchronised) != 0,
        .isReadable = !(flags & (compressed | encrypted)) };
}

FrameFormat formatOfFrame(KXMDFileMetaMP3Frame const& frame)
{
    switch (frame.id3Version() & 0xFF00) {
    case KXID3Version3:
        return formatOfVersion3(frame.flags());
    case KXID3Version4:
        return formatOfVersion4(frame.flags());
    }
    return {};
}

/// Takes out the zero byte that follows each 0xFF (ID3v2.4.0 structure, 6.1).
void resynchronise(std::vector<std::uint8_t>& bytes)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[kept++] = bytes[i];
        if (bytes[i] == 0xFF && i + 1 < bytes.size() && bytes[i + 1] == 0)
            ++i;
    }
    bytes.resize(kept);
}

/// Moves past a text and its terminator of one byte or two; false when there is none.
bool skipText(KXAbstractData& data, bool isWide)
{
    for (;;) {
        std::uint16_t wide;
        std::uint8_t narrow;
        if (isWide ? !data.readUInt16To(wide, KXSwap::yes) : !data.readUInt8To(narrow))
            return false;
        if (isWide ? !wide : !narrow)
            return true;
    }
}

}

std::optional<KXMP3Picture> KXMP3Picture::pictureOfFrame(
    KXMDFileMetaMP3Frame const& frame, KXAbstractData& data)
{
    FrameFormat const format = formatOfFrame(frame);
    std::uint64_t const headerSize = frame.headerSize() + format.extraHeaderSize;
    if (!format.isReadable || frame.size() <= headerSize)
        return std::nullopt;
    data.setOffset(frame.offset() + headerSize);
    std::uint64_t const length = frame.size() - headerSize;
    if (length > data.remainingLength())
        return std::nullopt;
    std::vector<std::uint8_t> bytes(length);
    if (!data.readBytesTo(bytes.data(), length))
        return std::nullopt;
    if (format.isUnsynchronised)
        resynchronise(bytes);

    KXMP3Picture picture;
    picture._data = std::make_shared<KXMemoryData>(KXData(std::move(bytes)));
    bool const hasShortFormat = (frame.id3Version() & 0xFF00) == KXID3Version2;
    return picture.readFields(hasShortFormat) ? std::optional(std::move(picture)) : std::nullopt;
}

/// Reads what precedes the picture; false when there is none.
bool KXMP3Picture::readFields(bool hasShortFormat)
{
    constexpr std::uint8_t utf16 = 1, utf16BigEndian = 2;
    constexpr std::string_view link = "-->"; // What follows names a picture elsewhere.
    std::uint8_t encoding;
    std::optional<std::string> format;
    bool const hasFormat = _data->readUInt8To(encoding)
        && (hasShortFormat ? _data->readStringTo(format, link.size(), KXStringEncodingLatin1)
                           : _data->readStringToZeroTerminationInto(
                               format, _data->remainingLength(), KXStringEncodingLatin1));
    bool const isWide = encoding == utf16 || encoding == utf16BigEndian;
    return hasFormat && *format != link && _data->readUInt8To(_type) && skipText(*_data, isWide)
        && _data->remainingLength();
}
