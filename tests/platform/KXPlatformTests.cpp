#include "kxmd/platform/KXPlatform.h"

#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <latch>
#include <sys/stat.h>
#include <thread>
#include <utility>

using testing::StartsWith;
using namespace std::chrono_literals;
namespace files = std::filesystem;

TEST(KXPlatform, OfThisMachineIsComplete)
{
    auto const platform = KXPlatform::platformOfThisMachine();
    ASSERT_TRUE(platform);
    EXPECT_TRUE(platform->pictureLoader);
    EXPECT_TRUE(platform->thumbnailService);
    EXPECT_TRUE(platform->iconProvider);
    EXPECT_TRUE(platform->mainQueue);
    EXPECT_TRUE(platform->textDigest);
    EXPECT_TRUE(platform->temporaryFolders);
    EXPECT_TRUE(platform->movieLoader);
    EXPECT_TRUE(platform->memoryPressure);
}

TEST(KXPlatform, SharedOneIsTheSameOnEveryThread)
{
    KXPlatform::setShared(nullptr);
    std::latch start(2);
    KXPlatform::Ref shared[2];
    {
        std::vector<std::jthread> threads;
        for (auto& platform : shared) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                platform = KXPlatform::shared();
            });
        }
    }
    ASSERT_TRUE(shared[0]);
    EXPECT_EQ(shared[0], shared[1]);
    EXPECT_EQ(KXPlatform::shared(), shared[0]);
}

TEST(KXPlatform, HostMaySetTheSharedOne)
{
    auto const chosen = std::make_shared<KXPlatform const>(*KXPlatform::platformOfThisMachine());
    KXPlatform::setShared(chosen);
    EXPECT_EQ(KXPlatform::shared(), chosen);
    KXPlatform::setShared(nullptr);
    EXPECT_TRUE(KXPlatform::shared());
    EXPECT_NE(KXPlatform::shared(), chosen);
}

TEST(KXDecodingLimits, AreThoseThatAreDocumented)
{
    KXDecodingLimits const limits;
    EXPECT_EQ(limits.pictureTime, 2s);
    EXPECT_EQ(limits.movieTime, 8s);
    EXPECT_EQ(limits.memory, 512u * 1024 * 1024);
    EXPECT_FALSE(limits.requiresConfinement);
}

TEST(KXThumbnailService, SquareIsCutOutOfAPictureOfTwiceTheSize)
{
    class Service final : public KXThumbnailService {
    public:
        KXImage::Ref imageForPath(std::string const& path, KXSize size) const override
        {
            _asked = size;
            return path.empty() ? nullptr : pictures::quarters(40, 20);
        }
        mutable KXSize _asked;
    };
    Service const service;
    auto const square = service.squareForPath("a", { 10, 12 });
    EXPECT_EQ(service._asked, (KXSize { 20, 24 }));
    ASSERT_TRUE(square);
    EXPECT_EQ(square->size(), (KXSize { 10, 12 }));
    EXPECT_FALSE(service.squareForPath("", { 10, 12 }));
}

TEST(KXTextDigest, IsSHA1InLowerCaseDigits)
{
    auto const digest = KXPlatform::platformOfThisMachine()->textDigest;
    // The examples of FIPS 180-4, and the empty text.
    EXPECT_EQ(digest->sha1HexString("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(digest->sha1HexString("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
        "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(digest->sha1HexString(std::string(1'000'000, 'a')),
        "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    EXPECT_EQ(digest->sha1HexString(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(KXTextDigest, TakesTextsThatJustFillABlock)
{
    auto const digest = KXPlatform::platformOfThisMachine()->textDigest;
    std::pair<std::size_t, std::string> const digests[] {
        { 55, "c1c8bbdc22796e28c0e15163d20899b65621d65a" },
        { 56, "c2db330f6083854c99d4b5bfb6e8f29f201be699" },
        { 63, "03f09f5b158a7a8cdad920bddc29b81c18a551f5" },
        { 64, "0098ba824b5c16427bd7a1122a5a442a25ec644d" },
        { 119, "ee971065aaa017e0632a8ca6c77bb3bf8b1dfc56" },
        { 120, "f34c1488385346a55709ba056ddd08280dd4c6d6" },
    };
    for (auto const& [length, digits] : digests)
        EXPECT_EQ(digest->sha1HexString(std::string(length, 'a')), digits) << length;
}

TEST(KXTextDigest, HashesZerosToo)
{
    auto const digest = KXPlatform::platformOfThisMachine()->textDigest;
    EXPECT_NE(digest->sha1HexString(std::string_view("a\0b", 3)), digest->sha1HexString("a"));
}

TEST(KXTemporaryFolders, UniqueFoldersAreNewAndOfTheUserAlone)
{
    auto const folders = KXPlatform::platformOfThisMachine()->temporaryFolders;
    std::string const parent = folders->applicationTempFolder();
    EXPECT_THAT(parent, StartsWith("/"));
    EXPECT_EQ(folders->applicationTempFolder(), parent);

    std::string const first = folders->applicationUniqueTempFolderWithPrefix("test");
    std::string const second = folders->applicationUniqueTempFolderWithPrefix("test");
    EXPECT_NE(first, second);
    for (std::string const& path : { first, second }) {
        EXPECT_THAT(path, StartsWith(parent + "/test"));
        EXPECT_TRUE(files::is_empty(path));
        for (std::string const& folder : { path, parent }) {
            struct stat status { };
            ASSERT_EQ(::stat(folder.c_str(), &status), 0);
            EXPECT_TRUE(S_ISDIR(status.st_mode));
            EXPECT_EQ(status.st_mode & 0777u, 0700u) << folder;
        }
        files::remove(path);
    }
}

TEST(KXTemporaryFolders, PrefixThatLeavesTheFolderGivesNone)
{
    auto const folders = KXPlatform::platformOfThisMachine()->temporaryFolders;
    EXPECT_EQ(folders->applicationUniqueTempFolderWithPrefix("missing/prefix"), "");
}
