#include "kxmd/image/KXResamplerPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>

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

/// Rounded to whole numbers, of which none is negative or above 255.
void write(Pixel const& pixel, std::uint8_t* bytes)
{
    using Integers = std::int32_t __attribute__((vector_size(channels * sizeof(std::int32_t))));
    using Bytes = std::uint8_t __attribute__((vector_size(channels)));
    auto const integers = __builtin_convertvector(pixel.values + 0.5f, Integers);
    auto const packed = __builtin_convertvector(integers, Bytes);
    std::memcpy(bytes, &packed, sizeof packed);
}

/// Source over target, the source weakened to `coverage`.
void compose(Pixel const& pixel, float coverage, std::uint8_t* target)
{
    // The kernel overshoots at edges; a premultiplied colour never exceeds its alpha.
    float const opacity = std::clamp(pixel.values[alpha], 0.0f, 255.0f);
    float const remaining = 1 - coverage * opacity / 255;
    Pixel::Channels colours = pixel.values;
    colours = colours > 0 ? colours : Pixel::Channels {};
    colours = colours < opacity ? colours : Pixel::Channels {} + opacity;
    write({ coverage * colours + remaining * Pixel::ofBytes(target).values }, target);
}

/// The rows of a source in the columns of a target. Only those that the target row in progress
/// needs are kept, so that they stay in the processor's cache.
class NarrowedRows {
public:
    NarrowedRows(std::span<std::uint8_t const> source, std::size_t sourceWidth,
        KXResamplerAxis const& columns, KXResamplerAxis const& rows)
        : _source(source)
        , _sourceWidth(sourceWidth)
        , _columns(columns)
        , _rows(rows)
        , _capacity(mostTapsOf(rows) + together - 1)
        , _wide(together * columns.sourceCount())
        , _narrowed(_capacity * columns.targetCount())
    {
    }

    /// Makes the rows up to `last`. Those that came more than the most taps before it are gone.
    void make(std::size_t last)
    {
        for (; _made <= last; _made += together)
            makeNext();
    }

    Pixel const* row(std::size_t y) const
    {
        return &_narrowed[y % _capacity * _columns.targetCount()];
    }

private:
    static constexpr std::size_t together = 4; ///< Sums that do not wait for each other.

    static std::size_t mostTapsOf(KXResamplerAxis const& rows)
    {
        std::size_t most = 0;
        for (std::size_t y = 0; y < rows.targetCount(); ++y)
            most = std::max(most, rows.target(y).tapCount);
        return most;
    }

    void makeNext()
    {
        std::size_t const width = _columns.sourceCount();
        std::array<Pixel*, together> narrowed;
        for (std::size_t i = 0; i < together; ++i) {
            // After the last row the last one again, which nobody asks for.
            unpack(std::min(_made + i, _rows.sourceCount() - 1), &_wide[i * width]);
            narrowed[i] = &_narrowed[(_made + i) % _capacity * _columns.targetCount()];
        }
        for (std::size_t x = 0; x < _columns.targetCount(); ++x) {
            auto const& column = _columns.target(x);
            Pixel const* tap = &_wide[column.firstTap];
            Pixel::Channels first {}, second {}, third {}, fourth {}; // Registers.
            for (float const weight : _columns.weightsOf(column)) {
                first += weight * tap[0].values;
                second += weight * tap[width].values;
                third += weight * tap[2 * width].values;
                fourth += weight * tap[3 * width].values;
                ++tap;
            }
            narrowed[0][x] = { first };
            narrowed[1][x] = { second };
            narrowed[2][x] = { third };
            narrowed[3][x] = { fourth };
        }
    }

    void unpack(std::size_t y, Pixel* pixels) const
    {
        std::size_t const first = (_rows.firstSource() + y) * _sourceWidth + _columns.firstSource();
        auto const bytes = _source.subspan(first * channels, _columns.sourceCount() * channels);
        std::size_t x = 0;
        for (; x + together <= _columns.sourceCount(); x += together)
            unpackTogether(bytes.data() + x * channels, pixels + x);
        for (; x < _columns.sourceCount(); ++x)
            pixels[x] = Pixel::ofBytes(bytes.data() + x * channels);
    }

    /// So many that compilers take them in one step.
    static void unpackTogether(std::uint8_t const* bytes, Pixel* pixels)
    {
        float values[together * channels];
        for (std::size_t i = 0; i < std::size(values); ++i)
            values[i] = static_cast<float>(bytes[i]);
        std::memcpy(pixels, values, sizeof values);
    }

    std::span<std::uint8_t const> const _source;
    std::size_t const _sourceWidth;
    KXResamplerAxis const& _columns;
    KXResamplerAxis const& _rows;
    std::size_t const _capacity; ///< Rows.
    std::size_t _made { 0 };
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

void drawResampled(std::span<std::uint8_t const> source, std::size_t sourceWidth,
    KXResamplerAxis const& columns, KXResamplerAxis const& rows, std::span<std::uint8_t> target,
    std::size_t targetWidth)
{
    NarrowedRows narrowed(source, sourceWidth, columns, rows);
    std::vector<Pixel const*> tapRows;
    for (std::size_t y = 0; y < rows.targetCount(); ++y) {
        auto const& taps = rows.target(y);
        auto const weights = rows.weightsOf(taps);
        narrowed.make(taps.firstTap + taps.tapCount - 1);
        tapRows.clear();
        for (std::size_t i = 0; i < taps.tapCount; ++i)
            tapRows.push_back(narrowed.row(taps.firstTap + i));
        std::uint8_t* pixels = target.data()
            + ((rows.firstTarget() + y) * targetWidth + columns.firstTarget()) * channels;
        for (std::size_t x = 0; x < columns.targetCount(); ++x) {
            Pixel sum;
            for (std::size_t i = 0; i < weights.size(); ++i)
                sum.values += weights[i] * tapRows[i][x].values;
            compose(sum, taps.coverage * columns.target(x).coverage, pixels);
            pixels += channels;
        }
    }
}
