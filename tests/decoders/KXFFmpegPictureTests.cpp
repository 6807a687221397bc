#include "kxmd/platform/linux/ffmpeg/KXFFmpegPicturePrivate.h"

#include "support/Exif.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <png.h>

using namespace build;
using namespace pictures;

namespace {

Bytes u16le(std::uint32_t value) { return u16(TIFF::II, value); }
Bytes u32le(std::uint32_t value) { return u32(TIFF::II, value); }

/// The header of a bitmap of Windows, which has its last row first.
Bytes bitmapHeader(std::uint32_t width, std::uint32_t height, std::uint32_t bitsPerPixel)
{
    return join(u32le(40), u32le(width), u32le(height), u16le(1), u16le(bitsPerPixel), zeros(24));
}

Bytes bitmap(std::uint32_t width, std::uint32_t height, Bytes const& rows)
{
    constexpr std::uint32_t lengthOfHeaders = 54;
    auto const length = lengthOfHeaders + static_cast<std::uint32_t>(rows.size());
    return join(text("BM"), u32le(length), zeros(4), u32le(lengthOfHeaders),
        bitmapHeader(width, height, 24), rows);
}

/// One picture of an icon: blue, green, red and alpha, and a mask that hides nothing.
Bytes iconPicture(std::uint32_t side, Colour colour)
{
    Bytes pixels;
    for (std::uint32_t i = 0; i < side * side; ++i)
        pixels.insert(pixels.end(), { colour[2], colour[1], colour[0], colour[3] });
    return join(bitmapHeader(side, 2 * side, 32), pixels, zeros(std::size_t { side } * 4));
}

struct IconEntry {
    std::uint32_t side;
    Bytes picture;
};

Bytes icon(std::vector<IconEntry> const& entriesOfIcon)
{
    auto const count = static_cast<std::uint32_t>(entriesOfIcon.size());
    Bytes entries, content;
    for (auto const& [side, picture] : entriesOfIcon) {
        auto const offset = 6 + 16 * count + static_cast<std::uint32_t>(content.size());
        entries = join(entries, u8(side), u8(side), zeros(2), u16le(1), u16le(32),
            u32le(static_cast<std::uint32_t>(picture.size())), u32le(offset));
        content = join(content, picture);
    }
    return join(zeros(2), u16le(1), u16le(count), entries, content);
}

IconEntry filledEntry(std::uint32_t side, Colour colour)
{
    return { side, iconPicture(side, colour) };
}

/// A red picture of 33 by 2 pixels without alpha, whose mask hides the last pixel of the upper row
/// and the first one of the lower. A row of the mask takes eight bytes.
IconEntry maskedEntry(std::uint32_t bitsPerPixel, Bytes const& row)
{
    Bytes const lower = join(u8(0x80), zeros(7)), upper = join(zeros(4), u8(0x80), zeros(3));
    return { 33, join(bitmapHeader(33, 4, bitsPerPixel), row, row, lower, upper) };
}

/// A square PNG of one grey.
Bytes greyPNG(std::uint32_t side)
{
    Bytes const pixels = filled(std::size_t { side } * side * 3, 77);
    png_image header {};
    header.version = PNG_IMAGE_VERSION;
    header.width = header.height = side;
    header.format = PNG_FORMAT_RGB;
    png_alloc_size_t length = 0;
    EXPECT_TRUE(png_image_write_to_memory(&header, nullptr, &length, 0, pixels.data(), 0, nullptr));
    Bytes file(length);
    EXPECT_TRUE(
        png_image_write_to_memory(&header, file.data(), &length, 0, pixels.data(), 0, nullptr));
    return file;
}

Bytes rowOf24Bits()
{
    Bytes row;
    for (int x = 0; x < 33; ++x)
        row = join(row, bytes({ 0, 0, 255 }));
    return join(row, zeros(1));
}

void expectRedWithTwoHidden(KXImage::Ref const& image)
{
    ASSERT_TRUE(image);
    ASSERT_EQ(image->size(), (KXSize { 33, 2 }));
    for (std::size_t x = 0; x < 33; ++x) {
        EXPECT_EQ(pixel(*image, x, 0), x == 32 ? transparent : red) << x;
        EXPECT_EQ(pixel(*image, x, 1), x == 0 ? transparent : red) << x;
    }
}

KXImage::Ref decoded(Bytes const& file, KXSize wantedSize = {})
{
    auto const data = reader(file);
    return pictureByFFmpeg(*data, file.size(), wantedSize);
}

}

