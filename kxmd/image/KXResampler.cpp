#include "kxmd/image/KXResamplerPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

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
using Pixel = float __attribute__((vector_size(channels * sizeof(float))));

constexpr std::size_t together = 4; ///< Rows: their sums do not wait for each other.
constexpr std::size_t run = 4; ///< Pixels of a target row, for the same reason.

Pixel pixelOf(std::uint8_t const* bytes)
{
    using Bytes = std::uint8_t __attribute__((vector_size(channels)));
    Bytes packed;
    std::memcpy(&packed, bytes, sizeof packed);
    return __builtin_convertvector(packed, Pixel);
}

/// Converts a run of pixels: so many that compilers take them in one step.
void unpackRun(std::uint8_t const* bytes, Pixel* pixels)
{
    std::array<float, run * channels> values;
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<float>(bytes[i]);
    std::memcpy(pixels, values.data(), sizeof values);
}

void unpackRow(std::uint8_t const* bytes, Pixel* pixels, std::size_t width)
{
    std::size_t x = 0;
    for (; x + run <= width; x += run)
        unpackRun(bytes + x * channels, pixels + x);
    for (; x < width; ++x)
        pixels[x] = pixelOf(bytes + x * channels);
}

/// The weighted sum of a run of pixels in several rows.
std::array<Pixel, run> sumOfRows(
    std::span<Pixel const* const> rows, std::size_t x, float const* weights)
{
    Pixel first {}, second {}, third {}, fourth {}; // Registers.
    for (Pixel const* const row : rows) {
        float const weight = *weights++;
        first += weight * row[x];
        second += weight * row[x + 1];
        third += weight * row[x + 2];
        fourth += weight * row[x + 3];
    }
    return { first, second, third, fourth };
}

/// Whether each pixel of a run covers what is below it, as nearly as weights add up.
bool areOpaque(std::array<Pixel, run> const& pixels)
{
    constexpr float almostOpaque = 254.99F;
    Pixel least = pixels[0];
    for (Pixel const& pixel : pixels)
        least = pixel < least ? pixel : least;
    return least[alpha] > almostOpaque;
}

/// The kernel overshoots at edges; a premultiplied colour never exceeds its alpha.
Pixel bounded(Pixel pixel, float opacity)
{
    pixel = pixel > 0 ? pixel : Pixel {};
    return pixel < opacity ? pixel : Pixel {} + opacity;
}

/// Source over target, the source weakened to `coverage`.
Pixel composed(Pixel pixel, float coverage, std::uint8_t const* target)
{
    float const opacity = std::clamp(pixel[alpha], 0.0f, 255.0f);
    float const remaining = 1 - coverage * opacity / 255;
    return coverage * bounded(pixel, opacity) + remaining * pixelOf(target);
}

