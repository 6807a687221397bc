#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include "kxmd/image/KXPremultipliedPrivate.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t pixelLength = KXImage::bytesPerPixel;
constexpr std::uint8_t opaque = 255;
constexpr std::size_t mostRowsInColumns
    = std::numeric_limits<std::uint16_t>::max() / std::numeric_limits<std::uint8_t>::max();

/// By how much a picture is shrunk as it is taken over.
std::size_t shrinkingFactor(KXPictureLayout const& layout, KXSize wantedSize)
{
    constexpr std::size_t fewPixels = 1 << 22;
    double const wanted = std::max(wantedSize.width, wantedSize.height);
    if (!(wanted > 0) || layout.width * layout.height <= fewPixels)
        return 1;
    auto const shorterSide = static_cast<double>(std::min(layout.width, layout.height));
    return static_cast<std::size_t>(std::clamp(shorterSide / (2 * wanted), 1.0, shorterSide));
}

/// What an orientation stands for: a picture that is mirrored, and transposed afterwards.
struct Turn {
    bool isTransposed;
    bool isMirroredAcross; ///< Its rows run backwards.
    bool isMirroredDown; ///< Its last row is the first.

    bool isAny() const { return isTransposed || isMirroredAcross || isMirroredDown; }

    static Turn ofOrientation(unsigned orientation)
    {
        constexpr Turn turns[] { { false, false, false }, { false, true, false },
            { false, true, true }, { false, false, true }, { true, false, false },
            { true, false, true }, { true, true, true }, { true, true, false } };
        bool const isKnown = orientation >= 1 && orientation <= std::size(turns);
        return turns[isKnown ? orientation - 1 : 0];
    }
};

void divideByAlpha(std::uint8_t* row, std::size_t width)
{
    for (std::uint8_t* pixel = row; pixel != row + width * pixelLength; pixel += pixelLength) {
        for (std::size_t channel = 0; channel < 3; ++channel)
            pixel[channel] = dividedByAlpha(pixel[channel], pixel[3]);
    }
}

/// Takes care of files that break the rule of colours that are multiplied by alpha.
void boundByAlpha(std::uint8_t* row, std::size_t width)
{
    for (std::uint8_t* pixel = row; pixel != row + width * pixelLength; pixel += pixelLength) {
        for (std::size_t channel = 0; channel < 3; ++channel)
            pixel[channel] = std::min(pixel[channel], pixel[3]);
    }
}

/// Whatever a decoder leaves in the place of alpha.
void makeOpaque(std::uint8_t* row, std::size_t width)
{
    for (std::size_t i = 3; i < width * pixelLength; i += pixelLength)
        row[i] = opaque;
}

struct Pixels {
    std::size_t width, height;
};

/// The size of a square before it is turned upright.
Pixels squareAsStored(KXSize size, KXPictureLayout const& layout)
{
    auto const width = static_cast<std::size_t>(size.width);
    auto const height = static_cast<std::size_t>(size.height);
    return Turn::ofOrientation(layout.orientation).isTransposed ? Pixels { height, width }
                                                                : Pixels { width, height };
}

/// Draws the largest centred square of a picture.
std::unique_ptr<KXRowResampler> resamplerOfSquare(
    KXPictureLayout const& layout, std::size_t width, std::size_t height)
{
    auto const side = static_cast<double>(std::min(layout.width, layout.height));
    auto const axis = [side](std::size_t length, std::size_t pixels) {
        auto const whole = static_cast<double>(length);
        return KXResamplerAxis(
            (whole - side) * 0.5, side, whole, 0, static_cast<double>(pixels), pixels);
    };
    return std::make_unique<KXRowResampler>(axis(layout.width, width), axis(layout.height, height));
}

std::size_t blocksIn(std::size_t length, std::size_t factor)
{
    return (length + factor - 1) / factor;
}

}

KXPictureRows::KXPictureRows(
    KXPictureLayout const& layout, KXSize wantedSize, std::optional<KXSize> square)
    : _layout(layout)
    , _colours(KXColourTransform::transformToSRGB(layout.profile, layout.isGrey))
    , _factor(square ? 1 : shrinkingFactor(layout, wantedSize))
    , _width(square ? squareAsStored(*square, layout).width : blocksIn(layout.width, _factor))
    , _height(square ? squareAsStored(*square, layout).height : blocksIn(layout.height, _factor))
    , _isDirect(!square && _factor == 1 && !Turn::ofOrientation(layout.orientation).isAny())
    , _row((_isDirect ? 0 : layout.width) * pixelLength)
    , _columns((_factor == 1 ? 0 : layout.width) * pixelLength)
    , _sums((_factor == 1 ? 0 : _width) * pixelLength)
    , _resampler(square ? resamplerOfSquare(layout, _width, _height) : nullptr)
    , _square((square ? _width * _height : 0) * pixelLength)
    , _pixels(_width * _height * pixelLength)
{
}

std::uint8_t* KXPictureRows::targetOfRow()
{
    return _pixels.data() + _rowsPlaced * _width * pixelLength;
}

