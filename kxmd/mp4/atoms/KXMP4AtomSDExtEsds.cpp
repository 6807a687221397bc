#include "kxmd/mp4/atoms/KXMP4AtomSDExtEsds.h"

#include "kxmd/base/KXLog.h"

#include <tuple>

namespace {

// Class tags of descriptors, ISO/IEC 14496-1, table 1.
constexpr std::uint8_t streamDescriptorTag = 0x03;
constexpr std::uint8_t decoderConfigurationTag = 0x04;
constexpr std::uint8_t decoderSpecificInfoTag = 0x05;

// Object type indications, ISO/IEC 14496-1, table 5.
constexpr std::int32_t mpeg4Visual = 0x20;
constexpr std::int32_t mpeg4Audio = 0x40;

/// Moves past the visual object sequence start code, 00 00 01 B0, by its second word (ISO/IEC
/// 14496-2, table 6-3). Looks at whole words from the read position on, a few more than `length`
/// has.
bool findSequenceStartCode(KXAbstractData& data, std::uint8_t length)
{
    constexpr std::uint16_t startCode = 0x01B0;
    if (data.readUInt16OrZero(KXSwap::yes) == startCode)
        return true;
    std::uint8_t searched = 0;
    do {
        if (data.readUInt16OrZero(KXSwap::yes) == startCode)
            return true;
        searched = static_cast<std::uint8_t>(searched + 2);
        // Even, so a length of 255 is never reached in eight bits: the wrap ends the search too.
    } while (searched < length && searched);
    return false;
}

}

std::uint8_t KXMP4AtomSDExtEsds::skipFillersAndReadByte(KXAbstractData& data)
{
    std::uint8_t byte;
    do {
        if (!data.budget().takeStep() || !data.readUInt8To(byte))
            return 0;
    } while (byte == 0x80 || byte == 0x81 || byte == 0xFE);
    return byte;
}

std::string KXMP4AtomSDExtEsds::description() const
{
    switch (_objectTypeIndication) {
    case mpeg4Visual:
        return descriptionWithProfileOfCodec(KXMDCodecMP4Visual)
            + " Level:" + std::to_string(level());
    case mpeg4Audio:
        return descriptionWithProfileOfCodec(KXMDCodecAAC)
            + ", channels:" + std::to_string(audioChannels());
    }
    return KXMP4Atom::description() + " : Unknown object type";
}

void KXMP4AtomSDExtEsds::parseAtomSpecificData(KXAbstractData& data)
{
    std::ignore = data.readUInt32OrZero(KXSwap::yes); // Version and flags.
    // Each descriptor stands in the one before it, but a stream may begin with an inner one.
    std::uint8_t tag = data.readUInt8OrZero();
    if (tag == streamDescriptorTag) {
        if (!readStreamDescriptor(data))
            return;
        tag = data.readUInt8OrZero();
    }
    if (tag == decoderConfigurationTag) {
        if (!readDecoderConfiguration(data))
            return;
        tag = data.readUInt8OrZero();
    }
    if (tag == decoderSpecificInfoTag)
        readDecoderSpecificInfo(data);
}

/// The length of the descriptor whose tag was read; 0 when it is none that fits the atom.
std::uint8_t KXMP4AtomSDExtEsds::readLengthOfDescriptor(KXAbstractData& data) const
{
    std::uint8_t const length = skipFillersAndReadByte(data);
    return length <= size() ? length : std::uint8_t { 0 };
}

bool KXMP4AtomSDExtEsds::readStreamDescriptor(KXAbstractData& data)
{
    if (!readLengthOfDescriptor(data))
        return false;
    data.skipBytes(3); // Stream identifier, flags; what the flags announce is not looked for.
    return true;
}

bool KXMP4AtomSDExtEsds::readDecoderConfiguration(KXAbstractData& data)
{
    if (!readLengthOfDescriptor(data))
        return false;
    _objectTypeIndication = data.readUInt8OrZero();
    _objFlags = data.readUInt8OrZero();
    data.skipBytes(3); // Size of the decoding buffer.
    setMaxBitrate(static_cast<std::int32_t>(data.readUInt32OrZero(KXSwap::yes)));
    setAvgBitrate(static_cast<std::int32_t>(data.readUInt32OrZero(KXSwap::yes)));
    return true;
}

void KXMP4AtomSDExtEsds::readDecoderSpecificInfo(KXAbstractData& data)
{
    std::uint8_t const length = readLengthOfDescriptor(data);
    if (!length)
        return;
    switch (_objectTypeIndication) {
    case mpeg4Visual:
        readVisualConfiguration(data, length);
        break;
    case mpeg4Audio:
        readAudioConfiguration(data);
        break;
    default:
        KXLog("Metadata", "KXMP4AtomEsds->Skip object type:%i", _objectTypeIndication);
    }
}

void KXMP4AtomSDExtEsds::readVisualConfiguration(KXAbstractData& data, std::uint8_t length)
{
    if (!findSequenceStartCode(data, length))
        return;
    std::uint8_t const profileAndLevel = data.readUInt8OrZero();
    setProfile(profileAndLevel >> 4);
    setLevel(profileAndLevel & 0x0F);
}

void KXMP4AtomSDExtEsds::readAudioConfiguration(KXAbstractData& data)
{
    // ISO/IEC 14496-3, 1.6.2.1: the first five bits are the audio object type.
    std::uint8_t const objectType = data.readUInt8OrZero() >> 3;
    setProfile(objectType);
    setAudioChannels(objectType & 0x0F);
}
