#pragma once

#include "kxmd/base/KXExport.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// How the pixels along one axis of a drawing come from pixels of the source.
///
/// A Catmull-Rom kernel, widened by the scale when it shrinks; taps outside of the source's
/// interval repeat the interval's edge. The last pixel of a source whose length has a fraction
/// counts by the part that is covered, which is all that it shows.
class KX_EXPORT_FOR_TESTS KXResamplerAxis {
public:
    /// Maps the interval [`from`, `from` + `fromLength`) of a source of `sourceLength` onto
    /// [`into`, `into` + `intoLength`) of a target of `targetPixels`, all measured in pixels.
    KXResamplerAxis(double from, double fromLength, double sourceLength, double into,
        double intoLength, std::size_t targetPixels);

    /// The first target pixel that is drawn to.
    std::size_t firstTarget() const { return _firstTarget; }
    /// How many target pixels are drawn to.
    std::size_t targetCount() const { return _targets.size(); }
    /// The first source pixel that any target pixel needs.
    std::size_t firstSource() const { return _firstSource; }
    /// How many source pixels there are from there to the last one needed.
    std::size_t sourceCount() const { return _sourceCount; }

    /// One target pixel: its taps, which add up to 1, and how much of it is covered, from 0 to 1.
    struct Target {
        std::size_t firstTap { 0 }; ///< Source pixel, counted from `firstSource`.
        std::size_t firstWeight { 0 };
        std::size_t tapCount { 0 };
        float coverage { 0 };
    };
    Target const& target(std::size_t i) const { return _targets[i]; }
    std::span<float const> weightsOf(Target const& target) const
    {
        return std::span(_weights).subspan(target.firstWeight, target.tapCount);
    }

private:
    void addTarget(double centre, double scale, double lowest, double highest, float coverage);

    double _sourceLength;
    std::size_t _firstTarget { 0 };
    std::size_t _firstSource { 0 };
    std::size_t _sourceCount { 0 };
    std::vector<Target> _targets;
    std::vector<float> _weights;
};

/// Draws a source whose rows come one by one, over a target.
class KX_EXPORT_FOR_TESTS KXRowResampler {
public:
    KXRowResampler(KXResamplerAxis columns, KXResamplerAxis rows);
    ~KXRowResampler();
    KXRowResampler(KXRowResampler const&) = delete;
    KXRowResampler& operator=(KXRowResampler const&) = delete;

    /// Takes the next row of the source from the top, premultiplied RGBA, and draws the rows of the
    /// target that need no further one. The target has rows of `targetWidth`.
    void takeRow(std::uint8_t const* row, std::span<std::uint8_t> target, std::size_t targetWidth);

private:
    class Drawing;
    std::unique_ptr<Drawing> const _drawing;
};

/// Draws pixels of a source, premultiplied RGBA in rows of `sourceWidth`, over a target in rows of
/// `targetWidth`.
void drawResampled(std::span<std::uint8_t const> source, std::size_t sourceWidth,
    KXResamplerAxis columns, KXResamplerAxis rows, std::span<std::uint8_t> target,
    std::size_t targetWidth);