TEST(KXFFmpegPicture, BitmapIsShownFromItsTop)
{
    // Two rows of one pixel, each padded to four bytes.
    auto const image = decoded(bitmap(1, 2, bytes({ 255, 0, 0, 0, 0, 0, 255, 0 })));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 1, 2 }));
    EXPECT_EQ(pixel(*image, 0, 0), red);
    EXPECT_EQ(pixel(*image, 0, 1), blue);
}

TEST(KXFFmpegPicture, LargestPictureOfAnIconIsShown)
{
    auto const image
        = decoded(icon({ filledEntry(16, blue), filledEntry(48, red), filledEntry(32, blue) }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 48, 48 }));
    EXPECT_EQ(pixel(*image, 20, 20), red);
}

TEST(KXFFmpegPicture, LargestPictureOfAnIconMayBeAPNG)
{
    auto const image = decoded(icon({ filledEntry(48, blue), { 0, greyPNG(256) } }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 256, 256 }));
    EXPECT_EQ(pixel(*image, 9, 9), (Colour { 77, 77, 77, 255 }));
}

TEST(KXFFmpegPicture, SmallPNGOfAnIconIsNotTakenForItsLargest)
{
    EXPECT_EQ(
        decoded(icon({ { 16, greyPNG(16) }, { 48, greyPNG(48) }, { 32, greyPNG(32) } }))->size(),
        (KXSize { 48, 48 }));
    EXPECT_EQ(
        decoded(icon({ { 16, greyPNG(16) }, filledEntry(24, blue) }))->size(), (KXSize { 24, 24 }));
}

TEST(KXFFmpegPicture, MaskOfAnIconHidesPixels)
{
    expectRedWithTwoHidden(decoded(icon({ maskedEntry(24, rowOf24Bits()) })));
}

TEST(KXFFmpegPicture, MaskOfAnIconFollowsItsPalette)
{
    for (std::uint32_t const bits : { 1, 4, 8 }) {
        Bytes palette = join(bytes({ 0, 0, 255, 0 }), zeros((std::size_t { 1 } << bits) * 4 - 4));
        Bytes const rows = zeros(2 * ((33 * bits + 31) / 32 * 4));
        IconEntry entry = maskedEntry(bits, {});
        entry.picture.insert(entry.picture.begin() + 40, rows.begin(), rows.end());
        entry.picture.insert(entry.picture.begin() + 40, palette.begin(), palette.end());
        SCOPED_TRACE(bits);
        expectRedWithTwoHidden(decoded(icon({ entry })));
    }
}

TEST(KXFFmpegPicture, PaletteOfAnIconMayTellItsColours)
{
    IconEntry entry = maskedEntry(8, zeros(36));
    std::ranges::copy(u32le(2), entry.picture.begin() + 32);
    Bytes const palette = bytes({ 0, 0, 255, 0, 255, 0, 0, 0 });
    entry.picture.insert(entry.picture.begin() + 40, palette.begin(), palette.end());
    expectRedWithTwoHidden(decoded(icon({ entry })));
}

TEST(KXFFmpegPicture, MaskOfAnIconCountsWhereNoAlphaIsUsed)
{
    Bytes row;
    for (int x = 0; x < 33; ++x)
        row = join(row, bytes({ 0, 0, 255, 0 }));
    expectRedWithTwoHidden(decoded(icon({ maskedEntry(32, row) })));
    row.back() = 255;
    auto const image = decoded(icon({ maskedEntry(32, row) }));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 32, 0), red);
    EXPECT_EQ(pixel(*image, 31, 0), transparent);
}

TEST(KXFFmpegPicture, CompressedPictureOfAnIconHasNoMask)
{
    constexpr std::size_t compressionInHeader = 16;
    Bytes const palette = join(bytes({ 0, 0, 255, 0 }), zeros(255 * 4));
    // A run of 33 for each row (BI_RLE8), and more than the pixels would take uncompressed.
    Bytes const rows = join(bytes({ 33, 0, 0, 0, 33, 0, 0, 1 }), filled(64, 0xFF));
    IconEntry entry { 33, join(bitmapHeader(33, 4, 8), palette, rows, filled(16, 0xFF)) };
    entry.picture[compressionInHeader] = 1;
    auto const image = decoded(icon({ entry }));
    ASSERT_TRUE(image);
    for (std::size_t x = 0; x < 33; ++x)
        EXPECT_EQ(pixel(*image, x, 1), red) << x;
}

