#include "kxmd/base/KXSanitizersPrivate.h"
#include "support/Exif.h"
#include "support/PictureLoaderTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace build;
using namespace pictures;
using testing::IsEmpty;
using testing::Not;

namespace {

using KXPictureDecoders = PictureLoaderTest;

/// The JPEG file with another size in its baseline frame header (ITU-T T.81, B.2.2).
Bytes claimingSize(Bytes jpeg, std::uint32_t width, std::uint32_t height)
{
    Bytes const marker = bytes({ 0xFF, 0xC0 });
    auto const header = std::ranges::search(jpeg, marker).begin();
    std::ranges::copy(join(u16(height), u16(width)), header + 5);
    return jpeg;
}

Bytes cut(Bytes const& bytes, std::size_t length)
{
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
}

/// The colours in the middle of the quarters, row by row from the top.
std::array<Colour, 4> middlesOfQuarters(KXImage const& image)
{
    std::size_t const x = image.pixelWidth() / 4, y = image.pixelHeight() / 4;
    return { pixel(image, x, y), pixel(image, 3 * x, y), pixel(image, x, 3 * y),
        pixel(image, 3 * x, 3 * y) };
}

}

// Encoding.

TEST_F(KXPictureDecoders, PNGKeepsEveryPixel)
{
    for (auto const& image : { photograph(67, 45), noise(67, 45, 7), solid(1, 1, transparent) }) {
        auto const again = decoded(png(*image));
        ASSERT_TRUE(again);
        EXPECT_TRUE(areEqual(*again, *image));
    }
}

TEST_F(KXPictureDecoders, PNGKeepsEveryColourOfEveryAlpha)
{
    auto const image = imageOf(256, 256, [](std::size_t alpha, std::size_t colour) {
        auto const premultiplied = static_cast<std::uint8_t>(std::min(alpha, colour));
        return Colour { premultiplied, 0, static_cast<std::uint8_t>(alpha - premultiplied),
            static_cast<std::uint8_t>(alpha) };
    });
    auto const again = decoded(png(*image));
    ASSERT_TRUE(again);
    EXPECT_TRUE(areEqual(*again, *image));
}

TEST_F(KXPictureDecoders, JPEGIsCloseToThePicture)
{
    auto const image = photograph(200, 150);
    auto const again = decoded(jpg(*image));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->size(), image->size());
    EXPECT_GE(likeness(*again, *image), 30);
}

TEST_F(KXPictureDecoders, JPEGShowsTransparentPicturesOverWhite)
{
    auto const colourOver = [this](Colour colour) {
        auto const again = decoded(jpg(*solid(16, 16, colour)));
        return again ? pixel(*again, 8, 8) : transparent;
    };
    expectNear(colourOver(transparent), white, 2);
    expectNear(colourOver({ 0, 0, 0, 128 }), { 127, 127, 127, 255 }, 2);
    expectNear(colourOver({ 128, 0, 0, 128 }), { 255, 127, 127, 255 }, 4);
    expectNear(colourOver(blue), blue, 4);
}

TEST_F(KXPictureDecoders, PartOfAPixelIsEncodedAsOne)
{
    auto const image = KXImage::imageWithSize({ 20.5, 10.25 });
    auto const again = decoded(png(*image));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->size(), (KXSize { 21, 11 }));
}

TEST_F(KXPictureDecoders, EncodesTheSamePictureToTheSameBytes)
{
    auto const first = noise(50, 40, 8), second = noise(50, 40, 8), other = noise(50, 40, 9);
    EXPECT_THAT(jpg(*first), Not(IsEmpty()));
    EXPECT_EQ(jpg(*first), jpg(*second));
    EXPECT_NE(jpg(*first), jpg(*other));
    EXPECT_THAT(png(*first), Not(IsEmpty()));
    EXPECT_EQ(png(*first), png(*second));
    EXPECT_NE(png(*first), png(*other));
}

TEST_F(KXPictureDecoders, EncodesAsTheNamesSay)
{
    auto const image = photograph(20, 20);
    EXPECT_EQ(cut(jpg(*image), 3), bytes({ 0xFF, 0xD8, 0xFF }));
    EXPECT_EQ(cut(png(*image), 8), bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }));
}

// Decoding.

