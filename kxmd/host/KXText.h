#pragma once

#include "kxmd/host/KXExport.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The platform's string-encoding numbers that the byte reader understands.
enum KXStringEncoding : std::uint32_t {
    KXStringEncodingASCII = 1, ///< Seven bits; a byte above 0x7F cannot be decoded.
    KXStringEncodingUTF8 = 4, ///< RFC 3629; a leading byte-order mark is kept as a character.
    KXStringEncodingLatin1 = 5, ///< ISO/IEC 8859-1: every byte is the character of the same code.
    KXStringEncodingUnicode = 10, ///< UTF-16 (RFC 2781) by its byte-order mark, else big-endian.
};

/// `textFromBytes:encoding:` Decodes all of `bytes`, embedded zeros included, to UTF-8.
///
/// Absent when the bytes are not valid in the encoding (for UTF-16 also when their count is odd or
/// a surrogate stands alone) or when the encoding is unknown. A UTF-16 byte-order mark is dropped.
KX_EXPORT std::optional<std::string> textFromBytes(
    std::span<std::uint8_t const> bytes, KXStringEncoding encoding);

/// `terminatorSizeForEncoding:` Bytes of the encoding's zero terminator: 2 for UTF-16, else 1.
KX_EXPORT std::size_t terminatorSizeForEncoding(KXStringEncoding encoding);
