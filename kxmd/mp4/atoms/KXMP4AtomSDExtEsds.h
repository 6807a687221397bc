#pragma once

#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"

/// The elementary stream descriptor (ISO/IEC 14496-14, 5.6; its descriptors: ISO/IEC
/// 14496-1, 7.2.6).
class KX_EXPORT KXMP4AtomSDExtEsds final : public KXMP4AtomSDExt {
public:
    /// `objectTypeIndication` The codec: 0x20 MPEG-4 Visual, 0x40 MPEG-4 Audio; 0 until read.
    [[nodiscard]] std::int32_t objectTypeIndication() const { return _objectTypeIndication; }
    /// `setObjectTypeIndication:` Sets the codec.
    void setObjectTypeIndication(std::int32_t indication) { _objectTypeIndication = indication; }

    /// `objFlags` Stream type, upstream flag and reserved bit, in one byte.
    [[nodiscard]] std::uint8_t objFlags() const { return _objFlags; }
    /// `setObjFlags:` Sets that byte.
    void setObjFlags(std::uint8_t objFlags) { _objFlags = objFlags; }

    /// `skipFillersAndReadByte:` Reads a descriptor's length: the first byte that is not 0x80, 0x81
    /// or 0xFE, with which writers pad it. 0 at the end of the data. Lengths above 127 are not
    /// understood.
    [[nodiscard]] static std::uint8_t skipFillersAndReadByte(KXAbstractData& data);

    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;

private:
    std::uint8_t readLengthOfDescriptor(KXAbstractData& data) const;
    bool readStreamDescriptor(KXAbstractData& data);
    bool readDecoderConfiguration(KXAbstractData& data);
    void readDecoderSpecificInfo(KXAbstractData& data);
    void readVisualConfiguration(KXAbstractData& data, std::uint8_t length);
    void readAudioConfiguration(KXAbstractData& data);

    std::int32_t _objectTypeIndication { 0 };
    std::uint8_t _objFlags { 0 };
};
