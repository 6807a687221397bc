// Holds the answers about ID3v2.4 tags against another program's reading of them.

#include "kxmd/mp3/KXMP3EditSafety.h"

#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <random>
#include <set>

using namespace build;

namespace {

std::uint64_t sizeAt(Bytes const& file, std::size_t place, unsigned bits)
{
    std::uint64_t size = 0;
    for (std::size_t i = place; i < place + 4; ++i)
        size = size << bits | (file[i] & ((1U << bits) - 1));
    return size;
}

/// Reads as other programs do: in the number of bits that makes more frames of the tag.
class OtherReader {
public:
    using Frames = std::multiset<Bytes>;

    explicit OtherReader(Bytes const& file)
        : _file(file)
        , _end(std::min<std::uint64_t>(file.size(), 10 + sizeAt(file, 6, 7)))
    {
    }

    /// All frames, but for covers.
    Frames texts() const
    {
        Frames found = frames();
        std::erase_if(found, [](Bytes const& frame) { return isCover(frame); });
        return found;
    }
    auto covers() const { return std::ranges::count_if(frames(), isCover); }

private:
    static bool isCover(Bytes const& frame)
    {
        return std::ranges::equal(text("APIC"), std::span(frame).first(4));
    }

    Frames frames() const
    {
        Frames const asStandard = framesOfSizesIn(7), asWritten = framesOfSizesIn(8);
        return asWritten.size() > asStandard.size() ? asWritten : asStandard;
    }

    /// Each with its identifier and content, up to what is none.
    Frames framesOfSizesIn(unsigned bits) const
    {
        Frames frames;
        for (std::uint64_t place = 10; place + 10 <= _end && std::isupper(_file[place]);) {
            std::uint64_t const end = place + 10 + sizeAt(_file, place + 4, bits);
            if (end > _end)
                break;
            auto const at = [this](std::uint64_t offset) {
                return _file.begin() + static_cast<std::ptrdiff_t>(offset);
            };
            Bytes frame(at(place), at(place + 4));
            frame.insert(frame.end(), at(place + 10), at(end));
            frames.insert(std::move(frame));
            place = end;
        }
        return frames;
    }

    Bytes const& _file;
    std::uint64_t const _end;
};

/// A frame whose size is written in seven or, wrongly, in eight bits of a byte.
Bytes frameWithSizeIn(int bits, std::string_view identifier, Bytes const& body)
{
    auto const size = static_cast<std::uint32_t>(body.size());
    return join(text(identifier), bits == 7 ? syncSafe(size) : u32(size), zeros(2), body);
}

/// Bytes as in frames of any kind, zeros in a row now and then; seldom long.
template <class Random> Bytes anyBody(Random& random)
{
    Bytes body(1 + random() % (random() % 3 ? 60 : 900));
    for (bool isZero = false; auto& byte : body) {
        isZero = random() % 12 ? isZero : !isZero;
        byte = isZero ? 0 : static_cast<std::uint8_t>(random());
    }
    return body;
}

/// A file of random frames whose sizes are written in `bits`, covers among them.
template <class Random> Bytes anyFile(Random& random, int bits)
{
    constexpr std::array names { "TIT2", "TPE1", "PRIV", "GEOB", "COMM", "APIC", "TXXX", "UFID" };
    Bytes frames;
    for (std::size_t count = 2 + random() % 6; count; --count)
        frames = join(std::move(frames),
            frameWithSizeIn(bits, names[random() % names.size()], anyBody(random)));
    Bytes const padding = zeros(random() % 2 ? 10 + random() % 300 : 0);
    auto const size = static_cast<std::uint32_t>(frames.size() + padding.size());
    // The filler of an encoder looks like the name of a frame.
    return join(tagClaiming(0x0400, 0, size, join(frames, padding)), bytes({ 0xFF, 0xFB }),
        filled(5000, 'U'));
}

constexpr char const* readByUsAlone = "frames of its tag would not be found by other programs";

}

class MP3EditSafetyOthers : public CoverTest {
protected:
    /// A file with the cover that `image` becomes; empty when that cannot be added.
    Bytes withCover(Bytes const& file, KXImage::Ref const& image) const
    {
        auto const data = std::make_shared<KXMutableData>(file);
        return KXMDFileMetaMP3().addAlbumCoverToData(image, data) ? bytesOf(*data) : Bytes();
    }