/// Draws a run of pixels, each weakened to its coverage, over what is there; the first `count` of
/// them.
void drawRun(std::array<Pixel, run> pixels, std::array<float, run> const& coverages,
    std::size_t count, std::uint8_t* target)
{
    bool const isCovering = areOpaque(pixels) && std::ranges::min(coverages) >= 1;
    for (std::size_t i = 0; i < count; ++i) {
        pixels[i] = isCovering ? bounded(pixels[i], 255)
                               : composed(pixels[i], coverages[i], target + i * channels);
    }
    // Rounded to whole numbers, of which none is negative or above 255.
    using Integers = std::int32_t __attribute__((vector_size(sizeof(Pixel))));
    std::array<Integers, run> integers;
    for (std::size_t i = 0; i < run; ++i)
        integers[i] = __builtin_convertvector(pixels[i] + 0.5F, Integers);
    std::array<std::int32_t, run * channels> values;
    std::memcpy(values.data(), integers.data(), sizeof values);
    std::array<std::uint8_t, run * channels> bytes;
    for (std::size_t i = 0; i < values.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(values[i]);
    std::memcpy(target, bytes.data(), count * channels);
}

std::size_t mostTapsOf(KXResamplerAxis const& rows)
{
    std::size_t most = 0;
    for (std::size_t y = 0; y < rows.targetCount(); ++y)
        most = std::max(most, rows.target(y).tapCount);
    return most;
}

/// The rows of a source in the columns of a target. Only those that the target row in progress
/// needs are kept, so that they stay in the processor's cache.
class NarrowedRows {
public:
    NarrowedRows(KXResamplerAxis const& columns, KXResamplerAxis const& rows)
        : _columns(columns)
        , _capacity(mostTapsOf(rows) + together - 1)
        , _stride(((columns.targetCount() + run - 1) / run | 1) * run)
        , _wide(together * columns.sourceCount())
        , _narrowed(_capacity * _stride)
    {
    }

    /// Takes the next row, from the first pixel that is needed.
    void takeRow(std::uint8_t const* pixels)
    {
        std::size_t const width = _columns.sourceCount();
        unpackRow(pixels, &_wide[_taken % together * width], width);
        if (++_taken % together == 0)
            narrow();
    }

    /// Makes what has been taken ready; no row follows.
    void finish()
    {
        if (_taken % together)
            narrow();
    }

    /// The rows that are ready. Those that came more than the most taps before the last of them are
    /// gone.
    [[nodiscard]] std::size_t count() const { return _count; }

    /// A row that is as long as several runs; what is beyond the columns shows nothing.
    [[nodiscard]] Pixel const* row(std::size_t y) const
    {
        return &_narrowed[y % _capacity * _stride];
    }

private:
    /// As many rows as are summed together; after the last one some that nobody asks for.
    void narrow()
    {
        std::size_t const width = _columns.sourceCount();
        std::array<Pixel*, together> narrowed;
        for (Pixel*& row : narrowed)
            row = &_narrowed[_count++ % _capacity * _stride];
        for (std::size_t x = 0; x < _columns.targetCount(); ++x) {
            auto const& column = _columns.target(x);
            Pixel const* tap = &_wide[column.firstTap];
            Pixel first {}, second {}, third {}, fourth {}; // Registers.
            for (float const weight : _columns.weightsOf(column)) {
                first += weight * tap[0];
                second += weight * tap[width];
                third += weight * tap[2 * width];
                fourth += weight * tap[3 * width];
                ++tap;
            }
            narrowed[0][x] = first;
            narrowed[1][x] = second;
            narrowed[2][x] = third;
            narrowed[3][x] = fourth;
        }
    }

    KXResamplerAxis const& _columns;
    std::size_t const _capacity; ///< Rows.
    std::size_t const _stride; ///< An odd number of runs: powers of 2 fall in the same cache lines.
    std::size_t _taken { 0 };
    std::size_t _count { 0 };
    std::vector<Pixel> _wide; ///< Rows of the source, in its own columns.
    std::vector<Pixel> _narrowed; ///< A ring.
};

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

/// A drawing in progress.
class KXRowResampler::Drawing {
public:
    Drawing(KXResamplerAxis columns, KXResamplerAxis rows)
        : _columns(std::move(columns))
        , _rows(std::move(rows))
        , _narrowed(_columns, _rows)
    {
    }

    void takeRow(std::uint8_t const* row, std::span<std::uint8_t> target, std::size_t targetWidth)
    {
        std::size_t const y = _rowsSeen++;
        std::size_t const end = _rows.firstSource() + _rows.sourceCount();
        if (y < _rows.firstSource() || y >= end)
            return;
        _narrowed.takeRow(row + _columns.firstSource() * channels);
        if (y + 1 == end)
            _narrowed.finish();
        while (_drawn < _rows.targetCount() && isReady(_rows.target(_drawn)))
            drawNext(target, targetWidth);
    }

private:
    bool isReady(KXResamplerAxis::Target const& taps) const
    {
        return taps.firstTap + taps.tapCount <= _narrowed.count();
    }

    void drawNext(std::span<std::uint8_t> target, std::size_t targetWidth)
    {
        auto const& taps = _rows.target(_drawn);
        auto const weights = _rows.weightsOf(taps);
        _tapRows.clear();
        for (std::size_t i = 0; i < taps.tapCount; ++i)
            _tapRows.push_back(_narrowed.row(taps.firstTap + i));
        std::size_t const line = _rows.firstTarget() + _drawn++;
        std::uint8_t* pixels
            = target.data() + (line * targetWidth + _columns.firstTarget()) * channels;
        for (std::size_t x = 0; x < _columns.targetCount(); x += run) {
            std::size_t const count = std::min(run, _columns.targetCount() - x);
            std::array<float, run> coverages {};
            for (std::size_t i = 0; i < count; ++i)
                coverages[i] = taps.coverage * _columns.target(x + i).coverage;
            drawRun(sumOfRows(_tapRows, x, weights.data()), coverages, count, pixels);
            pixels += run * channels;
        }
    }

    KXResamplerAxis const _columns;
    KXResamplerAxis const _rows;
    NarrowedRows _narrowed;
    std::size_t _rowsSeen { 0 };
    std::size_t _drawn { 0 }; ///< Rows of the target.
    std::vector<Pixel const*> _tapRows;
};

KXRowResampler::KXRowResampler(KXResamplerAxis columns, KXResamplerAxis rows)
    : _drawing(std::make_unique<Drawing>(std::move(columns), std::move(rows)))
{
}

KXRowResampler::~KXRowResampler() = default;

void KXRowResampler::takeRow(
    std::uint8_t const* row, std::span<std::uint8_t> target, std::size_t targetWidth)
{
    _drawing->takeRow(row, target, targetWidth);
}

void drawResampled(std::span<std::uint8_t const> source, std::size_t sourceWidth,
    KXResamplerAxis columns, KXResamplerAxis rows, std::span<std::uint8_t> target,
    std::size_t targetWidth)
{
    std::size_t const end = rows.firstSource() + rows.sourceCount();
    KXRowResampler resampler(std::move(columns), std::move(rows));
    for (std::size_t y = 0; y < end; ++y)
        resampler.takeRow(&source[y * sourceWidth * channels], target, targetWidth);
}