TEST(KXFFmpegPicture, NumberOfColoursInTheDirectoryOfAnIconDoesNotMatter)
{
    for (int const count : { 2, 16, 255 }) {
        Bytes file = icon({ maskedEntry(24, rowOf24Bits()) });
        file[6 + 2] = static_cast<std::uint8_t>(count);
        expectRedWithTwoHidden(decoded(file));
    }
}

TEST(KXFFmpegPicture, MaskOfAnIconIsThatOfTheSamePicture)
{
    expectRedWithTwoHidden(decoded(icon({ filledEntry(8, blue), maskedEntry(24, rowOf24Bits()) })));
}

TEST(KXFFmpegPicture, MaskOfAnIconIsAppliedBeforeItIsShrunk)
{
    auto const image = decoded(icon({ maskedEntry(24, rowOf24Bits()) }), { 0.5, 0.25 });
    expectRedWithTwoHidden(image);
}

TEST(KXFFmpegPicture, IconWithoutAWholeMaskIsShownAsItIs)
{
    IconEntry entry = maskedEntry(24, rowOf24Bits());
    entry.picture.pop_back();
    auto const image = decoded(icon({ entry }));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 32, 0), red);
    EXPECT_EQ(pixel(*image, 0, 1), red);
}

TEST(KXFFmpegPicture, EveryTruncationOfAnIconIsShownOrNot)
{
    Bytes const file = icon({ filledEntry(8, blue), maskedEntry(24, rowOf24Bits()) });
    for (std::size_t length = 0; length < file.size(); ++length) {
        auto const data
            = reader(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        auto const image = pictureByFFmpeg(*data, length, {});
        EXPECT_TRUE(
            !image || image->size() == (KXSize { 33, 2 }) || image->size() == (KXSize { 8, 8 }))
            << length;
    }
}

TEST(KXFFmpegPicture, PortableMapIsShown)
{
    for (Bytes const& file : { join(text("P6\n1 1\n255\n"), bytes({ 0, 0, 255 })),
             join(text("P6 1\t1 255 "), bytes({ 0, 0, 255 })),
             join(text("P6\n \v1 1\n255\n"), bytes({ 0, 0, 255 })),
             text("P3\n# by hand\n1 1\n255\n0 0 255\n") }) {
        auto const image = decoded(file);
        ASSERT_TRUE(image) << file[1];
        EXPECT_EQ(pixel(*image, 0, 0), blue);
    }
}

TEST(KXFFmpegPicture, LargePictureComesAtLeastTwiceAsLargeAsWanted)
{
    Bytes const file = join(text("P6\n400 200\n255\n"), zeros(400 * 200 * 3));
    EXPECT_EQ(decoded(file, { 20, 10 })->size(), (KXSize { 80, 40 }));
    EXPECT_EQ(decoded(file, { 10, 20 })->size(), (KXSize { 80, 40 }));
    EXPECT_EQ(decoded(file, { 100, 100 })->size(), (KXSize { 400, 200 }));
    EXPECT_EQ(decoded(file)->size(), (KXSize { 400, 200 }));
}

TEST(KXFFmpegPicture, LooksAtTheGivenBytesOnly)
{
    Bytes const file = join(text("P6\n1 1\n255\n"), bytes({ 0, 0, 255 }));
    auto const data = reader(join(text("before"), file, text("behind")));
    data->setOffset(6);
    EXPECT_TRUE(pictureByFFmpeg(*data, file.size(), {}));
    data->setOffset(6);
    EXPECT_FALSE(pictureByFFmpeg(*data, file.size() - 1, {}));
    data->setOffset(6);
    EXPECT_FALSE(pictureByFFmpeg(*data, file.size() + 7, {}));
}

TEST(KXFFmpegPicture, WhatIsNoPictureIsNull)
{
    for (Bytes const& file : { Bytes(), text("#EXTM3U\n/etc/passwd"), text("BM"), zeros(5'000),
             text("ffconcat version 1.0\nfile a.png"), atom("ftyp", text("isom"), zeros(4)) })
        EXPECT_FALSE(decoded(file));
    Bytes const file = icon({ filledEntry(16, blue) });
    for (std::size_t length = 0; length < file.size(); length += 5)
        (void)decoded(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
}
