#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The chunk offset table, "stco": where in the file each chunk of a track's media begins, in 32
/// bits (ISO/IEC 14496-12, 8.7.5). The 64-bit table is an atom without fields of its own.
class KX_EXPORT KXMP4AtomSampleTable final : public KXMP4Atom {
public:
    /// `noOfEntries` The count of chunks that the table claims.
    [[nodiscard]] std::uint32_t noOfEntries() const { return _noOfEntries; }
    /// `setNoOfEntries:` Sets the count.
    void setNoOfEntries(std::uint32_t noOfEntries) { _noOfEntries = noOfEntries; }

    void parseAtomSpecificData(KXAbstractData& data) override;

protected:
    /// Stops at the first entry before `start`. Deliberate: media lies after the edit or
    /// before it, hardly ever on both sides.
    bool adjustOwnOffsets(
        std::int64_t difference, std::uint64_t start, KXMutableData& data) override;

private:
    std::uint32_t _noOfEntries { 0 };
};
