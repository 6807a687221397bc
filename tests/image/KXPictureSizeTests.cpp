#include "support/Files.h"
#include "support/PictureHeaders.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

std::vector<Bytes> pictures(std::uint32_t width, std::uint32_t height)
{
    return { jpeg(width, height), png(width, height), gif(width, height), bmp(width, height),
        tiff(width, height), webp(width, height), heif(width, height) };
}

}

TEST(KXPictureSize, MeasuresEveryFormat)
{
    for (Bytes const& picture : pictures(40, 30))
        EXPECT_EQ(measured(picture), sizeOf40By30);
}

TEST(KXPictureSize, SideOfZeroIsAbsentInEveryFormat)
{
    for (Bytes const& picture : pictures(0, 30))
        EXPECT_EQ(measured(picture), std::nullopt);
    for (Bytes const& picture : pictures(40, 0))
        EXPECT_EQ(measured(picture), std::nullopt);
}

TEST(KXPictureSize, FindsNoSizeInWhatIsNoPicture)
{
    EXPECT_EQ(measured({}), std::nullopt);
    EXPECT_EQ(measured(zeros(1)), std::nullopt);
    EXPECT_EQ(measured(zeros(10'000)), std::nullopt);
    EXPECT_EQ(measured(text("This is a letter, not a picture.")), std::nullopt);
    EXPECT_EQ(measured(filled(300, 0xFF)), std::nullopt);
    EXPECT_EQ(measured(text("<svg width='40' height='30'/>")), std::nullopt);
    EXPECT_EQ(measured(join(u32(24), text("ftypisom"), zeros(100))), std::nullopt);
}

TEST(KXPictureSize, LengthLargerThanWhatIsLeftIsAbsent)
{
    for (Bytes const& picture : pictures(40, 30)) {
        auto const data = reader(picture);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length() + 1), std::nullopt);
        data->setOffset(0);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, ~std::uint64_t { 0 }), std::nullopt);
        data->setOffset(0);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), sizeOf40By30);
        data->setOffset(data->length() + 1);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, 0), std::nullopt);
    }
}

TEST(KXPictureSize, LooksAtTheGivenBytesOnly)
{
    for (Bytes const& picture : pictures(40, 30)) {
        auto const data = reader(join(zeros(7), picture, zeros(7)));
        data->setOffset(7);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, picture.size()), sizeOf40By30);
        data->setOffset(7);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, 9), std::nullopt); // In each of its header.
    }
}

TEST(KXPictureSize, EveryTruncationIsAbsentOrOfTheSameSize)
{
    for (Bytes const& picture : pictures(40, 30)) {
        for (std::size_t length = 0; length < picture.size(); ++length) {
            auto const size = measured(
                { picture.begin(), picture.begin() + static_cast<std::ptrdiff_t>(length) });
            EXPECT_EQ(size.value_or(sizeOf40By30), sizeOf40By30);
        }
    }
}

TEST(KXPictureSize, OnlyWalksDrawOnTheBudget)
{
    for (Bytes const& picture : { png(40, 30), gif(40, 30), bmp(40, 30), webp(40, 30) })
        EXPECT_EQ(measuredInSteps(picture, 0), sizeOf40By30);
    for (Bytes const& picture : { jpeg(40, 30), tiff(40, 30), heif(40, 30) })
        EXPECT_EQ(measuredInSteps(picture, 0), std::nullopt);
}

TEST(KXPictureSize, IsTheSameInAFile)
{
    TemporaryFolder const folder;
    for (Bytes const& picture : pictures(40, 30)) {
        auto const data = KXAbstractData::abstractDataWithPath(folder.write("picture", picture));
        ASSERT_TRUE(data);
        EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), sizeOf40By30);
    }
}
