#include "kxmd/mp3/KXMP3CoverPlacePrivate.h"

#include "kxmd/base/KXByteBuilderPrivate.h"

#include <optional>
#include <string_view>

namespace {

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

/// Whether the audio ends there: with the file, or before a tag.
bool isEndOfAudio(std::uint64_t position, KXAbstractData& data)
{
    constexpr std::string_view firstWords[] { "TAG", "APET", "LYRI", "3DI" };
    if (position == data.length())
        return true;
    for (std::string_view const word : firstWords) {
        std::optional<std::string> text;
        data.setOffset(position);
        if (data.readStringTo(text, word.size(), KXStringEncodingLatin1) && *text == word)
            return true;
    }
    return false;
}

}

bool isBareMP3(KXAbstractData& data)
{
    constexpr int enough = 3, fewest = 2;
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

KXData tagForMP3Cover()
{
    constexpr std::string_view kind = "MPG/3"; // MPEG audio, layer III: ID3v2.3.0, 4.2.1.
    constexpr std::uint32_t headerSize = 10, encodingSize = 1;
    constexpr std::uint32_t contentSize = encodingSize + kind.size();
    static_assert(headerSize + contentSize <= 0x7F, "the tag's size fits in its last seven bits");
    KXByteBuilder tag(headerSize + headerSize + contentSize);
    tag.appendText("ID3");
    tag.appendNumber(0x0300, 2);
    tag.appendUInt8(0); // Flags.
    tag.appendUInt32(headerSize + contentSize);
    tag.appendText("TFLT");
    tag.appendUInt32(contentSize);
    tag.appendNumber(0, 2); // Flags.
    tag.appendUInt8(0); // Latin-1.
    tag.appendText(kind);
    return tag.takeData();
}
