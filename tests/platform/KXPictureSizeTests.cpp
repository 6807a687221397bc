#include "kxmd/platform/KXPictureSize.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

using Size = std::optional<KXSize>;

constexpr KXSize sizeOf40By30 { 40, 30 };

Size measured(Bytes bytes)
{
    auto const data = reader(std::move(bytes));
    return sizeOfEncodedPictureInData(*data, data->length());
}

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

/// A JPEG with these segments in front of its scan.
template <class... Segments> Bytes jpegOf(Segments const&... segments)
{
    return join(startOfImage, segments..., scan, zeros(4), endOfImage);
}

/// Counts what it is asked for, and finds nothing.
class CountingLoader final : public KXPictureLoader {
public:
    Size sizeOfPictureInData(KXAbstractData& data, std::uint64_t length) const override
    {
        ++calls;
        lastOffset = data.offset();
        lastLength = length;
        return KXSize { 1, 2 };
    }

    KXImage::Ref imageInData(KXAbstractData&, std::uint64_t, KXSize) const override
    {
        return nullptr;
    }
    KXData jpgRepresentation(KXImage const&) const override { return {}; }
    KXData pngRepresentation(KXImage const&) const override { return {}; }

    mutable int calls { 0 };
    mutable std::uint64_t lastOffset { 0 };
    mutable std::uint64_t lastLength { 0 };
};

/// Tests with a picture loader of their own in the process-wide platform.
class KXPictureSizeLoader : public testing::Test {
protected:
    void SetUp() override
    {
        auto platform = std::make_shared<KXPlatform>(*KXPlatform::shared());
        platform->pictureLoader = loader;
        KXPlatform::setShared(platform);
    }
    void TearDown() override { KXPlatform::setShared(nullptr); }

    std::shared_ptr<CountingLoader> const loader = std::make_shared<CountingLoader>();
};

}

// JPEG: ITU-T T.81, annex B.

TEST(KXPictureSize, MeasuresJPEGOfEveryCodingProcess)
{
    for (std::uint32_t const marker : { 0xC0u, 0xC1u, 0xC2u, 0xC3u, 0xC5u, 0xC6u, 0xC7u, 0xC9u,
             0xCAu, 0xCBu, 0xCDu, 0xCEu, 0xCFu })
        EXPECT_EQ(measured(jpegOf(frameHeader(marker))), sizeOf40By30) << marker;
}

TEST(KXPictureSize, TakesNoOtherSegmentOfJPEGForAFrameHeader)
{
    for (std::uint32_t const marker : { 0xC4u, 0xC8u, 0xCCu, 0xDBu, 0xDDu, 0xE0u, 0xFEu }) {
        EXPECT_EQ(measured(jpegOf(frameHeader(marker))), std::nullopt) << marker;
        EXPECT_EQ(
            measured(jpegOf(frameHeader(marker, 7, 7), frameHeader(), frameHeader(marker, 9, 9))),
            sizeOf40By30)
            << marker;
    }
}

TEST(KXPictureSize, PassesFillBytesAndMarkersThatStandAlone)
{
    Bytes const fill = filled(50, 0xFF);
    EXPECT_EQ(measured(jpegOf(fill, frameHeader(), fill)), sizeOf40By30);
    for (int const marker : { 0x01, 0xD0, 0xD7, 0xD8 })
        EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, marker }), frameHeader())), sizeOf40By30) << marker;
}

