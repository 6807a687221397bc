#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

// Colours and alpha of eight bits each.

/// A colour multiplied by its alpha.
constexpr std::uint8_t multipliedByAlpha(std::uint32_t colour, std::uint32_t alpha)
{
    return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
}

/// Pixels of red, green, blue and alpha whose colours are not multiplied by it yet.
inline void multiplyByAlpha(std::span<std::uint8_t> pixels)
{
    constexpr std::size_t length = 4, alpha = 3;
    for (std::size_t i = 0; i + alpha < pixels.size(); i += length) {
        for (std::size_t colour = i; colour < i + alpha; ++colour)
            pixels[colour] = multipliedByAlpha(pixels[colour], pixels[i + alpha]);
    }
}

/// The colour before it was multiplied by its alpha; 0 where nothing of it is left.
constexpr std::uint8_t dividedByAlpha(std::uint32_t colour, std::uint32_t alpha)
{
    std::uint32_t const exact = alpha ? (colour * 255 + alpha / 2) / alpha : 0;
    return static_cast<std::uint8_t>(std::min<std::uint32_t>(exact, 255));
}
