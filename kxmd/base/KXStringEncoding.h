#pragma once

#include <cstdint>

/// Text encodings, by the numbers that the byte reader takes.
enum KXStringEncoding : std::uint32_t {
    KXStringEncodingASCII = 1, ///< Seven bits; a byte above 0x7F cannot be decoded.
    KXStringEncodingUTF8 = 4, ///< RFC 3629; a leading byte-order mark is kept as a character.
    KXStringEncodingLatin1 = 5, ///< ISO/IEC 8859-1: every byte is the character of the same code.
    KXStringEncodingUnicode = 10, ///< UTF-16 (RFC 2781) by its byte-order mark, else big-endian.
};
