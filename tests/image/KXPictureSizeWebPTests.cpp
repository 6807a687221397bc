#include "support/PictureHeaders.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

constexpr std::uint32_t animationFlag = 2;

/// A chunk of a colour profile with that many bytes.
Bytes profile(std::size_t length) { return chunk("ICCP", filled(length, 7)); }

}

TEST(KXPictureSizeWebP, MeasuresEachOfItsFormats)
{
    EXPECT_EQ(measured(riff(lossyFrame(40, 30))), sizeOf40By30);
    EXPECT_EQ(measured(riff(losslessFrame(40, 30))), sizeOf40By30);
    EXPECT_EQ(measured(riff(join(canvas(40, 30), lossyFrame(40, 30)))), sizeOf40By30);
    EXPECT_EQ(measured(riff(join(canvas(40, 30), losslessFrame(40, 30)))), sizeOf40By30);
}

TEST(KXPictureSizeWebP, SidesHaveTheirWholeRange)
{
    EXPECT_EQ(measured(riff(lossyFrame(0x3FFF, 0x2001))), (KXSize { 0x3FFF, 0x2001 }));
    EXPECT_EQ(measured(riff(losslessFrame(0x4000, 1))), (KXSize { 0x4000, 1 }));
    EXPECT_EQ(measured(riff(losslessFrame(1, 0x4000))), (KXSize { 1, 0x4000 }));
    EXPECT_EQ(measured(riff(losslessFrame(0x2345, 0x1234))), (KXSize { 0x2345, 0x1234 }));
    EXPECT_EQ(measured(riff(canvas(0x1000000, 0xFF))), (KXSize { 0x1000000, 0xFF }));
    EXPECT_EQ(measured(riff(canvas(0x010203, 0xFE))), (KXSize { 0x010203, 0xFE }));
}

TEST(KXPictureSizeWebP, CanvasHasLessThan32BitsOfPixels)
{
    EXPECT_EQ(measured(riff(canvas(0x10001, 0xFFFF))), (KXSize { 0x10001, 0xFFFF }));
    EXPECT_EQ(measured(riff(canvas(0x10000, 0x10000))), std::nullopt);
    EXPECT_EQ(measured(riff(canvas(0x1000000, 0x1000000))), std::nullopt);
}

TEST(KXPictureSizeWebP, HowToEnlargeALossyFrameDoesNotMatter)
{
    EXPECT_EQ(measured(riff(lossyFrame(0x4000 | 40, 0xC000 | 30))), sizeOf40By30);
}

TEST(KXPictureSizeWebP, LossyFrameMustBeAKeyFrameThatIsShown)
{
    auto const measuredTag
        = [](std::uint32_t tag) { return measured(riff(lossyFrame(40, 30, tag))); };
    for (std::uint32_t version = 0; version < 8; ++version)
        EXPECT_EQ(measuredTag(0x30 | version << 1).has_value(), version <= 3) << version;
    EXPECT_EQ(measuredTag(0x31), std::nullopt); // Between key frames.
    EXPECT_EQ(measuredTag(0x20), std::nullopt); // Not shown.
    EXPECT_EQ(measuredTag(0x10 | 15 << 5), sizeOf40By30); // The chunk has 16 bytes.
    EXPECT_EQ(measuredTag(0x10 | 16 << 5), std::nullopt);
    EXPECT_EQ(measuredTag(0x10 | 0x7FFFF << 5), std::nullopt);
}

TEST(KXPictureSizeWebP, FramesNeedTheirSignatures)
{
    for (std::size_t const position : { 23u, 24u, 25u }) {
        Bytes changed = riff(lossyFrame(40, 30));
        changed[position] ^= 1;
        EXPECT_EQ(measured(changed), std::nullopt) << position;
    }
    Bytes changed = riff(losslessFrame(40, 30));
    changed[20] ^= 1;
    EXPECT_EQ(measured(changed), std::nullopt);
    EXPECT_EQ(measured(riff(losslessFrame(40, 30, 1))), sizeOf40By30); // Transparent.
    for (std::uint32_t const version : { 1u, 2u, 4u })
        EXPECT_EQ(measured(riff(losslessFrame(40, 30, version << 1))), std::nullopt) << version;
}

TEST(KXPictureSizeWebP, FileNeedsItsHeader)
{
    Bytes const frame = lossyFrame(40, 30);
    Bytes other = riff(frame);
    other[3] = 'X';
    EXPECT_EQ(measured(other), std::nullopt);
    EXPECT_EQ(measured(riff(join(text("abcd"), frame))), std::nullopt);
    EXPECT_EQ(measured(riff(chunk("ALPH", filled(20, 1)))), std::nullopt);
    EXPECT_EQ(measured(riff({})), std::nullopt);
    Bytes renamed = riff(frame);
    renamed[15] = 'Y'; // "VP8Y"
    EXPECT_EQ(measured(renamed), std::nullopt);
    // Would be taken for a frame if the header were not checked.
    Bytes const frameInHeader
        = join(text("XXXXVP8LWEBP"), u8(0x2F), bytes({ 31, 0, 6, 0 }), zeros(40));
    EXPECT_EQ(measured(frameInHeader), std::nullopt);
}

TEST(KXPictureSizeWebP, FileMustHaveRoomForAChunk)
{
    Bytes const moving = canvas(40, 30, animationFlag);
    EXPECT_EQ(measured(riffClaiming(12, moving)), sizeOf40By30);
    EXPECT_EQ(measured(riffClaiming(11, moving)), std::nullopt);
}

