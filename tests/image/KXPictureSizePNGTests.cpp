#include "support/PictureSizes.h"

using namespace build;

// ISO/IEC 15948, 5 and 11.2.2.

TEST(KXPictureSizePNG, IsMeasuredByItsHeaderAlone)
{
    EXPECT_EQ(measured(png(40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(png(0x7FFFFFFF, 1)), (KXSize { 2147483647.0, 1 }));
    Bytes header = png(40, 30);
    header.resize(33);
    EXPECT_EQ(measured(header), sizeOf40By30);
}

TEST(KXPictureSizePNG, CodeOfEveryHeaderIsKnown)
{
    for (std::uint32_t width = 1; width < 1000; ++width)
        EXPECT_EQ(measured(png(width, 1)), (KXSize { static_cast<double>(width), 1 }));
}

TEST(KXPictureSizePNG, WithAnyByteOfItsHeaderChangedIsAbsent)
{
    for (std::size_t i = 0; i < 33; ++i) {
        Bytes changed = png(40, 30);
        changed[i] ^= 0x10;
        EXPECT_EQ(measured(changed), std::nullopt) << i;
    }
}

TEST(KXPictureSizePNG, OfImpossibleSizeIsAbsent)
{
    EXPECT_EQ(measured(png(0, 30)), std::nullopt);
    EXPECT_EQ(measured(png(40, 0)), std::nullopt);
    EXPECT_EQ(measured(png(0x80000000, 30)), std::nullopt);
    EXPECT_EQ(measured(png(40, 0xFFFFFFFF)), std::nullopt);
}

TEST(KXPictureSizePNG, CutOffInItsHeaderIsAbsent) { expectSizeFrom(33, png(40, 30)); }
