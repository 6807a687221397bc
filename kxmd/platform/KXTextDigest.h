#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <string_view>

/// Names texts by a digest. Safe to call from several threads.
class KX_EXPORT KXTextDigest {
public:
    virtual ~KXTextDigest();

    /// `sha1HexString` The SHA-1 (FIPS 180-4) of the text's UTF-8 bytes, as 40 lower-case digits.
    [[nodiscard]] virtual std::string sha1HexString(std::string_view text) const = 0;
};
