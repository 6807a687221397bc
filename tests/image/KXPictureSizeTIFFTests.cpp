#include "support/PictureHeaders.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

constexpr TIFF orders[] { TIFF::II, TIFF::MM };
constexpr std::uint32_t tiffByte = 1, tiffASCII = 2, tiffRational = 5;

/// The entries of a picture of 40 by 30 pixels.
std::vector<Bytes> entries(TIFF order)
{
    return { imageWidth(order, 40), imageLength(order, 30), stripOffsets(order) };
}

/// The size of a picture of 40 by 30 pixels with another entry after the others.
Size measuredWith(TIFF order, Bytes const& other)
{
    auto all = entries(order);
    all.push_back(other);
    return measured(tiffOf(order, all));
}

/// The value of an entry whose one byte or number of 16 bits comes first in the field.
std::uint32_t leftmost(TIFF order, std::uint32_t value, std::uint32_t bits)
{
    return order == TIFF::MM ? value << (32 - bits) : value;
}

}

TEST(KXPictureSizeTIFF, MeasuresBothByteOrders)
{
    for (TIFF const order : orders) {
        EXPECT_EQ(measured(tiffOf(order, entries(order))), sizeOf40By30);
        EXPECT_EQ(
            measured(tiffOf(order,
                { imageWidth(order, 0x0102), imageLength(order, 0x0304), stripOffsets(order) })),
            (KXSize { 0x0102, 0x0304 }));
    }
}

TEST(KXPictureSizeTIFF, SidesAreBytesShortsOrLongs)
{
    for (TIFF const order : orders) {
        for (auto const& [type, bits] :
            { std::pair(tiffByte, 8u), std::pair(tiffShort, 16u), std::pair(tiffLong, 32u) }) {
            // The bytes past the value are left to chance.
            std::uint32_t const width = leftmost(order, 40, bits);
            std::uint32_t const height = leftmost(order, 30, bits);
            EXPECT_EQ(measured(tiffOf(order,
                          { entry(order, 256, width, type), entry(order, 257, height, type),
                              stripOffsets(order) })),
                sizeOf40By30);
        }
        EXPECT_EQ(measured(tiffOf(order,
                      { entry(order, 256, 0x12345), entry(order, 257, 2), stripOffsets(order) })),
            (KXSize { 0x12345, 2 }));
    }
}

TEST(KXPictureSizeTIFF, BytesPastAShortValueDoNotMatter)
{
    EXPECT_EQ(measured(tiffOf(TIFF::II,
                  { entry(TIFF::II, 256, 0xFFFF0028, tiffShort),
                      entry(TIFF::II, 257, 0xFFFFFF1E, tiffByte), stripOffsets(TIFF::II) })),
        sizeOf40By30);
    EXPECT_EQ(measured(tiffOf(TIFF::MM,
                  { entry(TIFF::MM, 256, 0x0028FFFF, tiffShort),
                      entry(TIFF::MM, 257, 0x1EFFFFFF, tiffByte), stripOffsets(TIFF::MM) })),
        sizeOf40By30);
}

TEST(KXPictureSizeTIFF, SidesOfOtherTypesOrCountsAreAbsent)
{
    for (TIFF const order : orders) {
        for (std::uint32_t const type : { 0u, tiffASCII, tiffRational, 6u, 8u, 11u, 16u, 0xFFFFu })
            EXPECT_EQ(
                measured(tiffOf(order,
                    { entry(order, 256, 40, type), imageLength(order, 30), stripOffsets(order) })),
                std::nullopt)
                << type;
        for (std::uint32_t const count : { 0u, 2u, 0x10001u, 0xFFFFFFFFu })
            EXPECT_EQ(measured(tiffOf(order,
                          { imageWidth(order, 40), entry(order, 257, 30, tiffLong, count),
                              stripOffsets(order) })),
                std::nullopt)
                << count;
    }
}

