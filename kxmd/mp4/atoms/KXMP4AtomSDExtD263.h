#pragma once

#include "kxmd/mp4/atoms/KXMP4AtomSDExt.h"

/// The H.263 specific box (3GPP TS 26.244, 6.8): profile and level.
class KX_EXPORT KXMP4AtomSDExtD263 final : public KXMP4AtomSDExt {
public:
    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;
};
