#include "kxmd/platform/linux/pictures/KXPNGFeedPrivate.h"

#include "support/Builders.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>

using namespace build;

namespace {

struct Fed {
    Bytes bytes;
    bool isWhole { false };
};

/// What a decoder gets of the first `length` bytes of a file.
Fed fedOf(Bytes const& file, std::uint64_t length)
{
    Fed fed;
    auto const data = reader(file);
    auto const keep = [&fed](std::span<std::uint8_t const> piece) {
        fed.bytes.insert(fed.bytes.end(), piece.begin(), piece.end());
        return true;
    };
    fed.isWhole = feedPNGTo(keep, *data, length);
    return fed;
}

Fed fedOf(Bytes const& file) { return fedOf(file, file.size()); }

Bytes signature() { return bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }); }
Bytes header() { return pngChunk("IHDR", join(u32(1), u32(1), bytes({ 8, 0, 0, 0, 0 }))); }
Bytes pixels() { return pngChunk("IDAT", filled(300, 7)); }
Bytes end() { return pngChunk("IEND", {}); }

}

TEST(KXPNGFeed, LeavesOutTheTextsAndFurtherFramesOfAPNG)
{
    Bytes const colours = join(pngChunk("gAMA", u32(45455)), pngChunk("iCCP", filled(200, 1)));
    Bytes file = join(signature(), header(), colours);
    for (char const* type :
        { "tEXt", "zTXt", "iTXt", "eXIf", "fcTL", "fdAT", "tIME", "prVt", "@BCD", "[BCD" })
        file = join(file, pngChunk(type, filled(70'000, 2)));
    file = join(file, pngChunk("PLTE", filled(6, 3)), pngChunk("tRNS", u8(0)), pixels(),
        pngChunk("tEXt", filled(10, 4)), pixels(), end());
    auto const fed = fedOf(file);
    EXPECT_TRUE(fed.isWhole);
    EXPECT_EQ(fed.bytes,
        join(signature(), header(), colours, pngChunk("PLTE", filled(6, 3)),
            pngChunk("tRNS", u8(0)), pixels(), pixels(), end()));
}

TEST(KXPNGFeed, LeavesOutAColourProfileThatIsNone)
{
    Bytes const file
        = join(signature(), header(), pngChunk("iCCP", zeros((1 << 20) + 1)), pixels(), end());
    EXPECT_EQ(fedOf(file).bytes, join(signature(), header(), pixels(), end()));
    Bytes const longest
        = join(signature(), header(), pngChunk("iCCP", zeros(1 << 20)), pixels(), end());
    EXPECT_EQ(fedOf(longest).bytes, longest);
}

TEST(KXPNGFeed, FindsExifThatIsNoLongerThanThatOfAJPEG)
{
    for (std::size_t const length : { 1u, 1u << 16, (1u << 16) + 1 }) {
        Bytes const exif = filled(length, 2);
        Bytes const expected = length <= 1 << 16 ? exif : Bytes();
        for (Bytes const& file :
            { join(signature(), header(), pngChunk("eXIf", exif), pixels(), end()),
                join(signature(), header(), pixels(), pngChunk("eXIf", exif), end()) }) {
            auto const data = reader(join(text("before"), file));
            data->setOffset(6);
            EXPECT_EQ(exifInPNG(*data, file.size()), expected) << length;
            EXPECT_EQ(data->offset(), 6u);
        }
    }
    auto const behind = reader(join(signature(), header(), end(), pngChunk("eXIf", zeros(4))));
    EXPECT_TRUE(exifInPNG(*behind, behind->length()).empty());
}

TEST(KXPNGFeed, StopsAtTheEndOfAPNG)
{
    Bytes const file = join(signature(), header(), pixels(), end());
    auto const fed = fedOf(join(file, pngChunk("IDAT", zeros(9)), filled(100'000, 5)));
    EXPECT_TRUE(fed.isWhole);
    EXPECT_EQ(fed.bytes, file);
}

TEST(KXPNGFeed, GivesWhatIsThereOfACutPNG)
{
    Bytes const file = join(signature(), header(), pngChunk("tEXt", zeros(20)), pixels(), end());
    Bytes const whole = fedOf(file).bytes;
    for (std::size_t length = signature().size(); length < file.size(); ++length) {
        for (auto const& fed :
            { fedOf(Bytes(file.begin(), file.begin() + static_cast<int>(length))),
                fedOf(file, length) }) {
            EXPECT_FALSE(fed.isWhole) << length;
            ASSERT_LE(fed.bytes.size(), std::min(length, whole.size()));
            EXPECT_TRUE(std::equal(fed.bytes.begin(), fed.bytes.end(), whole.begin())) << length;
        }
    }
}

TEST(KXPNGFeed, ChunkThatClaimsMoreThanTheFileHasEndsIt)
{
    for (char const* type : { "IDAT", "tEXt" }) {
        Bytes const claim = join(u32(0xFFFFFFFF), text(type), zeros(50));
        auto const fed = fedOf(join(signature(), header(), claim));
        EXPECT_FALSE(fed.isWhole) << type;
        EXPECT_LE(fed.bytes.size(), (join(signature(), header(), claim).size())) << type;
    }
}

TEST(KXPNGFeed, PictureMayStandBehindOtherBytes)
{
    Bytes const file = join(signature(), header(), pixels(), end());
    for (std::uint64_t const more : { 0u, 1u }) {
        auto const data = reader(join(text("before"), file));
        data->setOffset(6);
        Bytes fed;
        EXPECT_TRUE(feedPNGTo(
            [&fed](std::span<std::uint8_t const> piece) {
                fed.insert(fed.end(), piece.begin(), piece.end());
                return true;
            },
            *data, file.size() + more));
        EXPECT_EQ(fed, file);
    }
}

TEST(KXPNGFeed, StopsWhenNoMoreIsWanted)
{
    auto const data = reader(join(signature(), header(), pixels(), end()));
    int calls = 0;
    auto const refuse = [&calls](std::span<std::uint8_t const>) { return ++calls < 1; };
    EXPECT_FALSE(feedPNGTo(refuse, *data, data->length()));
    EXPECT_EQ(calls, 1);
}
