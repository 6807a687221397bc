#include "support/PictureHeaders.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

/// The header and the logical screen; three bytes of colours follow.
Bytes screen(std::string_view signature, std::uint32_t width, std::uint32_t height)
{
    return join(text(signature), littleEndian(u16(width)), littleEndian(u16(height)), zeros(3));
}

}

TEST(KXPictureSizeGIF, IsMeasuredByItsScreen)
{
    EXPECT_EQ(measured(screen("GIF87a", 40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(screen("GIF89a", 40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(screen("GIF89a", 0xFFFF, 0x0102)), (KXSize { 65535, 258 }));
}

TEST(KXPictureSizeGIF, FramesOfOtherSizesDoNotMatter)
{
    Bytes const frame = bytes({ ',', 0, 0, 0, 0, 9, 0, 9, 0, 0, 2, 0 });
    EXPECT_EQ(measured(join(screen("GIF89a", 40, 30), frame, frame)), sizeOf40By30);
}

TEST(KXPictureSizeGIF, OfAnUnknownVersionIsAbsent)
{
    for (char const* signature : { "GIF88a", "GIF89b", "GIF80a", "GIF8\0a" })
        EXPECT_EQ(measured(screen({ signature, 6 }, 40, 30)), std::nullopt);
}

TEST(KXPictureSizeGIF, CutOffInItsScreenIsAbsent) { expectSizeFrom(13, gif(40, 30)); }