TEST(KXPictureSizeWebP, FrameMustFitTheFileAsThatClaims)
{
    Bytes const frame = lossyFrame(40, 30); // A header and 16 bytes.
    for (std::uint32_t const length : { 0u, 4u, 11u, 12u, 27u })
        EXPECT_EQ(measured(riffClaiming(length, frame)), std::nullopt) << length;
    for (std::uint32_t const length : { 28u, 1000u, 0xFFFFFFFFu })
        EXPECT_EQ(measured(riffClaiming(length, frame)), sizeOf40By30) << length;
    Bytes const content(frame.begin() + 8, frame.end());
    EXPECT_EQ(measured(riff(chunkClaiming(17, "VP8 ", content))), std::nullopt);
    EXPECT_EQ(measured(riff(chunkClaiming(0xFFFFFFFF, "VP8 ", content))), std::nullopt);
    // Less than its header has.
    EXPECT_EQ(measured(riff(chunkClaiming(9, "VP8 ", content))), std::nullopt);
    Bytes const lossless = losslessFrame(40, 30);
    EXPECT_EQ(measured(riff(chunkClaiming(4, "VP8L", { lossless.begin() + 8, lossless.end() }))),
        std::nullopt);
}

TEST(KXPictureSizeWebP, CanvasHasItsLength)
{
    Bytes const whole = canvas(40, 30);
    Bytes const content(whole.begin() + 8, whole.end());
    for (std::uint32_t const length : { 0u, 9u, 11u, 12u, 0xFFFFFFFFu })
        EXPECT_EQ(
            measured(riff(join(chunkClaiming(length, "VP8X", content), zeros(20)))), std::nullopt)
            << length;
}

TEST(KXPictureSizeWebP, OtherChunksMayComeBeforeTheFrame)
{
    for (std::size_t const length : { 0u, 1u, 2u, 501u, 70'000u })
        EXPECT_EQ(measured(riff(join(canvas(40, 30), profile(length), chunk("ALPH", zeros(3)),
                      lossyFrame(40, 30)))),
            sizeOf40By30)
            << length;
}

TEST(KXPictureSizeWebP, FrameThatLeavesPartOfItsCanvasShowsDamage)
{
    for (Bytes const& frame : { lossyFrame(40, 31), losslessFrame(41, 30), lossyFrame(0, 30),
             lossyFrame(40, 30, 0x31) }) {
        EXPECT_EQ(measured(riff(join(canvas(40, 30), frame))), std::nullopt);
        EXPECT_EQ(measured(riff(join(canvas(40, 30), profile(501), frame))), std::nullopt);
        EXPECT_EQ(measured(riff(join(canvas(40, 30, animationFlag), frame))), sizeOf40By30);
    }
}

TEST(KXPictureSizeWebP, OtherFlagsMakeNoAnimation)
{
    EXPECT_EQ(
        measured(riff(join(canvas(40, 30, ~animationFlag), lossyFrame(40, 31)))), std::nullopt);
}

TEST(KXPictureSizeWebP, ChunkThatReachesPastTheFilesEndShowsDamage)
{
    Bytes const before = join(canvas(40, 30), profile(4));
    EXPECT_EQ(measured(riff(before)), sizeOf40By30);
    EXPECT_EQ(
        measured(riff(join(canvas(40, 30), chunkClaiming(5, "ICCP", zeros(4))))), std::nullopt);
    // Its padding counts.
    EXPECT_EQ(measured(riffClaiming(33, join(canvas(40, 30), profile(3)))), std::nullopt);
    EXPECT_EQ(measured(riffClaiming(34, join(canvas(40, 30), profile(3)))), sizeOf40By30);
    EXPECT_EQ(measured(riff(join(canvas(40, 30), chunkClaiming(0xFFFFFFFF, "ICCP", zeros(4))))),
        std::nullopt);
    EXPECT_EQ(
        measured(riff(join(canvas(40, 30), chunkClaiming(17, "VP8 ", zeros(16))))), std::nullopt);
}

TEST(KXPictureSizeWebP, CutOffInItsHeaderIsAbsent)
{
    expectSizeFrom(30, riff(lossyFrame(40, 30)));
    expectSizeFrom(25, riff(losslessFrame(40, 30)));
    expectSizeFrom(30, riff(join(canvas(40, 30, animationFlag), chunk("ANIM", zeros(6)))));
}

TEST(KXPictureSizeWebP, CanvasIsTheSizeWhateverIsCutOffAfterIt)
{
    expectSizeFrom(
        30, riff(join(canvas(40, 30), profile(5), chunk("ALPH", zeros(4)), lossyFrame(40, 30))));
    expectSizeFrom(30, riff(join(canvas(40, 30), losslessFrame(40, 30))));
}

TEST(KXPictureSizeWebP, ChunkWhosePaddingIsCutOffIsTheLastThatTakesAStep)
{
    Bytes cut = riff(join(canvas(40, 30), profile(3)));
    cut.pop_back();
    EXPECT_EQ(measuredInSteps(cut, 1), sizeOf40By30);
    EXPECT_EQ(measuredInSteps(cut, 0), std::nullopt);
}

TEST(KXPictureSizeWebP, EveryChunkAfterTheCanvasTakesAStep)
{
    std::vector<Bytes> const chunks(1000, profile(0));
    expectSteps(riff(join(canvas(40, 30), concatenated(chunks), lossyFrame(40, 30))), 1001);
    EXPECT_EQ(measuredInSteps(riff(canvas(40, 30, animationFlag)), 0), sizeOf40By30);
}
