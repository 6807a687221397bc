#include "kxmd/platform/linux/render/KXPictureFeedPrivate.h"

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
    fed.isWhole = feedPictureTo(keep, *data, length);
    return fed;
}

Fed fedOf(Bytes const& file) { return fedOf(file, file.size()); }

/// A reader over a text and zeros after it, which need no memory.
class LongData final : public KXAbstractData {
public:
    LongData(std::string start, std::uint64_t length)
        : _start(std::move(start))
        , _length(length)
    {
    }
    std::uint64_t length() const override { return _length; }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        std::fill_n(target, count, 0);
        if (position == 0)
            std::copy_n(_start.data(), std::min<std::uint64_t>(_start.size(), count), target);
        return count;
    }

    std::string const _start;
    std::uint64_t const _length;
};

Bytes signature() { return bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }); }
Bytes header() { return pngChunk("IHDR", join(u32(1), u32(1), bytes({ 8, 0, 0, 0, 0 }))); }
Bytes pixels() { return pngChunk("IDAT", filled(300, 7)); }
Bytes end() { return pngChunk("IEND", {}); }

Bytes littleEndian(std::uint32_t value) { return join(u8(value & 0xFF), u8(value >> 8)); }

/// The head of a GIF with a table of two colours.
Bytes gifHead()
{
    return join(text("GIF89a"), littleEndian(20), littleEndian(10), bytes({ 0x80, 0, 0 }),
        bytes({ 0, 0, 0, 255, 255, 255 }));
}

/// A frame with a table of as many colours as `packedFields` says.
Bytes gifFrame(int packedFields = 0, std::size_t colours = 0)
{
    return join(bytes({ ',', 0, 0, 0, 0, 20, 0, 10, 0, packedFields }), zeros(3 * colours),
        bytes({ 2, 2, 0x44, 1, 3, 9, ',', ';', 0 }));
}

Bytes gifExtension() { return bytes({ '!', 0xF9, 4, ',', ';', '!', 0, 0 }); }

}

TEST(KXPictureFeed, LeavesOutTheTextsAndFurtherFramesOfAPNG)
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

TEST(KXPictureFeed, LeavesOutAColourProfileThatIsNone)
{
    Bytes const file
        = join(signature(), header(), pngChunk("iCCP", zeros((1 << 20) + 1)), pixels(), end());
    EXPECT_EQ(fedOf(file).bytes, join(signature(), header(), pixels(), end()));
    Bytes const longest
        = join(signature(), header(), pngChunk("iCCP", zeros(1 << 20)), pixels(), end());
    EXPECT_EQ(fedOf(longest).bytes, longest);
}

TEST(KXPictureFeed, StopsAtTheEndOfAPNG)
{
    Bytes const file = join(signature(), header(), pixels(), end());
    auto const fed = fedOf(join(file, pngChunk("IDAT", zeros(9)), filled(100'000, 5)));
    EXPECT_TRUE(fed.isWhole);
    EXPECT_EQ(fed.bytes, file);
}

TEST(KXPictureFeed, GivesWhatIsThereOfACutPNG)
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

TEST(KXPictureFeed, ChunkThatClaimsMoreThanTheFileHasEndsIt)
{
    for (char const* type : { "IDAT", "tEXt" }) {
        Bytes const claim = join(u32(0xFFFFFFFF), text(type), zeros(50));
        auto const fed = fedOf(join(signature(), header(), claim));
        EXPECT_FALSE(fed.isWhole) << type;
        EXPECT_LE(fed.bytes.size(), (join(signature(), header(), claim).size())) << type;
    }
}

TEST(KXPictureFeed, GivesTheFirstFrameOfAGIF)
{
    for (Bytes const& frame : { gifFrame(), gifFrame(0x81, 4), gifFrame(0x07), gifFrame(0x7F),
             join(gifExtension(), gifFrame()),
             join(gifExtension(), gifExtension(), gifFrame(0xC7, 256)) }) {
        Bytes file = join(gifHead(), frame);
        Bytes const expected = join(file, text(";"));
        for (int i = 0; i < 1000; ++i)
            file = join(file, gifExtension(), gifFrame());
        auto const fed = fedOf(join(file, text(";")));
        EXPECT_TRUE(fed.isWhole);
        EXPECT_EQ(fed.bytes, expected);
    }
}

TEST(KXPictureFeed, EndsAGIFThatHasNoEnd)
{
    Bytes const file = join(gifHead(), gifFrame());
    EXPECT_EQ(fedOf(file).bytes, join(file, text(";")));
}

TEST(KXPictureFeed, PictureMayStandBehindOtherBytes)
{
    for (Bytes const& file :
        { join(signature(), header(), pixels(), end()), join(gifHead(), gifFrame(), text(";")) }) {
        for (std::uint64_t const more : { 0u, 1u }) {
            auto const data = reader(join(text("before"), file));
            data->setOffset(6);
            Bytes fed;
            bool const isWhole = feedPictureTo(
                [&fed](std::span<std::uint8_t const> piece) {
                    fed.insert(fed.end(), piece.begin(), piece.end());
                    return true;
                },
                *data, file.size() + more);
            EXPECT_EQ(fed, file);
            EXPECT_EQ(isWhole, !more || file[0] == 'G');
        }
    }
}

TEST(KXPictureFeed, GivesAllOfAGIFWithoutAWholeFrame)
{
    Bytes const file = join(gifHead(), gifExtension(), gifFrame());
    for (std::size_t length = 1; length < file.size(); ++length) {
        Bytes const part(file.begin(), file.begin() + static_cast<int>(length));
        EXPECT_EQ(fedOf(part).bytes, part) << length;
        EXPECT_EQ(fedOf(file, length).bytes, part) << length;
    }
    Bytes const odd = join(gifHead(), text("?"), gifFrame());
    EXPECT_EQ(fedOf(odd).bytes, odd);
}

TEST(KXPictureFeed, GivesAnythingElseAsItIs)
{
    for (Bytes const& file : { filled(200'000, 0xFF), text("GIF"), text("a letter") }) {
        auto const fed = fedOf(file);
        EXPECT_TRUE(fed.isWhole);
        EXPECT_EQ(fed.bytes, file);
        EXPECT_FALSE(fedOf(file, file.size() + 1).isWhole);
    }
}

TEST(KXPictureFeed, GivesUpTo256MebibytesOfWhatHasNoFrames)
{
    constexpr std::uint64_t most = 256 << 20;
    for (std::string const start : { "", "GIF89a" }) {
        for (std::uint64_t const length : { most, most + 1 }) {
            LongData data(start, length);
            std::uint64_t count = 0;
            auto const keep = [&count](std::span<std::uint8_t const> piece) {
                count += piece.size();
                return true;
            };
            bool const isWhole = feedPictureTo(keep, data, length);
            EXPECT_EQ(count, most);
            EXPECT_TRUE(isWhole == (length == most) || !start.empty());
        }
    }
}

TEST(KXPictureFeed, StopsWhenNoMoreIsWanted)
{
    for (Bytes const& file : { filled(200'000, 0xFF), join(signature(), header(), pixels(), end()),
             join(gifHead(), gifFrame()) }) {
        auto const data = reader(file);
        int calls = 0;
        auto const refuse = [&calls](std::span<std::uint8_t const>) { return ++calls < 1; };
        EXPECT_FALSE(feedPictureTo(refuse, *data, file.size()));
        EXPECT_EQ(calls, 1);
    }
}