TEST_F(KXPictureDecoders, PictureIsNeverShrunkBelowTheWantedSize)
{
    auto const file = jpg(*photograph(401, 299));
    for (double const wanted : { 1.0, 37.0, 38.0, 49.5, 50.0, 74.0, 75.0, 76.0, 149.0, 150.0, 299.0,
             300.0, 400.0, 10'000.0 }) {
        for (KXSize const size :
            { KXSize { wanted, wanted }, KXSize { wanted, 1 }, KXSize { 1, wanted } }) {
            auto const image = decoded(file, size);
            ASSERT_TRUE(image) << wanted;
            EXPECT_GE(image->size().width, std::min(size.width, 401.0)) << wanted;
            EXPECT_GE(image->size().height, std::min(size.height, 299.0)) << wanted;
        }
    }
}

TEST_F(KXPictureDecoders, LargePhotographIsShrunkWhileItIsDecoded)
{
    auto const photo = photograph(800, 640);
    auto const image = decoded(jpg(*photo), { 80, 60 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100, 80 }));
    auto const expected = KXImage::imageWithSize(image->size());
    expected->drawImageFromRectInRect(*photo, { 0, 0, photo->size() }, { 0, 0, expected->size() });
    EXPECT_GE(likeness(*image, *expected), 30);
}

TEST_F(KXPictureDecoders, PhotographIsShrunkByTwoFourOrEight)
{
    auto const file = jpg(*photograph(800, 640));
    for (auto const& [wanted, size] : { std::pair(1.0, KXSize { 100, 80 }), { 80.0, { 100, 80 } },
             { 80.5, { 200, 160 } }, { 160.0, { 200, 160 } }, { 160.5, { 400, 320 } },
             { 320.0, { 400, 320 } }, { 320.5, { 800, 640 } }, { 0.5, { 100, 80 } } }) {
        EXPECT_EQ(decoded(file, { wanted, 1 })->size(), size) << wanted;
        EXPECT_EQ(decoded(file, { 0.1, wanted })->size(), size) << wanted;
    }
    EXPECT_EQ(decoded(jpg(*photograph(401, 299)), { 37, 37 })->size(), (KXSize { 51, 38 }));
}

TEST_F(KXPictureDecoders, PictureMayHave256MebipixelsThatAreShrunkWhileTheyAreDecoded)
{
    EXPECT_TRUE(decoded(claimingSize(jpg(*quarters(32, 32)), 16'384, 16'384), { 100, 100 }));
}

TEST_F(KXPictureDecoders, EmptyWantedSizeAsksForAllOfIt)
{
    auto const image = photograph(401, 299);
    for (KXSize const nothing : { KXSize {}, KXSize { -5, -5 }, KXSize { std::nan(""), 0 } }) {
        auto const again = decoded(jpg(*image), nothing);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->size(), image->size());
    }
}

TEST_F(KXPictureDecoders, LooksAtTheGivenBytesOnly)
{
    for (Bytes const& file : { jpg(*quarters(32, 32)), png(*quarters(32, 32)), gif(32, 32) }) {
        auto const data = reader(join(text("before"), file, text("behind")));
        data->setOffset(6);
        auto const image = loader->imageInData(*data, file.size(), {});
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), (KXSize { 32, 32 }));
    }
}

TEST_F(KXPictureDecoders, LengthLargerThanWhatIsLeftIsNull)
{
    Bytes const file = png(*quarters(32, 32));
    auto const data = reader(file);
    EXPECT_FALSE(loader->imageInData(*data, file.size() + 1, {}));
    data->setOffset(0);
    EXPECT_FALSE(loader->imageInData(*data, ~std::uint64_t { 0 }, {}));
}

TEST_F(KXPictureDecoders, PicturesThatClaimBillionsOfPixelsCostNothing)
{
    auto const file = jpg(*quarters(32, 32));
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(decoded(claimingSize(file, 64250, 64250)));
    EXPECT_FALSE(decoded(claimingSize(file, 64250, 64250), { 100, 100 }));
    EXPECT_FALSE(decoded(claimingSize(file, 16384, 16385), { 100, 100 }));
    EXPECT_FALSE(decoded(claimingSize(file, 12000, 11200))); // Too large when not shrunk.
    EXPECT_FALSE(decoded(build::jpeg(64250, 64250, 1800)));
    EXPECT_FALSE(decoded(build::png(0x7FFFFFFF, 0x7FFFFFFF)));
    EXPECT_FALSE(decoded(gif(20'000, 20'000)));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_TRUE(decoded(claimingSize(file, 31, 31))); // The claim itself is no fault.
}

