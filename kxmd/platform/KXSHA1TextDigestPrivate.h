#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXTextDigest.h"

/// Text digests as every platform of ours makes them.
class KX_EXPORT KXSHA1TextDigest final : public KXTextDigest {
public:
    [[nodiscard]] std::string sha1HexString(std::string_view text) const override;
};
