#include "kxmd/image/KXResamplerPrivate.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr std::size_t channels = 4;
constexpr std::size_t alpha = 3;

/// Catmull and Rom's cubic; 0 from a distance of 2 on.
double kernel(double distance)
{
    double const x = std::abs(distance);
    if (x >= 2)
        return 0;
    if (x >= 1)
        return ((-0.5 * x + 2.5) * x - 4) * x + 2;
    return (1.5 * x - 2.5) * x * x + 1;
}

/// The four channels of a pixel, which compilers keep in one register.
struct Pixel {
    using Channels = float __attribute__((vector_size(channels * sizeof(float))));
    Channels values {};

    static Pixel ofBytes(std::uint8_t const* bytes)
    {
        using Bytes = std::uint8_t __attribute__((vector_size(channels)));
        Bytes packed;
        std::memcpy(&packed, bytes, sizeof packed);
        return { __builtin_convertvector(packed, Channels) };
    }
};

/// Adds up the taps of one target pixel.
Pixel weightedSum(Pixel const* tap, std::span<float const> weights)
{
    Pixel sum;
    for (float const weight : weights)
        sum.values += weight * (tap++)->values;
    return sum;
}

std::uint8_t rounded(float value) { return static_cast<std::uint8_t>(value + 0.5f); }

/// Source over target, the source weakened to `coverage`.
void compose(Pixel const& pixel, float coverage, std::uint8_t* target)
{
    // The kernel overshoots at edges; a premultiplied colour never exceeds its alpha.
    float const opacity = std::clamp(pixel.values[alpha], 0.0f, 255.0f);
    float const remaining = 1 - coverage * opacity / 255;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        float const colour = std::clamp(pixel.values[channel], 0.0f, opacity);
        target[channel]
            = rounded(coverage * colour + remaining * static_cast<float>(target[channel]));
    }
}

}

KXResamplerAxis::KXResamplerAxis(double from, double fromLength, double sourceLength, double into,
    double intoLength, std::size_t targetPixels)
    : _sourceLength(sourceLength)
{
    double const sourcePixels = std::ceil(sourceLength);
    double const lowest = std::clamp(std::floor(from), 0.0, sourcePixels);
    double const highest = std::min(std::ceil(from + fromLength), sourcePixels) - 1;
    double const begin = std::max(into, 0.0);
    double const end = std::min(into + intoLength, static_cast<double>(targetPixels));
    double const scale = fromLength / intoLength;
    // Written so that NaN draws nothing either, nor a target so small that no number tells how much
    // smaller it is.
    if (!(fromLength > 0) || !std::isfinite(fromLength) || !(intoLength > 0)
        || !std::isfinite(scale) || !(lowest <= highest) || !(begin < end))
        return;

    _firstTarget = static_cast<std::size_t>(begin);
    _firstSource = static_cast<std::size_t>(lowest);
    _sourceCount = static_cast<std::size_t>(highest - lowest) + 1;
    // A kernel wider than all there is shows the same, and would take as long as it is wide.
    double const kernelScale = std::clamp(scale, 1.0, highest - lowest + 1);
    for (double left = std::floor(begin); left < end; ++left) {
        double const coveredFrom = std::max(left, begin);
        double const coveredTo = std::min(left + 1, end);
        double const centre = from + ((coveredFrom + coveredTo) / 2 - into) * scale;
        addTarget(
            centre, kernelScale, lowest, highest, static_cast<float>(coveredTo - coveredFrom));
    }
}

void KXResamplerAxis::addTarget(
    double centre, double scale, double lowest, double highest, float coverage)
{
    constexpr double radius = 2;
    double const first = std::floor(centre - radius * scale);
    double const last = std::ceil(centre + radius * scale);
    double const firstTap = std::clamp(first, lowest, highest);
    double const lastTap = std::clamp(last, lowest, highest);

    Target target { .firstTap = static_cast<std::size_t>(firstTap - lowest),
        .firstWeight = _weights.size(),
        .tapCount = static_cast<std::size_t>(lastTap - firstTap) + 1,
        .coverage = coverage };
    std::vector<double> weights(target.tapCount);
    double total = 0;
    for (double pixel = first; pixel <= last; ++pixel) {
        double const weight = kernel((pixel + 0.5 - centre) / scale);
        double const tap = std::clamp(pixel, firstTap, lastTap);
        weights[static_cast<std::size_t>(tap - firstTap)] += weight;
        total += weight * std::min(_sourceLength - tap, 1.0);
    }
    for (double const weight : weights)
        _weights.push_back(static_cast<float>(weight / total));
    _targets.push_back(target);
}

void drawResampled(std::span<std::uint8_t const> source, std::size_t sourceWidth,
    KXResamplerAxis const& columns, KXResamplerAxis const& rows, std::span<std::uint8_t> target,
    std::size_t targetWidth)
{
    // Every source row in the target's columns first, then down the columns.
    std::size_t const width = columns.targetCount();
    std::vector<Pixel> row(columns.sourceCount());
    std::vector<Pixel> narrowed(rows.sourceCount() * width);
    for (std::size_t y = 0; y < rows.sourceCount(); ++y) {
        std::uint8_t const* bytes = source.data()
            + ((rows.firstSource() + y) * sourceWidth + columns.firstSource()) * channels;
        for (Pixel& pixel : row) {
            pixel = Pixel::ofBytes(bytes);
            bytes += channels;
        }
        for (std::size_t x = 0; x < width; ++x) {
            auto const& column = columns.target(x);
            narrowed[y * width + x] = weightedSum(&row[column.firstTap], columns.weightsOf(column));
        }
    }
    std::vector<Pixel> sums(width);
    for (std::size_t y = 0; y < rows.targetCount(); ++y) {
        auto const& taps = rows.target(y);
        std::ranges::fill(sums, Pixel());
        Pixel const* tap = &narrowed[taps.firstTap * width];
        for (float const weight : rows.weightsOf(taps)) {
            for (Pixel& sum : sums)
                sum.values += weight * (tap++)->values;
        }
        std::uint8_t* const pixels = target.data()
            + ((rows.firstTarget() + y) * targetWidth + columns.firstTarget()) * channels;
        for (std::size_t x = 0; x < width; ++x)
            compose(sums[x], taps.coverage * columns.target(x).coverage, pixels + x * channels);
    }
}