TEST_F(KXPictureDecoders, WhatIsNoPictureIsNull)
{
    for (Bytes const& file : { Bytes(), zeros(1), zeros(100'000), filled(300, 0xFF),
             text("This is a letter, not a picture."), bytes({ 0xFF, 0xD8, 0xFF }) }) {
        EXPECT_FALSE(decoded(file)) << file.size();
        EXPECT_FALSE(decoded(file, { 10, 10 })) << file.size();
    }
}

TEST_F(KXPictureDecoders, UpperPartOfACutPhotographIsShown)
{
    auto const image = photograph(200, 160);
    for (Bytes const& file : { jpg(*image), png(*image) }) {
        auto const whole = decoded(file);
        auto const part = decoded(cut(file, file.size() / 2));
        ASSERT_TRUE(part);
        EXPECT_EQ(part->size(), image->size());
        for (std::size_t const x : { 0u, 100u, 199u })
            EXPECT_EQ(pixel(*part, x, 20), pixel(*whole, x, 20)) << x;
    }
}

TEST_F(KXPictureDecoders, WhatACutPictureLeavesOutIsNotLeftToChance)
{
    auto const file = png(*photograph(200, 160)); // With alpha, so the rest is transparent.
    auto const part = decoded(cut(file, file.size() / 2));
    ASSERT_TRUE(part);
    for (std::size_t x = 0; x < 200; ++x)
        ASSERT_EQ(pixel(*part, x, 155), transparent) << x;
    // Half of a hundred black rows, without alpha, stored (RFC 1951, 3.2.4).
    constexpr int length = 100 * (1 + 100 * 3);
    Bytes const upper = join(bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }),
        pngChunk("IHDR", join(u32(100), u32(100), bytes({ 8, 2, 0, 0, 0 }))), u32(7 + length + 4),
        text("IDAT"),
        bytes({ 0x78, 1, 1, length & 0xFF, length >> 8, ~length & 0xFF, ~length >> 8 & 0xFF }),
        zeros(length / 2));
    auto const black = decoded(upper);
    ASSERT_TRUE(black);
    EXPECT_EQ(pixel(*black, 5, 20), (Colour { 0, 0, 0, 255 }));
    EXPECT_EQ(pixel(*black, 5, 80), white);
}

TEST_F(KXPictureDecoders, DamageInTheMiddleLeavesTheUpperPart)
{
    auto const image = noise(120, 100, 3);
    Bytes file = png(*image);
    for (std::size_t i = file.size() / 2; i < file.size(); ++i)
        file[i] = 0x55;
    auto const part = decoded(file);
    ASSERT_TRUE(part);
    EXPECT_EQ(pixel(*part, 60, 5), pixel(*image, 60, 5));
    EXPECT_EQ(pixel(*part, 60, 99), transparent);
}

TEST_F(KXPictureDecoders, PictureWithoutARowIsNull)
{
    Bytes const file = png(*photograph(200, 160));
    constexpr std::size_t headers = 8 + 25 + 8; // Signature, IHDR, length and type of IDAT.
    EXPECT_FALSE(decoded(cut(file, headers)));
    EXPECT_FALSE(decoded(cut(file, headers + 10)));
    EXPECT_FALSE(decoded(build::png(20, 20))); // Has no IDAT at all.
}

