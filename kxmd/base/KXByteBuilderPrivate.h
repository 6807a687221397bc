#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/base/KXFourCharacterCodePrivate.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// Puts the bytes of a structure together, numbers with the most significant byte first.
class KXByteBuilder {
public:
    /// With room for so many bytes.
    explicit KXByteBuilder(std::size_t length) { _bytes.reserve(length); }

    /// The lowest `width` bytes of a number.
    void appendNumber(std::uint64_t number, unsigned width)
    {
        for (unsigned shift = 8 * width; shift; shift -= 8)
            _bytes.push_back(static_cast<std::uint8_t>(number >> (shift - 8)));
    }

    void appendUInt8(std::uint8_t number) { _bytes.push_back(number); }
    void appendUInt32(std::uint32_t number) { appendNumber(number, 4); }
    void appendCode(KXFourCharacterCode code) { appendNumber(code.value(), 4); }
    void appendText(std::string_view text)
    {
        _bytes.insert(_bytes.end(), text.begin(), text.end());
    }

    void appendBytes(std::span<std::uint8_t const> bytes)
    {
        _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
    }

    /// What was put together; the builder is empty afterwards.
    [[nodiscard]] KXData takeData() { return KXData(std::move(_bytes)); }

private:
    std::vector<std::uint8_t> _bytes;
};
