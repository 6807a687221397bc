#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXStringEncoding.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Decodes all of `bytes`, embedded zeros included, to UTF-8.
///
/// Absent when the bytes are not valid in the encoding (for UTF-16 also when their count is odd or
/// a surrogate stands alone) or when the encoding is unknown. A UTF-16 byte-order mark is dropped.
KX_EXPORT std::optional<std::string> textFromBytes(
    std::span<std::uint8_t const> bytes, KXStringEncoding encoding);

/// The length of the well-formed UTF-8 sequence at the start of `bytes`, which is not empty, or 0
/// (Unicode, table 3-7).
std::size_t lengthOfUTF8Sequence(std::span<std::uint8_t const> bytes);

/// Bytes of the encoding's zero terminator: 2 for UTF-16, else 1.
KX_EXPORT_FOR_TESTS std::size_t terminatorSizeForEncoding(KXStringEncoding encoding);