    std::optional<std::string> reason(Bytes const& file, KXImage::Ref const& image) const
    {
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(meta.parseAbstractData(*reader(file)));
        return KXMP3EditSafety(*reader(file))
            .reasonAgainstAddingAlbumCoverOfSize(meta.albumCoverSizeForImage(image));
    }

    LogCapture const log;
};

TEST_F(MP3EditSafetyOthers, FindAllFramesWhereItIsAllowed)
{
    std::minstd_rand random(1);
    int allowed = 0, refused = 0;
    for (int i = 0; i < 3000; ++i) {
        Bytes const file = anyFile(random, 8);
        auto const image = imageEncodedAs(jpeg(20, 20, 100 + random() % 3000));
        if (reason(file, image)) {
            ++refused;
            continue;
        }
        Bytes const edited = withCover(file, image);
        if (edited.empty())
            continue;
        ++allowed;
        ASSERT_EQ(OtherReader(edited).texts(), OtherReader(file).texts()) << i;
        ASSERT_GE(OtherReader(edited).covers(), 1) << i;
    }
    EXPECT_GT(allowed, 300);
    EXPECT_GT(refused, 300);
}

TEST_F(MP3EditSafetyOthers, FindAllFramesOfTagsAsTheyOughtToBe)
{
    std::minstd_rand random(1);
    int allowed = 0;
    for (int i = 0; i < 3000; ++i) {
        Bytes const file = anyFile(random, 7);
        auto const image = imageEncodedAs(jpeg(20, 20, 100 + random() % 3000));
        ASSERT_EQ(reason(file, image), std::nullopt) << i;
        Bytes const edited = withCover(file, image);
        if (edited.empty()) // It has nothing but covers.
            continue;
        ++allowed;
        ASSERT_EQ(OtherReader(edited).texts(), OtherReader(file).texts()) << i;
        ASSERT_EQ(OtherReader(edited).covers(), 1) << i;
    }
    EXPECT_GT(allowed, 2500);
}

TEST_F(MP3EditSafetyOthers, LastCoverBeforeTheFillerOfAnEncoderMayBeEdited)
{
    Bytes const title = frame(ID3::v24, "TIT2", filled(8, 't'));
    for (std::size_t length = 200; length < 6000; length += 100) {
        Bytes const file
            = join(tag(ID3::v24, join(title, pictureFrame(ID3::v24, jpeg(20, 20, length)))),
                filled(20'000, 'U'));
        EXPECT_EQ(KXMP3EditSafety(*reader(file)).reasonAgainstRemovingAlbumCover(), std::nullopt);
    }
}

TEST_F(MP3EditSafetyOthers, ZerosInAFrameWhoseSizeIsNotSyncSafeAreNoPadding)
{
    Bytes const content = join(filled(50, 'p'), zeros(100), filled(150, 'p')); // 44 in seven bits.
    Bytes const title = frame(ID3::v24, "TIT2", filled(8, 't'));
    for (Bytes const& after : { title, zeros(100), Bytes() }) {
        Bytes const frames
            = join(title, frameWithSizeIn(8, "PRIV", join(zeros(60), content)), after);
        auto const size = static_cast<std::uint32_t>(frames.size());
        Bytes const file = join(tagClaiming(0x0400, 0, size, frames), filled(500, 'U'));
        EXPECT_EQ(KXMP3EditSafety(*reader(file)).reasonAgainstAddingAlbumCoverOfSize(1000),
            readByUsAlone);
    }
}

TEST_F(MP3EditSafetyOthers, FilledUpIdentifierOfVersion2EndsNoTag)
{
    Bytes const large = frame(ID3::v24, "TXXX", filled(200, 'a'));
    Bytes const title = frame(ID3::v24, "TIT2", filled(8, 't'));
    for (char const last : { '\0', ' ' }) {
        Bytes const old = frame(ID3::v24, std::string("TCP") + last, filled(2, '1'));
        Bytes const file = tag(ID3::v24, join(large, old, title));
        EXPECT_EQ(
            KXMP3EditSafety(*reader(file)).reasonAgainstAddingAlbumCoverOfSize(1000), std::nullopt);
    }
}