TEST(KXPictureSizeTIFF, EntriesMayComeInAnyOrderAndAmongOthers)
{
    for (TIFF const order : orders) {
        Bytes const description = entry(order, 270, 1000, tiffASCII, 500);
        EXPECT_EQ(measured(tiffOf(order,
                      { description, stripOffsets(order), imageLength(order, 30), description,
                          imageWidth(order, 40) })),
            sizeOf40By30);
    }
}

TEST(KXPictureSizeTIFF, OfSeveralSidesTheFirstCounts)
{
    constexpr TIFF order = TIFF::II;
    EXPECT_EQ(measured(tiffOf(order,
                  { imageWidth(order, 40), imageWidth(order, 7), imageLength(order, 30),
                      imageLength(order, 8), stripOffsets(order) })),
        sizeOf40By30);
}

TEST(KXPictureSizeTIFF, OfSeveralPicturesTheFirstCounts)
{
    constexpr TIFF order = TIFF::MM;
    Bytes const second
        = directory(order, { imageWidth(order, 7), imageLength(order, 8), stripOffsets(order) });
    EXPECT_EQ(
        measured(tiff(order, directory(order, entries(order), 8 + directoryLength(3)), second)),
        sizeOf40By30);
}

TEST(KXPictureSizeTIFF, IsMeasuredAsItIsStored)
{
    for (std::uint32_t turn = 1; turn <= 8; ++turn)
        EXPECT_EQ(measuredWith(TIFF::II, orientation(TIFF::II, turn)), sizeOf40By30);
}

TEST(KXPictureSizeTIFF, NeedsBothSidesAndPixels)
{
    constexpr TIFF order = TIFF::II;
    EXPECT_EQ(
        measured(tiffOf(order, { imageLength(order, 30), stripOffsets(order) })), std::nullopt);
    EXPECT_EQ(
        measured(tiffOf(order, { imageWidth(order, 40), stripOffsets(order) })), std::nullopt);
    EXPECT_EQ(
        measured(tiffOf(order, { imageWidth(order, 40), imageLength(order, 30) })), std::nullopt);
    EXPECT_EQ(measured(tiffOf(order, {})), std::nullopt);
}

TEST(KXPictureSizeTIFF, PixelsAreStripsTilesOrAJPEG)
{
    constexpr TIFF order = TIFF::II;
    auto const measuredWithPixels = [](Bytes const& pixels) {
        return measured(tiffOf(order, { imageWidth(order, 40), imageLength(order, 30), pixels }));
    };
    for (std::uint32_t const tag : { 273u, 324u, 513u }) {
        EXPECT_EQ(measuredWithPixels(entry(order, tag, 8)), sizeOf40By30) << tag;
        EXPECT_EQ(measuredWithPixels(entry(order, tag, 8, tiffShort, 70)), sizeOf40By30) << tag;
        EXPECT_EQ(measuredWithPixels(entry(order, tag, 8, tiffASCII)), std::nullopt) << tag;
        EXPECT_EQ(measuredWithPixels(entry(order, tag, 8, tiffByte)), std::nullopt) << tag;
        EXPECT_EQ(measuredWithPixels(entry(order, tag, 8, tiffLong, 0)), std::nullopt) << tag;
    }
    EXPECT_EQ(measuredWithPixels(entry(order, 279, 8)), std::nullopt); // Their lengths.
}

TEST(KXPictureSizeTIFF, FieldsThatDecodersNeedMustBePossible)
{
    struct Case {
        std::uint32_t tag;
        std::uint32_t value;
        bool isPossible;
    };
    Case const cases[] {
        { 277, 0, false }, { 277, 1, true }, { 277, 0xFFFF, true },
        { 277, 0x10000, false }, // Samples
        { 278, 0, false }, { 278, 1, true }, { 278, 0xFFFFFFFF, true }, // Rows in a strip
        { 284, 0, false }, { 284, 1, true }, { 284, 2, true }, { 284, 3, false }, // Planes
        { 322, 0, false }, { 322, 1, true }, { 323, 0, false }, { 323, 1, true }, // Tiles
    };
    for (TIFF const order : orders) {
        for (auto const& [tag, value, isPossible] : cases) {
            EXPECT_EQ(measuredWith(order, entry(order, tag, value)).has_value(), isPossible)
                << tag << ' ' << value;
            EXPECT_EQ(measuredWith(order, entry(order, tag, 1, tiffRational)), std::nullopt);
            EXPECT_EQ(measuredWith(order, entry(order, tag, 1, tiffLong, 2)), std::nullopt);
        }
    }
}

