#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include "kxmd/image/KXImageFittingPrivate.h"

#include "support/Pictures.h"
#include "support/Profiles.h"

#include <gtest/gtest.h>

using namespace pictures;

namespace {

using Row = std::vector<Colour>;

void take(KXPictureRows& rows, Row const& row)
{
    std::vector<std::uint8_t> bytes;
    for (Colour const& colour : row)
        bytes.insert(bytes.end(), colour.begin(), colour.end());
    rows.takeRow(bytes.data());
}

/// The picture of 3 by 2 pixels whose red tells their place as stored: 10 for each row, 1 for each
/// column.
KXImage::Ref turned(unsigned orientation)
{
    KXPictureRows rows({ .width = 3, .height = 2, .orientation = orientation }, {});
    for (int y = 0; y < 2; ++y) {
        Row row;
        for (int x = 0; x < 3; ++x)
            row.push_back({ static_cast<std::uint8_t>(10 * y + x), 0, 0, 255 });
        take(rows, row);
    }
    return rows.image();
}

std::vector<int> redsOf(KXImage const& image)
{
    std::vector<int> reds;
    for (std::size_t i = 0; i < image.pixels().size(); i += KXImage::bytesPerPixel)
        reds.push_back(image.pixels()[i]);
    return reds;
}

}

TEST(KXPictureRows, EveryOrientationIsTurnedUpright)
{
    using Reds = std::vector<int>;
    Reds const asStored { 0, 1, 2, 10, 11, 12 };
    Reds const expected[] { asStored, asStored, { 2, 1, 0, 12, 11, 10 }, { 12, 11, 10, 2, 1, 0 },
        { 10, 11, 12, 0, 1, 2 }, { 0, 10, 1, 11, 2, 12 }, { 10, 0, 11, 1, 12, 2 },
        { 12, 2, 11, 1, 10, 0 }, { 2, 12, 1, 11, 0, 10 }, asStored };
    for (unsigned orientation = 0; orientation <= 9; ++orientation) {
        auto const image = turned(orientation);
        ASSERT_TRUE(image);
        bool const isTransposed = orientation >= 5 && orientation <= 8;
        EXPECT_EQ(image->size(), isTransposed ? (KXSize { 2, 3 }) : (KXSize { 3, 2 }));
        EXPECT_EQ(redsOf(*image), expected[orientation]) << orientation;
    }
}

TEST(KXPictureRows, LargePictureIsTurnedAndShrunk)
{
    // Halves of red and blue, the red one stored above and shown on the right.
    KXPictureRows rows({ .width = 2'000, .height = 2'600, .orientation = 6 }, { 100, 100 });
    for (int y = 0; y < 2'600; ++y)
        take(rows, Row(2'000, y < 1'300 ? red : blue));
    auto const image = rows.image();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 260, 200 }));
    EXPECT_EQ(pixel(*image, 0, 0), blue);
    EXPECT_EQ(pixel(*image, 129, 199), blue);
    EXPECT_EQ(pixel(*image, 130, 0), red);
    EXPECT_EQ(pixel(*image, 259, 199), red);
}

TEST(KXPictureRows, SquareIsThatOfTheWholePictureWhateverTheOrientation)
{
    for (auto const& stored : { photograph(300, 200), photograph(90, 210) }) {
        for (unsigned orientation = 1; orientation <= 8; ++orientation) {
            KXPictureLayout const layout { .width = stored->pixelWidth(),
                .height = stored->pixelHeight(),
                .orientation = orientation };
            KXPictureRows rows(layout, {}), ofSquare(layout, {}, KXSize { 60, 40 });
            std::size_t const rowLength = layout.width * KXImage::bytesPerPixel;
            for (std::size_t y = 0; y < layout.height; ++y) {
                rows.takeRow(&stored->pixels()[y * rowLength]);
                ofSquare.takeRow(&stored->pixels()[y * rowLength]);
            }
            auto const expected = squareOfImage(rows.image(), { 60, 40 });
            auto const square = ofSquare.image();
            ASSERT_TRUE(square);
            EXPECT_EQ(square->size(), expected->size());
            constexpr double inDecibels = 60; // Sums in another order are rounded otherwise.
            EXPECT_GT(likeness(*square, *expected), inDecibels) << orientation;
        }
    }
}

TEST(KXPictureRows, SquareOfAPictureThatIsCutOffIsWhiteBelow)
{
    KXPictureRows rows({ .width = 40, .height = 40 }, {}, KXSize { 20, 20 });
    for (int y = 0; y < 20; ++y)
        take(rows, Row(40, red));
    auto const image = rows.image();
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 10, 5), red);
    EXPECT_EQ(pixel(*image, 10, 15), white);
}

TEST(KXPictureRows, AlphaIsMultipliedOnce)
{
    Colour const multiplied { 100, 50, 0, 128 };
    for (bool const isPremultiplied : { false, true }) {
        KXPictureRows rows(
            { .width = 1, .height = 1, .hasAlpha = true, .isPremultiplied = isPremultiplied }, {});
        take(rows, { isPremultiplied ? multiplied : Colour { 200, 100, 0, 128 } });
        EXPECT_EQ(pixel(*rows.image(), 0, 0), multiplied);
    }
}

