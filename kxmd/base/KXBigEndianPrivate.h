#pragma once

#include <cstdint>
#include <span>

/// The number in four bytes, most significant byte first.
constexpr std::uint32_t bigEndian32(std::span<std::uint8_t const, 4> bytes)
{
    return std::uint32_t { bytes[0] } << 24 | std::uint32_t { bytes[1] } << 16
        | std::uint32_t { bytes[2] } << 8 | bytes[3];
}
