#include "kxmd/mp3/KXMP3CoverPlacePrivate.h"

#include "kxmd/base/KXByteBuilderPrivate.h"
#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr std::uint64_t oldTagSize = 128; // An ID3v1 tag.

/// The header of a frame of layer III: ISO/IEC 11172-3, 2.4.2.3, and for the lower sample rates
/// ISO/IEC 13818-3, 2.4.2.3. Half of those again have a version number that no standard names.
struct AudioHeader {
    std::uint32_t version;
    std::uint32_t sampleRate; ///< In Hz.
    std::uint32_t length; ///< Of the whole frame, in bytes.

    bool isAlike(AudioHeader const& other) const
    {
        return version == other.version && sampleRate == other.sampleRate;
    }
};

constexpr std::uint32_t version1 = 3, version2 = 2, reservedVersion = 1;

std::uint32_t sampleRateOf(std::uint32_t version, std::uint32_t index)
{
    constexpr std::uint32_t rates[] { 44100, 48000, 32000 }; // Of version 1.
    return version == version1 ? rates[index] : rates[index] / (version == version2 ? 2 : 4);
}

std::uint32_t bitRateOf(std::uint32_t version, std::uint32_t index)
{
    constexpr std::uint32_t rates[] { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256,
        320 }; // In kbit/s.
    constexpr std::uint32_t lowRates[] { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144,
        160 };
    return version == version1 ? rates[index] : lowRates[index];
}

/// Absent as well for a frame of a free bit rate, which does not tell how long it is.
std::optional<AudioHeader> audioHeaderAt(std::uint64_t position, KXAbstractData& data)
{
    constexpr std::uint32_t syncWord = 0x7FF, layerIII = 1, reserved = 3, reservedEmphasis = 2,
                            forbiddenRate = 15;
    data.setOffset(position);
    std::uint32_t const word = data.readUInt32OrZero(KXSwap::yes);
    std::uint32_t const version = word >> 19 & 3, bitRate = word >> 12 & 15,
                        sampleRate = word >> 10 & 3, padding = word >> 9 & 1;
    if (word >> 21 != syncWord || version == reservedVersion || (word >> 17 & 3) != layerIII
        || bitRate == 0 || bitRate == forbiddenRate || sampleRate == reserved
        || (word & 3) == reservedEmphasis)
        return std::nullopt;
    AudioHeader header { version, sampleRateOf(version, sampleRate), 0 };
    std::uint32_t const bytesOfRate = version == version1 ? 144'000 : 72'000; // For 1 kbit/s.
    header.length = bytesOfRate * bitRateOf(version, bitRate) / header.sampleRate + padding;
    return header;
}

bool isWordAt(std::uint64_t position, std::string_view word, KXAbstractData& data)
{
    std::optional<std::string> text;
    data.setOffset(position);
    return data.readStringTo(text, word.size(), KXStringEncodingLatin1) && *text == word;
}

/// Whether the audio ends there: with the file, or before a tag.
bool isEndOfAudio(std::uint64_t position, KXAbstractData& data)
{
    constexpr std::string_view firstWords[] { "TAG", "APET", "LYRI", "3DI" };
    return position == data.length() || std::ranges::any_of(firstWords, [&](auto const& word) {
        return isWordAt(position, word, data);
    });
}

/// The position that is so many bytes before the end, or the file's start.
std::uint64_t positionBeforeEnd(std::uint64_t length, KXAbstractData& data)
{
    return data.length() - std::min(data.length(), length);
}

/// Whether an APE tag is at the end, or before the ID3v1 tag there. Some readers look for no other
/// tags where there is an ID3v2 tag, and what it says has no room in that.
bool hasAPETag(KXAbstractData& data)
{
    constexpr std::string_view preamble = "APETAGEX"; // APEv2, tag header and footer.
    constexpr std::uint64_t footerSize = 32;
    return isWordAt(positionBeforeEnd(footerSize, data), preamble, data)
        || isWordAt(positionBeforeEnd(footerSize + oldTagSize, data), preamble, data);
}

