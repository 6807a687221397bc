#include "support/PictureHeaders.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

constexpr std::uint32_t infoHeaderLengths[] { 40, 52, 56, 64, 108, 124 };

constexpr std::uint32_t negative(std::uint32_t value) { return 0 - value; }

Size measuredInfo(InfoHeader const& fields, std::uint32_t width = 40, std::uint32_t height = 30)
{
    return measured(bitmap(infoHeader(width, height, fields)));
}

}

TEST(KXPictureSizeBMP, MeasuresHeadersOfOS2AndWindows)
{
    EXPECT_EQ(measured(bitmap(coreHeader(40, 30))), sizeOf40By30);
    for (std::uint32_t const length : infoHeaderLengths)
        EXPECT_EQ(measuredInfo({ .length = length }), sizeOf40By30) << length;
}

TEST(KXPictureSizeBMP, OtherHeadersAreAbsent)
{
    for (std::uint32_t const length :
        { 0u, 3u, 4u, 11u, 13u, 16u, 39u, 41u, 63u, 65u, 125u, 0x28000000u, 0xFFFFFFFFu }) {
        Bytes const header = join(littleEndian(u32(length)), zeros(200));
        EXPECT_EQ(measured(bitmap(header)), std::nullopt) << length;
        InfoHeader const fields { .length = length };
        if (length < 200) {
            EXPECT_EQ(measuredInfo(fields), std::nullopt) << length;
        }
    }
}

TEST(KXPictureSizeBMP, NegativeHeightPutsTheUppermostRowFirst)
{
    for (std::uint32_t const length : infoHeaderLengths)
        EXPECT_EQ(measuredInfo({ .length = length }, 40, negative(30)), sizeOf40By30) << length;
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 1 }, 1, 0x80000001), (KXSize { 1, 0x7FFFFFFF }));
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 1 }, 1, 0x7FFFFFFF), (KXSize { 1, 0x7FFFFFFF }));
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 1 }, 1, 0x80000000), std::nullopt);
}

TEST(KXPictureSizeBMP, NegativeWidthIsAbsent)
{
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 1 }, negative(40)), std::nullopt);
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 1 }, 0x80000000), std::nullopt);
}

TEST(KXPictureSizeBMP, SidesOfOS2HaveASignToo)
{
    EXPECT_EQ(measured(bitmap(coreHeader(0x7FFF, 0x7FFE))), (KXSize { 32767, 32766 }));
    EXPECT_EQ(measured(bitmap(coreHeader(40, 0x10000 - 30))), sizeOf40By30);
    EXPECT_EQ(measured(bitmap(coreHeader(40, 0x8000))), (KXSize { 40, 32768 }));
    for (std::uint32_t const depth : { 1u, 24u }) {
        EXPECT_EQ(measured(bitmap(coreHeader(0x8000, 30, depth))), std::nullopt);
        EXPECT_EQ(measured(bitmap(coreHeader(0xFFFF, 30, depth))), std::nullopt);
    }
}

TEST(KXPictureSizeBMP, DepthsInUseAreMeasuredAndNoOthers)
{
    for (std::uint32_t depth = 0; depth < 100; ++depth) {
        bool const isInUse
            = depth == 1 || depth == 4 || depth == 8 || depth == 16 || depth == 24 || depth == 32;
        Size const expected = isInUse ? Size(sizeOf40By30) : std::nullopt;
        EXPECT_EQ(measuredInfo({ .bitsPerPixel = depth }), expected) << depth;
        EXPECT_EQ(measured(bitmap(coreHeader(40, 30, depth))), expected) << depth;
    }
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 0xFFFF }), std::nullopt);
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 0x8001 }), std::nullopt);
}

TEST(KXPictureSizeBMP, CompressionGoesWithItsDepths)
{
    for (std::uint32_t compression = 0; compression < 10; ++compression) {
        for (std::uint32_t const depth : { 1u, 4u, 8u, 16u, 24u, 32u }) {
            bool const goes = compression == 0 || (compression == 1 && depth == 8)
                || (compression == 2 && depth == 4)
                || (compression == 3 && (depth == 16 || depth == 32));
            InfoHeader const fields { .bitsPerPixel = depth, .compression = compression };
            EXPECT_EQ(measuredInfo(fields).has_value(), goes) << compression << ' ' << depth;
            // Runs fill a picture from its lowest row only.
            EXPECT_EQ(measuredInfo(fields, 40, negative(30)).has_value(),
                goes && compression != 1 && compression != 2)
                << compression << ' ' << depth;
        }
    }
    EXPECT_EQ(measuredInfo({ .compression = 0xFFFFFFFF }), std::nullopt);
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 8, .compression = 1 }, 40, 1), (KXSize { 40, 1 }));
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 4, .compression = 2 }, 40, 1), (KXSize { 40, 1 }));
}

TEST(KXPictureSizeBMP, ColourTableHasNoMoreColoursThanThereCanBe)
{
    for (std::uint32_t const depth : { 1u, 4u, 8u, 16u, 24u }) {
        InfoHeader fields { .bitsPerPixel = depth, .colours = 1u << depth };
        EXPECT_EQ(measuredInfo(fields), sizeOf40By30) << depth;
        ++fields.colours;
        EXPECT_EQ(measuredInfo(fields), std::nullopt) << depth;
    }
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 32, .colours = 0xFFFFFFFF }), sizeOf40By30);
}

TEST(KXPictureSizeBMP, RowTooLongForAFileIsAbsent)
{
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 32 }, 0x3FFFFFFF), (KXSize { 0x3FFFFFFF, 30 }));
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 32 }, 0x40000000), std::nullopt);
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 24 }, 0x55555555), (KXSize { 0x55555555, 30 }));
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 24 }, 0x55555556), std::nullopt);
    EXPECT_EQ(measuredInfo({ .bitsPerPixel = 8 }, 0x7FFFFFFF), (KXSize { 0x7FFFFFFF, 30 }));
}

TEST(KXPictureSizeBMP, CutOffInItsHeaderIsAbsent)
{
    expectSizeFrom(26, join(bitmap(coreHeader(40, 30)), zeros(20)));
    for (std::uint32_t const length : infoHeaderLengths)
        expectSizeFrom(
            14 + length, join(bitmap(infoHeader(40, 30, { .length = length })), zeros(20)));
}
