#pragma once

#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/image/KXResamplerPrivate.h"
#include "kxmd/platform/linux/pictures/KXColourTransformPrivate.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

/// What a decoder tells of a picture before its first row.
struct KXPictureLayout {
    std::size_t width { 0 }; ///< Of a row, in pixels.
    std::size_t height { 0 }; ///< Rows.
    bool isGrey { false }; ///< Whether red, green and blue are equal throughout.
    bool hasAlpha { false };
    bool isPremultiplied { false }; ///< Whether the colours are multiplied by alpha already.
    unsigned orientation { 1 }; ///< How it is to be turned (TIFF 6.0, section 8).
    /// Its colours (ISO 15076-1), looked at once; empty for sRGB.
    std::span<std::uint8_t const> profile {};
};

/// Makes a picture of the rows that a decoder gives it from the top: upright, in sRGB, the colours
/// premultiplied by alpha.
///
/// Of a large picture each pixel becomes the mean of a block: twice the size that is wanted is
/// kept, since the resampler makes the better pictures, but no large picture is in memory whole.
class KXPictureRows {
public:
    /// Where a `square` in whole pixels is given, the picture is its largest centred square,
    /// resampled to that size as the rows come.
    KXPictureRows(
        KXPictureLayout const& layout, KXSize wantedSize, std::optional<KXSize> square = {});

    /// Where the next row goes: red, green, blue and alpha of `width` pixels.
    std::uint8_t* nextRow() { return _isDirect ? targetOfRow() : _row.data(); }
    /// Takes the row that was put there. Rows beyond the last one are not taken.
    void takeRow();
    /// Takes a copy of a row.
    void takeRow(std::uint8_t const* row);

    /// The picture, once; null when no row was taken. Rows that are missing are transparent, and
    /// white in a picture without alpha.
    KXImage::Ref image();

private:
    std::uint8_t* targetOfRow();
    void convertRow(std::uint8_t* row) const;
    void addToColumns(std::uint8_t const* row);
    void addColumnsToBlocks();
    void placeBlocks();
    void place(std::uint8_t const* row);

    KXPictureLayout const _layout;
    std::unique_ptr<KXColourTransform const> const _colours; ///< Null where they are those of sRGB.
    std::size_t const _factor; ///< Pixels on a side of a block.
    std::size_t const _width; ///< Blocks in a row, or pixels of the square.
    std::size_t const _height; ///< Rows of these.
    bool const _isDirect; ///< Whether rows go straight to their place.
    std::size_t _rowsTaken { 0 };
    std::size_t _rowsPlaced { 0 };
    std::vector<std::uint8_t> _row;
    std::vector<std::uint16_t> _columns; ///< Sums of the last rows, by pixel of a row.
    std::size_t _rowsInColumns { 0 };
    std::vector<std::uint64_t> _sums; ///< Of the row of blocks that is not full yet.
    std::unique_ptr<KXRowResampler> const _resampler; ///< Null where no square is wanted.
    std::vector<std::uint8_t> _square; ///< As it is stored.
    std::vector<std::uint8_t> _pixels; ///< Upright.
};
