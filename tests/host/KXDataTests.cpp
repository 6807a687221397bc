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
