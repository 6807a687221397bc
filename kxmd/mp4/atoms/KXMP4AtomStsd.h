#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The sample description table: one sample entry for each way that a track's media is coded
/// (ISO/IEC 14496-12, 8.5.2).
class KX_EXPORT KXMP4AtomStsd final : public KXMP4Atom {
public:
    /// `version` The table's version.
    [[nodiscard]] std::uint8_t version() const { return _version; }
    /// `setVersion:` Sets the version.
    void setVersion(std::uint8_t version) { _version = version; }

    /// `noOfSampleDescriptions` The count that the table claims; the entries themselves are the
    /// children, however many there are.
    [[nodiscard]] std::uint32_t noOfSampleDescriptions() const { return _noOfSampleDescriptions; }
    /// `setNoOfSampleDescriptions:` Sets the count.
    void setNoOfSampleDescriptions(std::uint32_t count) { _noOfSampleDescriptions = count; }

    /// `codecsInfo` One record per child, in order; codec 0 for a child that is not a sample
    /// entry.
    [[nodiscard]] KXMDCodecInfo::List codecsInfo() const;

    void parseAtomSpecificData(KXAbstractData& data) override;

private:
    std::uint8_t _version { 0 };
    std::uint32_t _noOfSampleDescriptions { 0 };
};