TEST(KXPictureSize, FindsTheFrameHeaderBehindManySegments)
{
    std::vector<Bytes> const segments(300, segment(0xE1, filled(60'000, 0xFF)));
    EXPECT_EQ(measured(jpegOf(concatenated(segments), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSize, JPEGNeedsAFrameHeaderInFrontOfItsScan)
{
    EXPECT_EQ(measured(jpegOf()), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, scan, frameHeader(), endOfImage)), std::nullopt);
}

TEST(KXPictureSize, JPEGNeedsAScan)
{
    EXPECT_EQ(measured(join(startOfImage, frameHeader())), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, frameHeader(), endOfImage, zeros(9))), std::nullopt);
    EXPECT_EQ(measured(join(startOfImage, frameHeader(), endOfImage, scan)), std::nullopt);
}

TEST(KXPictureSize, JPEGWithoutWidthOrHeightIsAbsent)
{
    EXPECT_EQ(measured(jpegOf(frameHeader(0xC0, 40, 0))), std::nullopt); // Told behind the scan.
    EXPECT_EQ(measured(jpegOf(frameHeader(0xC0, 0, 30))), std::nullopt);
}

TEST(KXPictureSize, MeasuresAJPEGThatNobodyCouldDecode)
{
    EXPECT_EQ(measured(jpeg(64250, 64250)), (KXSize { 64250, 64250 }));
    EXPECT_EQ(measured(jpeg(65535, 1)), (KXSize { 65535, 1 }));
}

TEST(KXPictureSize, JPEGWithBrokenSegmentsIsAbsent)
{
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 0 }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 1 }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0xFF, 0xFF }), frameHeader())), std::nullopt);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0xE0, 0, 2 }), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSize, JPEGCutOffInFrontOfItsScanIsAbsent)
{
    Bytes const head = join(startOfImage, segment(0xE0, zeros(14)), frameHeader());
    Bytes const whole = join(head, scan);
    for (std::size_t length = 0; length <= head.size() + 1; ++length) {
        Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(measured(cut), std::nullopt) << length;
    }
    EXPECT_EQ(measured(whole), sizeOf40By30);
}

TEST(KXPictureSize, MarkersPassedDrawOnTheBudget)
{
    auto const data = reader(jpegOf(segment(0xE0, {}), bytes({ 0xFF, 0xFF, 0xFF }), frameHeader()));
    auto const stepsLeft = [&data] { return data->budget().headerBytes(); };
    auto const before = stepsLeft();
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), sizeOf40By30);
    EXPECT_EQ(before - stepsLeft(), 9u); // Three markers of two bytes, three fill bytes.
    while (stepsLeft() > 8)
        ASSERT_TRUE(data->budget().takeHeaderByte());
    data->setOffset(0);
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), std::nullopt);
}

TEST(KXPictureSize, StrayBytesBetweenJPEGSegmentsArePassedOver)
{
    EXPECT_EQ(measured(jpegOf(segment(0xE0, zeros(14)), zeros(2), frameHeader())), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf(text("stray"), frameHeader())), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf(bytes({ 0xFF, 0, 0xFF, 0 }), frameHeader())), sizeOf40By30);
}

TEST(KXPictureSize, JPEGWithAFrameHeaderTooShortForItsFieldsIsAbsent)
{
    EXPECT_EQ(
        measured(bytes({ 0xFF, 0xD8, 0xFF, 0xC0, 0, 2, 0xFF, 0xDA, 0, 2, 1, 2, 3 })), std::nullopt);
}

// PNG: ISO/IEC 15948, 5 and 11.2.2.

TEST(KXPictureSize, MeasuresPNGByItsHeaderAlone)
{
    EXPECT_EQ(measured(png(40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(png(0x7FFFFFFF, 1)), (KXSize { 2147483647.0, 1 }));
    Bytes header = png(40, 30);
    header.resize(33);
    EXPECT_EQ(measured(header), sizeOf40By30);
}

TEST(KXPictureSize, PNGWithAnyByteOfItsHeaderChangedIsAbsent)
{
    for (std::size_t i = 0; i < 33; ++i) {
        Bytes changed = png(40, 30);
        changed[i] ^= 0x10;
        EXPECT_EQ(measured(changed), std::nullopt) << i;
    }
}

TEST(KXPictureSize, PNGOfImpossibleSizeIsAbsent)
{
    EXPECT_EQ(measured(png(0, 30)), std::nullopt);
    EXPECT_EQ(measured(png(40, 0)), std::nullopt);
    EXPECT_EQ(measured(png(0x80000000, 30)), std::nullopt);
    EXPECT_EQ(measured(png(40, 0xFFFFFFFF)), std::nullopt);
}

TEST(KXPictureSize, PNGCutOffInItsHeaderIsAbsent)
{
    for (std::size_t length = 0; length < 33; ++length) {
        Bytes cut = png(40, 30);
        cut.resize(length);
        EXPECT_EQ(measured(cut), std::nullopt) << length;
    }
}

// Everything else.

TEST(KXPictureSize, MeasuresGIFByThePictureLibrary)
{
    EXPECT_EQ(measured(gif(40, 30)), sizeOf40By30);
}

TEST(KXPictureSize, FindsNoSizeInWhatIsNoPicture)
{
    EXPECT_EQ(measured({}), std::nullopt);
    EXPECT_EQ(measured(zeros(1)), std::nullopt);
    EXPECT_EQ(measured(zeros(10'000)), std::nullopt);
    EXPECT_EQ(measured(text("This is a letter, not a picture.")), std::nullopt);
    EXPECT_EQ(measured(filled(300, 0xFF)), std::nullopt);
    EXPECT_EQ(measured(text("<svg width='40' height='30'/>")), std::nullopt);
}

TEST(KXPictureSize, LengthLargerThanWhatIsLeftIsAbsent)
{
    for (Bytes const& picture : { jpeg(40, 30), png(40, 30), gif(40, 30) }) {
        auto const data = reader(picture);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length() + 1), std::nullopt);
        data->setOffset(0);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, ~std::uint64_t { 0 }), std::nullopt);
        data->setOffset(0);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), sizeOf40By30);
    }
}