TEST(KXPictureSizeTIFF, OtherFieldsDoNotMatter)
{
    for (TIFF const order : orders) {
        for (std::uint32_t const tag : { 258u, 259u, 262u, 279u, 700u, 33432u })
            EXPECT_EQ(
                measuredWith(order, entry(order, tag, 0xFFFFFFFF, tiffRational, 3)), sizeOf40By30);
    }
}

TEST(KXPictureSizeTIFF, MorePixelsThanDecodersTakeAreAbsent)
{
    constexpr TIFF order = TIFF::II;
    auto const measuredSides = [](std::uint32_t width, std::uint32_t height) {
        return measured(tiffOf(
            order, { entry(order, 256, width), entry(order, 257, height), stripOffsets(order) }));
    };
    EXPECT_EQ(measuredSides(0x1FFFFFFF, 1), (KXSize { 0x1FFFFFFF, 1 }));
    EXPECT_EQ(measuredSides(1, 0x1FFFFFFF), (KXSize { 1, 0x1FFFFFFF }));
    EXPECT_EQ(measuredSides(0x20000000, 1), std::nullopt);
    EXPECT_EQ(measuredSides(23170, 23170), (KXSize { 23170, 23170 }));
    EXPECT_EQ(measuredSides(23171, 23171), std::nullopt);
    EXPECT_EQ(measuredSides(0x10000, 0x10000), std::nullopt); // Zero in 32 bits.
    EXPECT_EQ(measuredSides(0xFFFFFFFF, 0xFFFFFFFF), std::nullopt);
}

TEST(KXPictureSizeTIFF, CutOffInItsDirectoryIsAbsent)
{
    for (TIFF const order : orders) {
        auto all = entries(order);
        all.push_back(entry(order, 270, 0, tiffASCII));
        expectSizeFrom(8 + 2 + 4 * entryLength, join(tiffOf(order, all), zeros(10)));
    }
}

TEST(KXPictureSizeTIFF, DirectoryMayBeAnywhereInThePicture)
{
    for (TIFF const order : orders) {
        Bytes const head = join(text(order == TIFF::MM ? "MM" : "II"), u16(order, 42));
        Bytes const far = directory(order, entries(order));
        EXPECT_EQ(measured(join(head, u32(order, 1008), zeros(1000), far)), sizeOf40By30);
        EXPECT_EQ(measured(join(head, u32(order, 9), zeros(1), far)), sizeOf40By30);
        for (std::uint32_t const offset :
            { 0u, 2u, 7u, 1009u, 1046u, 1051u, 0x7FFFFFFFu, 0xFFFFFFFFu })
            EXPECT_EQ(measured(join(head, u32(order, offset), zeros(1000), far)), std::nullopt)
                << offset;
    }
}

TEST(KXPictureSizeTIFF, DirectoryThatClaimsMoreThanIsThereIsAbsent)
{
    for (TIFF const order : orders) {
        for (std::uint32_t const count : { 4u, 4096u, 65535u }) {
            Bytes const claiming = join(u16(order, count), concatenated(entries(order)));
            EXPECT_EQ(measured(tiff(order, claiming, zeros(11))), std::nullopt);
        }
    }
}

TEST(KXPictureSizeTIFF, EveryEntryTakesAStep)
{
    constexpr TIFF order = TIFF::II;
    expectSteps(tiffOf(order, entries(order)), 3);
    // The most entries that a directory can have.
    std::vector<Bytes> many(0xFFFF, entry(order, 270, 0, tiffASCII));
    many[0] = imageWidth(order, 40);
    many[1] = imageLength(order, 30);
    many[0xFFFE] = stripOffsets(order);
    expectSteps(tiffOf(order, many), 0xFFFF);
}