void KXPictureRows::takeRow(std::uint8_t const* row)
{
    if (_rowsTaken == _layout.height)
        return;
    std::memcpy(nextRow(), row, _layout.width * pixelLength);
    takeRow();
}

void KXPictureRows::takeRow()
{
    if (_rowsTaken == _layout.height)
        return;
    std::uint8_t* const row = nextRow();
    convertRow(row);
    ++_rowsTaken;
    if (_resampler)
        return _resampler->takeRow(row, _square, _width);
    if (_factor == 1)
        return place(row);
    addToColumns(row);
    if (_rowsTaken % _factor != 0 && _rowsTaken != _layout.height)
        return;
    addColumnsToBlocks();
    placeBlocks();
}

/// Makes the pixels what pictures have.
void KXPictureRows::convertRow(std::uint8_t* row) const
{
    bool const isDivided = !_layout.isPremultiplied || _colours;
    if (_colours) {
        if (_layout.isPremultiplied)
            divideByAlpha(row, _layout.width);
        _colours->convertPixels(row, _layout.width);
    }
    if (!_layout.hasAlpha)
        makeOpaque(row, _layout.width);
    else if (isDivided)
        multiplyByAlpha({ row, _layout.width * pixelLength });
    else
        boundByAlpha(row, _layout.width);
}

/// Sums each column down its block, several channels at a time: most of the work on a large
/// picture.
void KXPictureRows::addToColumns(std::uint8_t const* row)
{
    using Channels = std::uint8_t __attribute__((vector_size(8)));
    using Sums = std::uint16_t __attribute__((vector_size(16)));
    constexpr std::size_t atOnce = sizeof(Channels);
    std::uint16_t* const columns = _columns.data();
    std::size_t i = 0;
    for (; i + atOnce <= _columns.size(); i += atOnce) {
        Channels channels;
        Sums sums;
        std::memcpy(&channels, row + i, sizeof channels);
        std::memcpy(&sums, columns + i, sizeof sums);
        sums += __builtin_convertvector(channels, Sums);
        std::memcpy(columns + i, &sums, sizeof sums);
    }
    for (; i < _columns.size(); ++i)
        columns[i] = static_cast<std::uint16_t>(columns[i] + row[i]);
    if (++_rowsInColumns == mostRowsInColumns)
        addColumnsToBlocks();
}

void KXPictureRows::addColumnsToBlocks()
{
    std::uint16_t const* column = _columns.data();
    std::uint64_t* sums = _sums.data();
    for (std::size_t x = 0; x < _layout.width; sums += pixelLength) {
        for (std::size_t const end = std::min(x + _factor, _layout.width); x < end; ++x) {
            for (std::size_t channel = 0; channel < pixelLength; ++channel)
                sums[channel] += column[channel];
            column += pixelLength;
        }
    }
    std::ranges::fill(_columns, 0);
    _rowsInColumns = 0;
}

/// Places the means of the blocks whose rows have been added.
void KXPictureRows::placeBlocks()
{
    std::size_t const rows = (_rowsTaken - 1) % _factor + 1;
    _row.resize(std::max(_row.size(), _width * pixelLength));
    for (std::size_t column = 0; column < _width; ++column) {
        std::size_t const columns = std::min(_factor, _layout.width - column * _factor);
        std::uint64_t const count = rows * columns;
        for (std::size_t i = column * pixelLength; i < (column + 1) * pixelLength; ++i)
            _row[i] = static_cast<std::uint8_t>((_sums[i] + count / 2) / count);
    }
    std::ranges::fill(_sums, 0);
    place(_row.data());
}

/// Puts a row where it belongs in the upright picture.
void KXPictureRows::place(std::uint8_t const* row)
{
    std::size_t const y = _rowsPlaced++;
    if (_isDirect)
        return;
    Turn const turn = Turn::ofOrientation(_layout.orientation);
    std::size_t const line = turn.isMirroredDown ? _height - 1 - y : y;
    // The pixels of a row as it is stored follow each other in a row of the picture, or in a
    // column.
    std::size_t const first = turn.isTransposed ? line : line * _width;
    std::size_t const step = turn.isTransposed ? _height : 1;
    for (std::size_t x = 0; x < _width; ++x) {
        std::size_t const place = first + step * (turn.isMirroredAcross ? _width - 1 - x : x);
        std::memcpy(_pixels.data() + place * pixelLength, row + x * pixelLength, pixelLength);
    }
}

KXImage::Ref KXPictureRows::image()
{
    if (!_rowsTaken)
        return nullptr;
    std::uint8_t const missing = _layout.hasAlpha ? 0 : opaque;
    while (_rowsTaken < _layout.height) {
        std::memset(nextRow(), missing, _layout.width * pixelLength);
        takeRow();
    }
    for (std::size_t y = 0; _resampler && y < _height; ++y)
        place(&_square[y * _width * pixelLength]);
    bool const isTransposed = Turn::ofOrientation(_layout.orientation).isTransposed;
    return KXImage::imageWithPixels(
        std::move(_pixels), isTransposed ? _height : _width, isTransposed ? _width : _height);
}
