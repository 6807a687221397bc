#include "kxmd/thumbnails/KXMDMemoryCache.h"

#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

using namespace pictures;

namespace {

/// A picture of so many bytes, a multiple of four.
KXImage::Ref imageOfBytes(std::size_t bytes) { return solid(bytes / 4, 1, white); }

}

TEST(KXMDMemoryCache, KeepsPicturesByName)
{
    KXMDMemoryCache cache(100);
    auto const first = imageOfBytes(40), second = imageOfBytes(60);
    EXPECT_FALSE(cache.imageForName("first"));
    cache.setImageForName(first, "first");
    cache.setImageForName(second, "second");
    EXPECT_EQ(cache.imageForName("first"), first);
    EXPECT_EQ(cache.imageForName("second"), second);
    EXPECT_FALSE(cache.imageForName("First"));
    EXPECT_EQ(cache.byteCount(), 100u);
}

TEST(KXMDMemoryCache, LaterPictureTakesThePlaceOfTheEarlier)
{
    KXMDMemoryCache cache(100);
    auto const other = imageOfBytes(20), later = imageOfBytes(80);
    cache.setImageForName(other, "other");
    cache.setImageForName(imageOfBytes(40), "name");
    cache.setImageForName(later, "name");
    EXPECT_EQ(cache.imageForName("name"), later);
    EXPECT_EQ(cache.imageForName("other"), other); // The earlier one made room enough.
    EXPECT_EQ(cache.byteCount(), 100u);
}

TEST(KXMDMemoryCache, LeastRecentlyUsedMakesRoom)
{
    KXMDMemoryCache cache(120);
    for (char const* name : { "a", "b", "c" })
        cache.setImageForName(imageOfBytes(40), name);
    EXPECT_TRUE(cache.imageForName("a")); // Used again: now b is the oldest.
    cache.setImageForName(imageOfBytes(40), "d");
    EXPECT_FALSE(cache.imageForName("b"));
    for (char const* name : { "c", "a", "d" })
        EXPECT_TRUE(cache.imageForName(name)) << name;
    cache.setImageForName(imageOfBytes(44), "e"); // One makes too little room.
    EXPECT_FALSE(cache.imageForName("c"));
    EXPECT_FALSE(cache.imageForName("a"));
    EXPECT_TRUE(cache.imageForName("d"));
    EXPECT_EQ(cache.byteCount(), 84u);
}

TEST(KXMDMemoryCache, StoringAgainCountsAsUse)
{
    KXMDMemoryCache cache(80);
    cache.setImageForName(imageOfBytes(40), "a");
    cache.setImageForName(imageOfBytes(40), "b");
    cache.setImageForName(imageOfBytes(40), "a");
    cache.setImageForName(imageOfBytes(40), "c");
    EXPECT_TRUE(cache.imageForName("a"));
    EXPECT_FALSE(cache.imageForName("b"));
}

TEST(KXMDMemoryCache, PictureLargerThanTheBudgetIsNotKeptAndEvictsNoOther)
{
    KXMDMemoryCache cache(100);
    cache.setImageForName(imageOfBytes(40), "other");
    cache.setImageForName(imageOfBytes(40), "name");
    cache.setImageForName(imageOfBytes(104), "large");
    EXPECT_FALSE(cache.imageForName("large"));
    EXPECT_TRUE(cache.imageForName("name"));
    cache.setImageForName(imageOfBytes(104), "name");
    EXPECT_FALSE(cache.imageForName("name")) << "an old picture under a new one's name";
    EXPECT_TRUE(cache.imageForName("other"));
    EXPECT_EQ(cache.byteCount(), 40u);
    cache.setImageForName(imageOfBytes(100), "whole");
    EXPECT_TRUE(cache.imageForName("whole"));
    EXPECT_EQ(cache.byteCount(), 100u);
}

TEST(KXMDMemoryCache, WithoutABudgetKeepsNothing)
{
    KXMDMemoryCache cache(0);
    cache.setImageForName(imageOfBytes(4), "name");
    EXPECT_FALSE(cache.imageForName("name"));
    EXPECT_EQ(cache.byteCount(), 0u);
}

TEST(KXMDMemoryCache, EvictsOnRequest)
{
    KXMDMemoryCache cache(120);
    for (char const* name : { "a", "b", "c" })
        cache.setImageForName(imageOfBytes(40), name);
    cache.evictToByteCount(120);
    EXPECT_EQ(cache.byteCount(), 120u);
    cache.evictToByteCount(79);
    EXPECT_EQ(cache.byteCount(), 40u);
    EXPECT_TRUE(cache.imageForName("c"));
    cache.evictToByteCount(0);
    EXPECT_EQ(cache.byteCount(), 0u);
    EXPECT_FALSE(cache.imageForName("c"));
    cache.setImageForName(imageOfBytes(40), "d");
    EXPECT_TRUE(cache.imageForName("d"));
}

TEST(KXMDMemoryCache, LetsGoOfWhatItEvicts)
{
    KXMDMemoryCache cache(40);
    auto image = imageOfBytes(40);
    std::weak_ptr<KXImage const> const alive = image;
    cache.setImageForName(std::move(image), "a");
    EXPECT_FALSE(alive.expired());
    cache.setImageForName(imageOfBytes(40), "b");
    EXPECT_TRUE(alive.expired());
}

TEST(KXMDMemoryCache, MayBeMoved)
{
    KXMDMemoryCache cache(80);
    cache.setImageForName(imageOfBytes(40), "a name too long to be kept in place");
    KXMDMemoryCache moved(std::move(cache));
    EXPECT_TRUE(moved.imageForName("a name too long to be kept in place"));
    moved.setImageForName(imageOfBytes(80), "b");
    EXPECT_FALSE(moved.imageForName("a name too long to be kept in place"));
    EXPECT_EQ(moved.byteCount(), 80u);
}

TEST(KXMDMemoryCache, CountsItsBytesThroughALongLife)
{
    constexpr std::size_t budget = 4000;
    KXMDMemoryCache cache(budget);
    std::mt19937 random(1);
    auto const nameOf = [](std::size_t number) { return "picture " + std::to_string(number); };
    for (int i = 0; i < 5000; ++i) {
        cache.setImageForName(imageOfBytes(4 + random() % 200 * 4), nameOf(random() % 40));
        ASSERT_LE(cache.byteCount(), budget);
        (void)cache.imageForName(nameOf(random() % 40));
    }
    std::size_t held = 0;
    for (std::size_t number = 0; number < 40; ++number) {
        auto const image = cache.imageForName(nameOf(number));
        held += image ? image->pixels().size() : 0;
    }
    EXPECT_EQ(held, cache.byteCount());
    EXPECT_GT(held, budget / 2);
}

TEST(KXMDMemoryCache, HandsOutWhatHadToGo)
{
    KXMDMemoryCache cache(120);
    cache.setImageForName(imageOfBytes(40), "a");
    cache.setImageForName(imageOfBytes(40), "b");
    auto const replaced = cache.setImageForName(imageOfBytes(80), "a"),
               all = cache.evictToByteCount(0);
    ASSERT_EQ(replaced.size(), 1u);
    EXPECT_EQ(replaced.front().name, "a");
    EXPECT_EQ(replaced.front().image->pixels().size(), 40u);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all.front().name, "b"); // The least recently used one first.
    EXPECT_EQ(cache.byteCount(), 0u);
}
