#include "kxmd/thumbnails/KXMDCacheNamePrivate.h"

#include "kxmd/platform/KXPlatform.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace {

/// Shows the text that would be hashed.
class PlainDigest final : public KXTextDigest {
public:
    std::string sha1HexString(std::string_view text) const override { return std::string(text); }
};

std::string nameOf(std::string_view key, KXSize size)
{
    return cacheNameForKey(key, size, *KXPlatform::platformOfThisMachine()->textDigest);
}

std::string hashedText(std::string_view key, KXSize size)
{
    return cacheNameForKey(key, size, PlainDigest());
}

}

TEST(KXMDCacheName, IsTheSHA1OfKeyAndSize)
{
    // By sha1sum, of "/x/song.mp3_100x100", "/a/b.mp3_128x96", "_0x0" and "Björk_1x1" in UTF-8.
    EXPECT_EQ(nameOf("/x/song.mp3", { 100, 100 }), "59e7a8c475b374a2e2f99a5546aa8484ced70a94");
    EXPECT_EQ(nameOf("/a/b.mp3", { 128, 96 }), "f6fa15ebca29eda10cba6562655169f1d29083c5");
    EXPECT_EQ(nameOf("", { 0, 0 }), "360a507b0822aed6eccd6b63bac03f528edc713b");
    EXPECT_EQ(nameOf("Bj\u00F6rk", { 1, 1 }), "1250cf7ee792e60d2ea8715e3f74ee749d390d2c");
}

TEST(KXMDCacheName, SizesOfTheSameWholePointsShareAName)
{
    EXPECT_EQ(nameOf("/x/song.mp3", { 100.7, 100.2 }), "59e7a8c475b374a2e2f99a5546aa8484ced70a94");
}

TEST(KXMDCacheName, DiffersByKeyWidthAndHeight)
{
    std::set<std::string> const names {
        nameOf("/a", { 16, 32 }),
        nameOf("/b", { 16, 32 }),
        nameOf("/a", { 32, 16 }),
        nameOf("/a", { 16, 16 }),
        nameOf("", { 16, 32 }),
    };
    EXPECT_EQ(names.size(), 5u);
}

TEST(KXMDCacheName, SizesAreCutTowardZero)
{
    EXPECT_EQ(hashedText("/a", { 127.9, 96.999 }), "/a_127x96");
    EXPECT_EQ(hashedText("/a", { 0.5, -0.5 }), "/a_0x0");
    EXPECT_EQ(hashedText("/a", { -1.9, 1e9 }), "/a_-1x1000000000");
}

TEST(KXMDCacheName, KeyIsTakenAsItIs)
{
    EXPECT_EQ(hashedText("", { 1, 2 }), "_1x2");
    EXPECT_EQ(hashedText("Various_Hits", { 1, 2 }), "Various_Hits_1x2");
    EXPECT_EQ(hashedText("/a%i/../b ", { 1, 2 }), "/a%i/../b _1x2");
}

TEST(KXMDCacheName, SizesBeyondAnyScreenHaveANameToo)
{
    double const infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(hashedText("k", { 1e300, -1e300 }), "k_2147483647x-2147483648");
    EXPECT_EQ(hashedText("k", { infinity, -infinity }), "k_2147483647x-2147483648");
    EXPECT_EQ(hashedText("k", { std::numeric_limits<double>::quiet_NaN(), 1 }), "k_0x1");
}
