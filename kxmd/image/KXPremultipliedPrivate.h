#pragma once

#include <algorithm>
#include <cstdint>

// Colours and alpha of eight bits each.

/// A colour multiplied by its alpha.
constexpr std::uint8_t multipliedByAlpha(std::uint32_t colour, std::uint32_t alpha)
{
    return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
}

/// The colour before it was multiplied by its alpha; 0 where nothing of it is left.
constexpr std::uint8_t dividedByAlpha(std::uint32_t colour, std::uint32_t alpha)
{
    std::uint32_t const exact = alpha ? (colour * 255 + alpha / 2) / alpha : 0;
    return static_cast<std::uint8_t>(std::min<std::uint32_t>(exact, 255));
}
