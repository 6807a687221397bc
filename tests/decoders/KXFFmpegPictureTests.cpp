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

Bytes icon(std::vector<std::pair<std::uint32_t, Colour>> const& pictures)
{
    auto const count = static_cast<std::uint32_t>(pictures.size());
    Bytes entries, content;
    for (auto const& [side, colour] : pictures) {
        Bytes const picture = iconPicture(side, colour);
        auto const offset = 6 + 16 * count + static_cast<std::uint32_t>(content.size());
        entries = join(entries, u8(side), u8(side), zeros(2), u16le(1), u16le(32),
            u32le(static_cast<std::uint32_t>(picture.size())), u32le(offset));
        content = join(content, picture);
    }
    return join(zeros(2), u16le(1), u16le(count), entries, content);
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
    auto const image = decoded(icon({ { 16, blue }, { 48, red }, { 32, blue } }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 48, 48 }));
    EXPECT_EQ(pixel(*image, 20, 20), red);
}

TEST(KXFFmpegPicture, PictureOfAnIconThatIsAPNGIsItsLargest)
{
    Bytes const pixels = filled(256 * 256 * 3, 77);
    png_image header {};
    header.version = PNG_IMAGE_VERSION;
    header.width = header.height = 256;
    header.format = PNG_FORMAT_RGB;
    png_alloc_size_t length = 0;
    ASSERT_TRUE(png_image_write_to_memory(&header, nullptr, &length, 0, pixels.data(), 0, nullptr));
    Bytes file(length);
    ASSERT_TRUE(
        png_image_write_to_memory(&header, file.data(), &length, 0, pixels.data(), 0, nullptr));
    Bytes const small = iconPicture(48, blue);
    constexpr std::uint32_t first = 6 + 2 * 16;
    auto const entry = [](std::uint32_t side, Bytes const& picture, std::uint32_t offset) {
        return join(u8(side), u8(side), zeros(2), u16le(1), u16le(32),
            u32le(static_cast<std::uint32_t>(picture.size())), u32le(offset));
    };
    auto const image = decoded(join(zeros(2), u16le(1), u16le(2), entry(48, small, first),
        entry(0, file, first + static_cast<std::uint32_t>(small.size())), small, file));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 256, 256 }));
    EXPECT_EQ(pixel(*image, 9, 9), (Colour { 77, 77, 77, 255 }));
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
    Bytes const file = icon({ { 16, blue } });
    for (std::size_t length = 0; length < file.size(); length += 5)
        (void)decoded(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
}
