#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include "support/Builders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace build;
using testing::ElementsAreArray;

namespace {

/// A frame without a file, which lies at `offset`.
KXMDFileMetaMP3Frame::Ref frameAt(std::uint64_t offset, std::uint64_t size)
{
    auto frame = std::make_shared<KXMDFileMetaMP3Frame>();
    frame->setOffset(offset);
    frame->setSize(size);
    frame->setId3Version(KXID3Version3);
    return frame;
}

Bytes const first = textFrame(ID3::v23, "TIT2", "Blue");
Bytes const second = textFrame(ID3::v23, "TALB", "Sky");

Bytes tagOfSize(std::uint32_t size, Bytes const& content)
{
    return tagClaiming(0x0300, 0, size, content);
}

}

TEST(KXMDFileMetaMP3FrameEditing, RemovingTakesTheFrameAndItsSizeOffTheTag)
{
    KXMutableData data(tagOfSize(500, join(first, second)));
    EXPECT_TRUE(frameAt(10, first.size())->removeSelfFromMutableData(data));
    EXPECT_THAT(data.bytes(),
        ElementsAreArray(tagOfSize(static_cast<std::uint32_t>(500 - first.size()), second)));
}

TEST(KXMDFileMetaMP3FrameEditing, InsertingPutsTheFrameInFrontAndItsSizeOnTheTag)
{
    KXMutableData data(tagOfSize(500, second));
    auto const frame = frameAt(10, second.size());
    EXPECT_TRUE(frame->insertBeforeSelfInMutableData(data, first));
    EXPECT_THAT(data.bytes(),
        ElementsAreArray(
            tagOfSize(static_cast<std::uint32_t>(500 + first.size()), join(first, second))));
    EXPECT_EQ(frame->offset(), 10u) << "Frames keep describing the file as it was.";
}

TEST(KXMDFileMetaMP3FrameEditing, FramesBeyondTheEndAreRefusedAndNothingChanges)
{
    Bytes const file = tagOfSize(500, first);
    KXMutableData data(file);
    EXPECT_FALSE(frameAt(10, first.size() + 1)->removeSelfFromMutableData(data));
    EXPECT_FALSE(frameAt(file.size() + 1, 0)->removeSelfFromMutableData(data));
    EXPECT_FALSE(frameAt(10, UINT64_MAX - 5)->removeSelfFromMutableData(data));
    EXPECT_FALSE(frameAt(file.size(), 5)->insertBeforeSelfInMutableData(data, second));
    EXPECT_THAT(data.bytes(), ElementsAreArray(file));
}

TEST(KXMDFileMetaMP3FrameEditing, AnEditIsNotUndoneWhenThereIsNoTagHeader)
{
    KXMutableData data(bytes({ 1, 2, 3, 4 }));
    EXPECT_FALSE(frameAt(1, 2)->removeSelfFromMutableData(data));
    EXPECT_THAT(data.bytes(), ElementsAreArray({ 1, 4 }));
    EXPECT_FALSE(frameAt(1, 1)->insertBeforeSelfInMutableData(data, bytes({ 9 })));
    EXPECT_THAT(data.bytes(), ElementsAreArray({ 1, 9, 4 }));
}

TEST(KXMDFileMetaMP3FrameEditing, TheTagsSizeIsSyncSafeAndWraps)
{
    struct Case {
        std::uint32_t size;
        std::int64_t difference;
        std::uint32_t result;
    };
    constexpr std::uint32_t largest = 0x0FFFFFFF;
    Case const cases[] {
        { 127, 1, 128 }, { 128, -1, 127 }, { 0, -1, largest }, // Bits 28 to 31 have no place.
        { largest, 1, 0 }, { 1000, std::int64_t { 1 } << 32, 1000 }, // In 32 bits.
    };
    for (auto const& [size, difference, result] : cases) {
        KXMutableData data(tagOfSize(size, {}));
        EXPECT_TRUE(frameAt(0, 0)->adjustSizeInMutableData(data, difference));
        EXPECT_THAT(data.bytes(), ElementsAreArray(tagOfSize(result, {})));
    }
}

TEST(KXMDFileMetaMP3FrameEditing, TheTagsSizeNeedsTenBytesAndNothingElse)
{
    for (std::size_t length = 0; length < 10; ++length) {
        KXMutableData data(filled(length, 7));
        EXPECT_FALSE(frameAt(0, 0)->adjustSizeInMutableData(data, 1));
        EXPECT_THAT(data.bytes(), ElementsAreArray(filled(length, 7)));
    }
    KXMutableData data(filled(10, 'x')); // No tag at all.
    EXPECT_TRUE(frameAt(0, 0)->adjustSizeInMutableData(data, 1));
    EXPECT_THAT(data.bytes(), ElementsAreArray(join(filled(9, 'x'), u8('y'))));
}