TEST(KXPictureSize, LooksAtTheGivenBytesOnly)
{
    for (Bytes const& picture : { jpeg(40, 30), png(40, 30), gif(40, 30) }) {
        auto const data = reader(join(zeros(7), picture, zeros(7)));
        data->setOffset(7);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, picture.size()), sizeOf40By30);
        data->setOffset(7);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, 9), std::nullopt); // In each of its header.
    }
}

TEST_F(KXPictureSizeLoader, IsNotAskedAboutJPEGAndPNG)
{
    EXPECT_EQ(measured(jpeg(40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(png(40, 30)), sizeOf40By30);
    EXPECT_EQ(measured(jpegOf()), std::nullopt);
    EXPECT_EQ(measured(png(0, 0)), std::nullopt);
    EXPECT_EQ(loader->calls, 0);
}

TEST_F(KXPictureSizeLoader, IsAskedAboutTheFormatsThatItKnowsAndNoOther)
{
    struct Case {
        Bytes head;
        bool isAsked;
    };
    Case const cases[] {
        { text("GIF87a......"), true },
        { text("GIF89a......"), true },
        { text("BM.........."), true },
        { join(text("II*"), zeros(9)), true },
        { join(text("MM"), zeros(1), text("*........")), true },
        { text("RIFF....WEBP"), true },
        { join(u32(24), text("ftypavif")), true },
        { join(u32(24), text("ftypheic")), true },
        { join(u32(24), text("ftypmif1")), true },
        { text("RIFF....WAVE"), false },
        { join(u32(24), text("ftypisom")), false },
        { text("<?xml version"), false },
        { text("<svg xmlns=.."), false },
        { zeros(12), false },
    };
    int expected = 0;
    for (auto const& [head, isAsked] : cases) {
        EXPECT_EQ(measured(head).has_value(), isAsked) << std::string(head.begin(), head.end());
        expected += isAsked;
        EXPECT_EQ(loader->calls, expected);
    }
}

TEST_F(KXPictureSizeLoader, IsGivenThePictureFromItsStart)
{
    auto const data = reader(join(zeros(5), text("BM1234567"), zeros(5)));
    data->setOffset(5);
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, 9), (KXSize { 1, 2 }));
    EXPECT_EQ(loader->calls, 1);
    EXPECT_EQ(loader->lastOffset, 5u);
    EXPECT_EQ(loader->lastLength, 9u);
}

TEST_F(KXPictureSizeLoader, IsNotAskedAboutBytesThatAreNotThere)
{
    EXPECT_EQ(sizeOfEncodedPictureInData(*reader(text("BM1234567")), 10), std::nullopt);
    EXPECT_EQ(loader->calls, 0);
}

TEST_F(KXPictureSizeLoader, IsAskedAsOftenAsTheBudgetGrants)
{
    auto const data = reader(text("BM1234567"));
    for (int i = 1; i <= 100; ++i) {
        data->setOffset(0);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, 9).has_value(), i <= 64) << i;
    }
    EXPECT_EQ(loader->calls, 64);
}
