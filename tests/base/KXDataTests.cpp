#include "kxmd/base/KXData.h"

#include "support/Builders.h"

#include <gmock/gmock.h>

#include <memory>
#include <utility>

using namespace build;
using testing::ElementsAreArray;

namespace {

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

TEST(KXData, IsEmptyOnceItWasMovedFrom)
{
    KXData data(before);
    KXData const taken = std::move(data);
    EXPECT_EQ(data.length(), 0u); // NOLINT: that is what is tested.
    EXPECT_TRUE(data.bytes().empty());
    EXPECT_THAT(taken.bytes(), ElementsAreArray(before));
    data = taken;
    EXPECT_EQ(data.length(), 4u);
}