constexpr std::uint32_t headerSize = 10; // Of a tag and of a frame.
constexpr std::size_t mostFrameBytes = 300; // More than an ID3v1 tag fills.

/// A text frame in Latin-1, which is what `text` is in: ID3v2.3.0, 3.3 and 4.2. None for an empty
/// text. `language` is that of a comment, whose description is empty (4.11).
void appendFrame(std::string_view identifier, std::string_view text, KXByteBuilder& frames,
    std::string_view language = "")
{
    if (text.empty())
        return;
    constexpr std::size_t encodingSize = 1;
    std::size_t const descriptionSize = language.empty() ? 0 : language.size() + 1;
    frames.appendText(identifier);
    frames.appendUInt32(static_cast<std::uint32_t>(encodingSize + descriptionSize + text.size()));
    frames.appendNumber(0, 2); // Flags.
    frames.appendUInt8(0); // Latin-1.
    frames.appendText(language);
    if (descriptionSize)
        frames.appendUInt8(0); // Ends the description.
    frames.appendText(text);
}

/// What a field of an ID3v1 tag holds: up to a zero, without the spaces that some fill it with.
std::string_view textOfField(std::string_view field)
{
    field = field.substr(0, field.find('\0'));
    return field.substr(0, field.find_last_not_of(' ') + 1);
}

/// Appends what an ID3v1 tag at the end says. Readers overlook that one once there is another.
void appendFramesOfOldTag(KXAbstractData& data, KXByteBuilder& frames)
{
    std::array<std::uint8_t, oldTagSize> bytes;
    data.setOffset(positionBeforeEnd(oldTagSize, data));
    if (!data.readBytesTo(bytes.data(), bytes.size()))
        return;
    std::string_view const tag(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    if (!tag.starts_with("TAG"))
        return;
    appendFrame("TIT2", textOfField(tag.substr(3, 30)), frames);
    appendFrame("TPE1", textOfField(tag.substr(33, 30)), frames);
    appendFrame("TALB", textOfField(tag.substr(63, 30)), frames);
    appendFrame("TYER", textOfField(tag.substr(93, 4)), frames);
    // ID3v1.1: a zero in the comment's last but one byte, and the track in its last.
    bool const hasTrack = !bytes[125] && bytes[126];
    appendFrame("COMM", textOfField(tag.substr(97, hasTrack ? 28 : 30)), frames, "XXX");
    if (hasTrack)
        appendFrame("TRCK", std::to_string(bytes[126]), frames);
    constexpr unsigned noGenre = 255; // And others that nobody has named, which do no harm.
    if (bytes[127] != noGenre) // By its number: ID3v2.3.0, 4.2.1.
        appendFrame("TCON", '(' + std::to_string(bytes[127]) + ')', frames);
}

}

bool isBareMP3(KXAbstractData& data)
{
    constexpr int enough = 3, fewest = 2;
    if (hasAPETag(data))
        return false;
    auto const first = audioHeaderAt(0, data);
    std::uint64_t position = 0;
    for (int count = 0; count < enough; ++count) {
        auto const header = audioHeaderAt(position, data);
        if (!header || !header->isAlike(*first))
            return count >= fewest && isEndOfAudio(position, data);
        position += header->length;
    }
    return true;
}

KXData tagForMP3Cover(KXAbstractData& data)
{
    constexpr std::string_view kind = "MPG/3"; // MPEG audio, layer III: ID3v2.3.0, 4.2.1.
    KXByteBuilder frames(mostFrameBytes);
    appendFrame("TFLT", kind, frames);
    appendFramesOfOldTag(data, frames);
    KXData const content = frames.takeData();
    KXByteBuilder tag(headerSize + content.length());
    tag.appendText("ID3");
    tag.appendNumber(0x0300, 2);
    tag.appendUInt8(0); // Flags.
    tag.appendBytes(std::bit_cast<std::array<std::uint8_t, 4>>(
        KXMDFileMetaMP3Frame::sizeToSyncSafeSize(static_cast<std::uint32_t>(content.length()))));
    tag.appendBytes(content.bytes());
    return tag.takeData();
}
