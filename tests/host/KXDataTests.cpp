#include "kxmd/host/KXData.h"

#include "support/Builders.h"

#include <gmock/gmock.h>

#include <limits>

using namespace build;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr std::uint64_t farthest = std::numeric_limits<std::uint64_t>::max();

Bytes const before = bytes({ 1, 2, 3, 4 });

}

TEST(KXData, IsEmptyAtFirst)
{
    EXPECT_EQ(KXData().length(), 0u);
    EXPECT_TRUE(KXData().bytes().empty());
}

TEST(KXData, CopiesShareTheBytes)
{
    KXData const data(before);
    KXData const copy = data;
    EXPECT_EQ(copy.bytes().data(), data.bytes().data());
    EXPECT_EQ(copy.length(), 4u);
}

TEST(KXData, CopyOutlivesTheOriginal)
{
    auto original = std::make_unique<KXData>(before);
    KXData const copy = *original;
    original.reset();
    EXPECT_THAT(copy.bytes(), ElementsAreArray(before));
}

TEST(KXMutableData, InsertsAnywhereUpToTheEnd)
{
    KXMutableData data(before);
    EXPECT_TRUE(data.insertBytesAt(bytes({ 9 }), 0));
    EXPECT_TRUE(data.insertBytesAt(bytes({ 8, 7 }), 3));
    EXPECT_TRUE(data.insertBytesAt(bytes({ 6 }), 7));
    EXPECT_TRUE(data.insertBytesAt({}, 8));
    EXPECT_THAT(data.bytes(), ElementsAre(9, 1, 2, 8, 7, 3, 4, 6));
}

TEST(KXMutableData, RemovesWhatIsThere)
{
    KXMutableData data(before);
    EXPECT_TRUE(data.removeBytesAt(1, 2));
    EXPECT_THAT(data.bytes(), ElementsAre(1, 4));
    EXPECT_TRUE(data.removeBytesAt(2, 0));
    EXPECT_TRUE(data.removeBytesAt(0, 2));
    EXPECT_EQ(data.length(), 0u);
}

TEST(KXMutableData, ReplacesInPlace)
{
    KXMutableData data(before);
    EXPECT_TRUE(data.replaceBytesAt(2, bytes({ 8, 9 })));
    EXPECT_TRUE(data.replaceBytesAt(4, {}));
    EXPECT_THAT(data.bytes(), ElementsAre(1, 2, 8, 9));
}

TEST(KXMutableData, RefusesEditsOutsideOfItAndStaysAsItWas)
{
    KXMutableData data(before);
    for (std::uint64_t const position : { std::uint64_t { 5 }, farthest }) {
        SCOPED_TRACE(position);
        EXPECT_FALSE(data.insertBytesAt(bytes({ 9 }), position));
        EXPECT_FALSE(data.insertBytesAt({}, position));
        EXPECT_FALSE(data.removeBytesAt(position, 0));
        EXPECT_FALSE(data.removeBytesAt(position, 1));
        EXPECT_FALSE(data.replaceBytesAt(position, {}));
    }
    EXPECT_FALSE(data.removeBytesAt(4, 1));
    EXPECT_FALSE(data.removeBytesAt(1, 4));
    EXPECT_FALSE(data.removeBytesAt(1, farthest)); // Their sum wraps to 0.
    EXPECT_FALSE(data.replaceBytesAt(3, bytes({ 8, 9 })));
    EXPECT_THAT(data.bytes(), ElementsAreArray(before));
}

TEST(KXMutableData, RemovesRangesInOnePass)
{
    KXMutableData data(bytes({ 0, 1, 2, 3, 4, 5, 6, 7 }));
    KXMutableData::Range const ranges[] { { 0, 1 }, { 3, 0 }, { 3, 2 }, { 7, 1 } };
    EXPECT_TRUE(data.removeRanges(ranges));
    EXPECT_THAT(data.bytes(), ElementsAre(1, 2, 5, 6));
    EXPECT_TRUE(data.removeRanges({}));
    EXPECT_EQ(data.length(), 4u);
}

TEST(KXMutableData, RefusesRangesThatOverlapOrLieOutside)
{
    using Range = KXMutableData::Range;
    KXMutableData data(before);
    for (auto const& ranges :
        { std::vector<Range> { { 0, 2 }, { 1, 1 } }, std::vector<Range> { { 2, 1 }, { 0, 1 } },
            std::vector<Range> { { 3, 2 } }, std::vector<Range> { { 0, 1 }, { 1, farthest } } }) {
        EXPECT_FALSE(data.removeRanges(ranges));
        EXPECT_THAT(data.bytes(), ElementsAreArray(before));
    }
}

TEST(KXMutableData, ReadsAndWritesNumbersWhereTheyAreWhollyThere)
{
    KXMutableData data(bytes({ 1, 2, 3, 4, 5 }));
    std::uint32_t value = 9;
    EXPECT_TRUE(data.readUInt32ToAt(value, 1));
    EXPECT_EQ(value, 0x02030405u);
    EXPECT_TRUE(data.replaceUInt32AtWith(0, 0x0A0B0C0D));
    for (std::uint64_t const position : { std::uint64_t { 2 }, std::uint64_t { 5 }, farthest }) {
        EXPECT_FALSE(data.readUInt32ToAt(value, position));
        EXPECT_EQ(value, 0u);
        EXPECT_FALSE(data.replaceUInt32AtWith(position, 7));
    }
    EXPECT_THAT(data.bytes(), ElementsAre(0x0A, 0x0B, 0x0C, 0x0D, 5));
}
