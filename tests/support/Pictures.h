#pragma once

#include "kxmd/image/KXImage.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

/// Pictures made by rules, and what tests ask of them.
namespace pictures {

/// Red, green, blue and alpha, premultiplied.
using Colour = std::array<std::uint8_t, KXImage::bytesPerPixel>;

constexpr Colour transparent {};
constexpr Colour red { 255, 0, 0, 255 };
constexpr Colour green { 0, 255, 0, 255 };
constexpr Colour blue { 0, 0, 255, 255 };
constexpr Colour white { 255, 255, 255, 255 };

/// A picture whose pixel at column x of row y, counted from the top, is `colourAt(x, y)`.
template <class ColourAt>
KXImage::Ref imageOf(std::size_t width, std::size_t height, ColourAt colourAt)
{
    std::vector<std::uint8_t> pixels;
    pixels.reserve(width * height * KXImage::bytesPerPixel);
    for (std::size_t y = 0; y < height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
            Colour const colour = colourAt(x, y);
            pixels.insert(pixels.end(), colour.begin(), colour.end());
        }
    }
    return KXImage::imageWithPixels(std::move(pixels), width, height);
}

KXImage::Ref solid(std::size_t width, std::size_t height, Colour colour);

/// Opaque; red grows from the left, green from the top. No two pixels of 256 by 256 are the same.
KXImage::Ref gradient(std::size_t width, std::size_t height);

/// Four opaque colours: red and green in the upper half, blue and white in the lower.
KXImage::Ref quarters(std::size_t width, std::size_t height);

/// Opaque, somewhat like a photograph: soft gradients, hard edges and a little noise.
KXImage::Ref photograph(std::size_t width, std::size_t height);

/// Colour and alpha of every pixel by chance, the colours premultiplied.
KXImage::Ref noise(std::size_t width, std::size_t height, std::uint32_t seed);

/// The pixel at column x of row y, counted from the top.
Colour pixel(KXImage const& image, std::size_t x, std::size_t y);

/// Whether two pictures have the same size and the same pixels.
bool areEqual(KXImage const& one, KXImage const& other);

/// How many pixels have that very colour.
std::size_t countOf(KXImage const& image, Colour colour);

/// Peak signal to noise ratio of two pictures with as many pixels, in decibels; at most 100.
double likeness(KXImage const& one, KXImage const& other);

}
