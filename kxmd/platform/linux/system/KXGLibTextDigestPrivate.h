#pragma once

#include "kxmd/platform/KXTextDigest.h"

/// Text digests by GLib.
class KXGLibTextDigest final : public KXTextDigest {
public:
    [[nodiscard]] std::string sha1HexString(std::string_view text) const override;
};