TEST_F(KXPictureDecoders, LargePictureIsTakenOverSmaller)
{
    auto const image = quarters(2'600, 2'000);
    Bytes const file = png(*image);
    auto const part = decoded(file, { 100, 80 });
    ASSERT_TRUE(part);
    EXPECT_EQ(part->size(), (KXSize { 260, 200 })); // Twice what is wanted, at least.
    EXPECT_EQ(middlesOfQuarters(*part), middlesOfQuarters(*image));
    EXPECT_EQ(decoded(file, { 500, 80 })->size(), (KXSize { 1'300, 1'000 }));
    EXPECT_EQ(decoded(file, { 1, 0.5 })->size(), (KXSize { 3, 2 }));
    EXPECT_EQ(decoded(file, { 1'400, 80 })->size(), image->size());
    EXPECT_EQ(decoded(file)->size(), image->size());
    // What has four mebipixels is not large.
    EXPECT_EQ(
        decoded(png(*solid(2'048, 2'048, red)), { 100, 80 })->size(), (KXSize { 2'048, 2'048 }));
    EXPECT_EQ(decoded(png(*solid(2'049, 2'048, red)), { 100, 80 })->size(), (KXSize { 205, 205 }));
}

TEST_F(KXPictureDecoders, PixelsThatAreTakenOverSmallerAreMeans)
{
    // A last block of two columns and one row, and an alpha that changes within blocks.
    auto const image = imageOf(2'402, 2'001, [](std::size_t x, std::size_t) {
        return x % 2 ? Colour { 200, 100, 0, 200 } : transparent;
    });
    auto const part = decoded(png(*image), { 300, 300 });
    ASSERT_TRUE(part);
    EXPECT_EQ(part->size(), (KXSize { 801, 667 }));
    expectNear(pixel(*part, 800, 666), { 100, 50, 0, 100 }, 1);
    expectNear(pixel(*part, 0, 0), { 67, 33, 0, 67 }, 0);
    // Five ninths are rounded up, four are not.
    auto const faint = imageOf(2'403, 2'001, [](std::size_t x, std::size_t y) {
        auto const alpha = static_cast<std::uint8_t>(x < 3 ? 5 : 4);
        return x % 3 || y % 3 ? transparent : Colour { 0, alpha, 0, alpha };
    });
    auto const means = decoded(png(*faint), { 300, 300 });
    ASSERT_TRUE(means);
    EXPECT_EQ(pixel(*means, 0, 0), (Colour { 0, 1, 0, 1 }));
    EXPECT_EQ(pixel(*means, 1, 0), transparent);
}

TEST_F(KXPictureDecoders, DrawingIsMadeInTheSizeThatIsWanted)
{
    auto const drawing = [](std::string const& size) {
        return text("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 4 2' " + size
            + "><rect width='2' height='2' fill='red'/></svg>");
    };
    if (!decoded(drawing("width='4' height='2'"), { 4, 2 }))
        GTEST_SKIP() << "no loader for SVG";
    EXPECT_TRUE(decoded(drawing("width='4' height='2'")));
    EXPECT_EQ(
        decoded(drawing("width='1' height='1000'"), { 0.1, 100 })->size(), (KXSize { 1, 100 }));
    auto const image = decoded(drawing("width='4000' height='2000'"), { 100, 30 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 100, 50 }));
    EXPECT_EQ(pixel(*image, 10, 25), red);
    EXPECT_EQ(pixel(*image, 90, 25), transparent);
    EXPECT_TRUE(decoded(drawing("width='30000' height='15000'"), { 100, 30 }));
    EXPECT_FALSE(decoded(drawing("width='30000' height='15000'")));
    EXPECT_EQ(decoded(drawing("width='16' height='8'"), { 100, 100 })->size(), (KXSize { 16, 8 }));
}

TEST_F(KXPictureDecoders, TruncatedPictureIsNullOrOfItsSize)
{
    auto const image = photograph(48, 32);
    for (Bytes const& file : { jpg(*image), png(*image), gif(48, 32) }) {
        for (std::size_t length = 0; length < file.size(); length += length < 700 ? 1 : 97) {
            auto const part = decoded(cut(file, length));
            if (part) {
                EXPECT_EQ(part->size(), image->size()) << length;
            }
        }
        EXPECT_TRUE(decoded(file));
        EXPECT_FALSE(decoded(cut(file, 20)));
    }
}

TEST_F(KXPictureDecoders, PlainTIFFIsShown)
{
    auto const u16le = [](std::uint32_t value) { return u16(TIFF::II, value); };
    auto const entry = [&](std::uint32_t tag, std::uint32_t value) {
        constexpr std::uint32_t typeShort = 3;
        return join(u16le(tag), u16le(typeShort), u32(TIFF::II, 1), u16le(value), zeros(2));
    };
    // Width, height, bits, compression, meaning (0 is black), strip, samples, rows, bytes (TIFF
    // 6.0, section 4).
    constexpr std::uint32_t offsetOfPixels = 8 + 2 + 9 * 12 + 4;
    Bytes const directory = join(entry(256, 2), entry(257, 2), entry(258, 8), entry(259, 1),
        entry(262, 1), entry(273, offsetOfPixels), entry(277, 1), entry(278, 2), entry(279, 4));
    auto const image = decoded(join(text("II*"), u8(0), u32(TIFF::II, 8), u16le(9), directory,
        zeros(4), bytes({ 0, 80, 160, 255 })));
    ASSERT_TRUE(image);
    ASSERT_EQ(image->size(), (KXSize { 2, 2 }));
    EXPECT_EQ(pixel(*image, 1, 0), (Colour { 80, 80, 80, 255 }));
    EXPECT_EQ(pixel(*image, 0, 1), (Colour { 160, 160, 160, 255 }));
}

// Orientation.

TEST_F(KXPictureDecoders, PhotographComesUpright)
{
    Bytes const file = jpg(*quarters(64, 32));
    // Of the quarters as stored: 0 and 1 above, 2 and 3 below.
    constexpr std::size_t expected[][4] { { 0, 1, 2, 3 }, { 1, 0, 3, 2 }, { 3, 2, 1, 0 },
        { 2, 3, 0, 1 }, { 0, 2, 1, 3 }, { 2, 0, 3, 1 }, { 3, 1, 2, 0 }, { 1, 3, 0, 2 } };
    auto const stored = middlesOfQuarters(*decoded(file));
    for (std::uint32_t value = 1; value <= 8; ++value) {
        for (TIFF const order : { TIFF::II, TIFF::MM }) {
            SCOPED_TRACE(value);
            Bytes const block = exif(tiff(order, directory(order, { orientation(order, value) })));
            auto const image = decoded(withSegment(file, block));
            ASSERT_TRUE(image);
            EXPECT_EQ(image->size(), value < 5 ? (KXSize { 64, 32 }) : (KXSize { 32, 64 }));
            auto const actual = middlesOfQuarters(*image);
            for (std::size_t i = 0; i < 4; ++i)
                expectNear(actual[i], stored[expected[value - 1][i]], 0);
        }
    }
}

TEST_F(KXPictureDecoders, UnknownOrientationChangesNothing)
{
    Bytes const file = jpg(*quarters(64, 32));
    auto const stored = decoded(file);
    for (std::uint32_t const value : { 0u, 9u, 0xFFFFu }) {
        Bytes const block
            = exif(tiff(TIFF::MM, directory(TIFF::MM, { orientation(TIFF::MM, value) })));
        auto const image = decoded(withSegment(file, block));
        ASSERT_TRUE(image) << value;
        EXPECT_TRUE(areEqual(*image, *stored)) << value;
    }
}

TEST_F(KXPictureDecoders, LyingPhotographIsLargeEnoughOnceUpright)
{
    Bytes const block = exif(tiff(TIFF::II, directory(TIFF::II, { orientation(TIFF::II, 6) })));
    Bytes const file = withSegment(jpg(*photograph(400, 160)), block);
    for (KXSize const wanted : { KXSize { 10, 90 }, KXSize { 90, 10 }, KXSize { 30, 30 } }) {
        auto const image = decoded(file, wanted);
        ASSERT_TRUE(image);
        EXPECT_GE(image->size().width, wanted.width);
        EXPECT_GE(image->size().height, wanted.height);
        EXPECT_NEAR(image->size().height / image->size().width, 2.5, 0.1);
    }
}

TEST_F(KXPictureDecoders, PictureThatNeedsMoreMemoryThanThereIsIsNotEncoded)
{
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    auto const image = solid(6'000, 6'000, red);
    pid_t const process = ::fork();
    if (process == 0) {
        // No more than it has already.
        rlimit const none { 0, 0 };
        ::setrlimit(RLIMIT_AS, &none);
        ::_exit(png(*image).empty() && jpg(*image).empty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

TEST_F(KXPictureDecoders, PictureForWhichThereIsNoMemoryFileIsNotDecodedInPart)
{
    Bytes const photo = jpg(*noise(300, 200, 7));
    pid_t const process = ::fork();
    if (process == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit const half { photo.size() / 2, photo.size() / 2 };
        ::setrlimit(RLIMIT_FSIZE, &half); // Of files in memory as well.
        try {
            (void)decoded(photo);
            ::_exit(1);
        } catch (std::bad_alloc const&) {
            ::_exit(0);
        }
    }
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}
