#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <cstdint>

enum class KXMP4TextKind : std::uint8_t {
    any, ///< UTF-16 after a byte-order mark, else a byte or more for each character.
    utf16, ///< Without a byte-order mark, most significant byte first.
};

/// Whether the text between two positions describes anything: whether it has more than spaces
/// before its end or its first zero. Only its beginning is looked at.
[[nodiscard]] bool isDescriptiveText(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end, KXMP4TextKind kind);

/// Whether a number between two positions, at most eight bytes of it, is not 0.
[[nodiscard]] bool hasNumberOtherThanZero(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end);
