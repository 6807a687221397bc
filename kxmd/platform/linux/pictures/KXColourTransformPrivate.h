#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// Converts pixels from the colours of a profile to sRGB, which is what a picture has for everybody
/// else.
class KXColourTransform {
public:
    /// `transformToSRGB:isGrey:` From the colours of an ICC profile (ISO 15076-1). Null where these
    /// are those of sRGB, and where the profile is damaged or of another kind than displays,
    /// cameras and phones have: three primaries and their curves, or one curve for pictures of
    /// grey.
    static std::unique_ptr<KXColourTransform const> transformToSRGB(
        std::span<std::uint8_t const> profile, bool isGrey);
    virtual ~KXColourTransform() = default;

    /// `convertPixels:count:` Converts red, green and blue of `count` pixels with alpha.
    virtual void convertPixels(std::uint8_t* pixels, std::size_t count) const = 0;
};
