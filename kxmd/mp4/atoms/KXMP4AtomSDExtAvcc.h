#pragma once

#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"

/// The AVC decoder configuration record (ISO/IEC 14496-15, 5.3.3.1): profile_idc and level_idc.
class KX_EXPORT KXMP4AtomSDExtAvcc final : public KXMP4AtomSDExt {
public:
    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;
};
