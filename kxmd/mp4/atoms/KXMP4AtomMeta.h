#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The metadata container, in both its forms: ISO/IEC 14496-12, 8.11.1, puts a word of version and
/// flags before the children, QuickTime does not.
class KX_EXPORT KXMP4AtomMeta final : public KXMP4Atom {
public:
    void parseAtomSpecificData(KXAbstractData& data) override;
};
