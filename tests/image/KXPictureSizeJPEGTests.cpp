#include "support/PictureSizes.h"

using namespace build;

// ITU-T T.81, annex B.

namespace {

Bytes const startOfImage = bytes({ 0xFF, 0xD8 });
Bytes const scan = join(bytes({ 0xFF, 0xDA }), u16(8), u8(1), u16(0x0100), bytes({ 0, 63, 0 }));
Bytes const endOfImage = bytes({ 0xFF, 0xD9 });

Bytes segment(std::uint32_t marker, Bytes const& content)
{
    return join(u8(0xFF), u8(marker), u16(static_cast<std::uint32_t>(content.size()) + 2), content);
}

Bytes frameHeader(std::uint32_t marker = 0xC0, std::uint32_t width = 40, std::uint32_t height = 30)
{
    return segment(marker, join(u8(8), u16(height), u16(width), u8(1), u8(1), u16(0x1100)));
}

/// A JPEG with these segments before its scan.
template <class... Segments> Bytes jpegOf(Segments const&... segments)
{
    return join(startOfImage, segments..., scan, zeros(4), endOfImage);
}

}

TEST(KXPictureSizeJPEG, MeasuresEveryCodingProcess)
{
    for (std::uint32_t const marker : { 0xC0u, 0xC1u, 0xC2u, 0xC3u, 0xC5u, 0xC6u, 0xC7u, 0xC9u,
             0xCAu, 0xCBu, 0xCDu, 0xCEu, 0xCFu })
        EXPECT_EQ(measured(jpegOf(frameHeader(marker))), sizeOf40By30) << marker;
}

TEST(KXPictureSizeJPEG, TakesNoOtherSegmentForAFrameHeader)
{
    for (std::uint32_t const marker : { 0xBFu, 0xC4u, 0xC8u, 0xCCu, 0xDBu, 0xDDu, 0xE0u, 0xFEu }) {
        EXPECT_EQ(measured(jpegOf(frameHeader(marker))), std::nullopt) << marker;
        EXPECT_EQ(
            measured(jpegOf(frameHeader(marker, 7, 7), frameHeader(), frameHeader(marker, 9, 9))),
            sizeOf40By30)
            << marker;
    }
}

TEST(KXPictureSizeJPEG, PassesFillBytesAndMarkersThatStandAlone)
{
    Bytes const fill = filled(50, 0xFF);
    EXPECT_EQ(measured(jpegOf(fill, frameHeader(), fill)), sizeOf40By30);
    for (int const marker : { 0x01, 0xD0, 0xD7, 0xD8 })
        EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, marker }), frameHeader())), sizeOf40By30) << marker;
}

TEST(KXPictureSizeJPEG, FindsTheFrameHeaderAfterManySegments)
{
    std::vector<Bytes> const segments(300, segment(0xE1, filled(60'000, 0xFF)));
    EXPECT_EQ(measured(jpegOf(concatenated(segments), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSizeJPEG, NeedsAFrameHeaderBeforeItsScan)
{
    EXPECT_EQ(measured(jpegOf()), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, scan, frameHeader(), endOfImage)), std::nullopt);
}

TEST(KXPictureSizeJPEG, NeedsAScan)
{
    EXPECT_EQ(measured(join(startOfImage, frameHeader())), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, frameHeader(), endOfImage, zeros(9))), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, frameHeader(), endOfImage, scan)), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, frameHeader(), endOfImage, u16(2), scan, zeros(4))),
        std::nullopt);
}

TEST(KXPictureSizeJPEG, WithoutWidthOrHeightIsAbsent)
{
    EXPECT_EQ(measured(jpegOf(frameHeader(0xC0, 40, 0))), std::nullopt); // Told after the scan.
    EXPECT_EQ(measured(jpegOf(frameHeader(0xC0, 0, 30))), std::nullopt);
    EXPECT_EQ(measured(jpegOf(frameHeader(0xC0, 0, 30), frameHeader())), std::nullopt);
}

TEST(KXPictureSizeJPEG, MeasuresWhatNobodyCouldDecode)
{
    EXPECT_EQ(measured(jpeg(64250, 64250)), (KXSize { 64250, 64250 }));
    EXPECT_EQ(measured(jpeg(65535, 1)), (KXSize { 65535, 1 }));
}

TEST(KXPictureSizeJPEG, WithBrokenSegmentsIsAbsent)
{
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 0 }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 1 }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0xFF, 0xFF }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 2 }), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSizeJPEG, CutOffBeforeItsScanIsAbsent)
{
    Bytes const head = join(startOfImage, segment(0xE0, zeros(14)), frameHeader());
    Bytes const whole = join(head, scan);
    for (std::size_t length = 0; length <= head.size() + 1; ++length) {
        Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(measured(cut), std::nullopt) << length;
    }
    EXPECT_EQ(measured(whole), sizeOf40By30);
}

TEST(KXPictureSizeJPEG, MarkersPassedDrawOnTheBudget)
{
    auto const data = reader(jpegOf(segment(0xE0, {}), bytes({ 0xFF, 0xFF, 0xFF }), frameHeader()));
    auto const stepsLeft = [&data] { return data->budget().stepsLeft(); };
    auto const before = stepsLeft();
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), sizeOf40By30);
    EXPECT_EQ(before - stepsLeft(), 9u); // Three markers of two bytes, three fill bytes.
    while (stepsLeft() > 8)
        ASSERT_TRUE(data->budget().takeStep());
    data->setOffset(0);
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), std::nullopt);
}

TEST(KXPictureSizeJPEG, StrayBytesBetweenSegmentsArePassedOver)
{
    EXPECT_EQ(measured(jpegOf(segment(0xE0, zeros(14)), zeros(2), frameHeader())), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf(text("stray"), frameHeader())), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0, 0xFF, 0 }), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSizeJPEG, WithAFrameHeaderTooShortForItsFieldsIsAbsent)
{
    EXPECT_EQ(
        measured(bytes({ 0xFF, 0xD8, 0xFF, 0xC0, 0, 2, 0xFF, 0xDA, 0, 2, 1, 2, 3 })), std::nullopt);
    Bytes const fields = join(u8(8), u16(30), u16(40), u8(0)); // Of no component.
    EXPECT_EQ(measured(jpegOf(segment(0xC0, fields))), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf(segment(0xC0, { fields.begin(), fields.end() - 1 }))), std::nullopt);
}