TEST(KXPictureRows, AlphaAndColoursThatBreakTheRulesAreMended)
{
    KXPictureRows opaque({ .width = 1, .height = 1 }, {});
    take(opaque, { { 200, 100, 50, 3 } });
    EXPECT_EQ(pixel(*opaque.image(), 0, 0), (Colour { 200, 100, 50, 255 }));
    KXPictureRows premultiplied(
        { .width = 1, .height = 1, .hasAlpha = true, .isPremultiplied = true }, {});
    take(premultiplied, { { 200, 100, 50, 128 } });
    EXPECT_EQ(pixel(*premultiplied.image(), 0, 0), (Colour { 128, 100, 50, 128 }));
}

TEST(KXPictureRows, RowsBeyondTheLastAreNotTaken)
{
    for (unsigned const orientation : { 1u, 4u }) {
        KXPictureRows rows({ .width = 1, .height = 1, .orientation = orientation }, {});
        take(rows, { red });
        take(rows, { blue });
        auto const image = rows.image();
        ASSERT_TRUE(image);
        EXPECT_EQ(pixel(*image, 0, 0), red);
    }
}

TEST(KXPictureRows, TinySizeShrinksToOnePixel)
{
    KXPictureRows rows({ .width = 2'100, .height = 2'000 }, { 1e-18, 1e-18 });
    for (int y = 0; y < 2'000; ++y)
        take(rows, Row(2'100, red));
    auto const image = rows.image();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 2, 1 }));
}

TEST(KXPictureRows, BlocksOfManyRowsAreTheMeansOfAll)
{
    // Of 1,051 rows of a block 526 are white, and 525 of the next one; the last column is alone.
    KXPictureRows rows({ .width = 2'103, .height = 2'102 }, { 1, 1 });
    for (int y = 0; y < 2'102; ++y)
        take(rows, Row(2'103, y % 2 ? red : white));
    auto const image = rows.image();
    ASSERT_TRUE(image);
    ASSERT_EQ(image->size(), (KXSize { 3, 2 }));
    for (std::size_t x = 0; x < 3; ++x) {
        EXPECT_EQ(pixel(*image, x, 0), (Colour { 255, 128, 128, 255 }));
        EXPECT_EQ(pixel(*image, x, 1), (Colour { 255, 127, 127, 255 }));
    }
}

TEST(KXPictureRows, MissingRowsAreTransparentOrWhite)
{
    for (bool const hasAlpha : { false, true }) {
        KXPictureRows rows({ .width = 1, .height = 3, .hasAlpha = hasAlpha }, {});
        take(rows, { red });
        auto const image = rows.image();
        ASSERT_TRUE(image);
        EXPECT_EQ(pixel(*image, 0, 0), red);
        EXPECT_EQ(pixel(*image, 0, 1), hasAlpha ? transparent : white);
        EXPECT_EQ(pixel(*image, 0, 2), hasAlpha ? transparent : white);
    }
    KXPictureRows none({ .width = 1, .height = 3 }, {});
    EXPECT_FALSE(none.image());
}

TEST(KXPictureRows, MissingRowsOfALargePictureAreWhite)
{
    KXPictureRows rows({ .width = 3'000, .height = 3'000 }, { 100, 100 });
    for (int y = 0; y < 1'515; ++y)
        take(rows, Row(3'000, { 0, 0, 0, 255 }));
    auto const image = rows.image();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 200, 200 }));
    EXPECT_EQ(pixel(*image, 7, 100), (Colour { 0, 0, 0, 255 }));
    EXPECT_EQ(pixel(*image, 7, 101), white);
    EXPECT_EQ(pixel(*image, 7, 199), white);
}

TEST(KXPictureRows, PremultipliedColoursAreConvertedAsTheyShow)
{
    build::Bytes const profile = profiles::of(profiles::displayP3);
    KXPictureRows rows(
        { .width = 1, .height = 1, .hasAlpha = true, .isPremultiplied = true, .profile = profile },
        {});
    take(rows, { { 100, 60, 30, 128 } });
    auto const image = rows.image();
    ASSERT_TRUE(image);
    Colour const expected { 106, 58, 21, 128 };
    for (std::size_t channel = 0; channel < 4; ++channel)
        EXPECT_NEAR(pixel(*image, 0, 0)[channel], expected[channel], 1) << channel;
}

TEST(KXPictureRows, ProfileOfGreyIsForPicturesOfGrey)
{
    // Linear light: half of it is shown as 188 (IEC 61966-2-1).
    build::Bytes const profile = profiles::ofGrey(1);
    for (bool const isGrey : { true, false }) {
        KXPictureRows rows({ .width = 2, .height = 1, .isGrey = isGrey, .profile = profile }, {});
        take(rows, { { 128, 128, 128, 255 }, { 0, 0, 0, 255 } });
        auto const image = rows.image();
        ASSERT_TRUE(image);
        std::uint8_t const expected = isGrey ? 188 : 128;
        EXPECT_EQ(pixel(*image, 0, 0), (Colour { expected, expected, expected, 255 }));
        EXPECT_EQ(pixel(*image, 1, 0), (Colour { 0, 0, 0, 255 }));
    }
}
