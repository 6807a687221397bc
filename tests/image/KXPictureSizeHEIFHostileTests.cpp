// Files of HEIF made to exhaust a walk, or to lead it astray.

#include "support/HEIF.h"
#include "support/PictureSizes.h"

#include <algorithm>

using namespace build;

namespace {

Size measuredIn(Bytes const& propertyBoxes) { return measured(heifAround(propertyBoxes)); }

/// Endless zeros with some pieces among them, which counts the bytes that it is asked for.
class SparseData final : public KXAbstractData {
public:
    using Piece = std::pair<std::uint64_t, Bytes>;

    SparseData(std::uint64_t length, std::vector<Piece> pieces)
        : _length(length)
        , _pieces(std::move(pieces))
    {
    }

    std::uint64_t length() const override { return _length; }
    std::uint64_t bytesRead() const { return _bytesRead; }

private:
    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) override
    {
        _bytesHere.resize(count);
        (void)copyBytesAt(position, _bytesHere.data(), count);
        return _bytesHere.data();
    }

    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        for (std::uint64_t i = 0; i < count; ++i)
            target[i] = byteAt(position + i);
        _bytesRead += count;
        return count;
    }

    std::uint8_t byteAt(std::uint64_t position) const
    {
        for (auto const& [start, bytes] : _pieces) {
            if (position - start < bytes.size())
                return bytes[static_cast<std::size_t>(position - start)];
        }
        return 0;
    }

    std::uint64_t const _length;
    std::vector<Piece> const _pieces;
    Bytes _bytesHere;
    std::uint64_t _bytesRead { 0 };
};

}

TEST(KXPictureSizeHEIFHostile, BoxOfWrongSizeIsAbsent)
{
    Bytes const metadata = heifMetadata(40, 30);
    EXPECT_EQ(measured(join(heicType(), metadata)), sizeOf40By30);
    auto const length = static_cast<std::uint32_t>(metadata.size());
    for (std::uint32_t const size : { 0u, 2u, 7u, 8u, 12u, length - 1, length + 1, 0xFFFFFFFFu }) {
        Bytes changed = metadata;
        Bytes const claim = u32(size);
        std::ranges::copy(claim, changed.begin());
        EXPECT_EQ(measured(join(heicType(), changed)), std::nullopt) << size;
    }
}

TEST(KXPictureSizeHEIFHostile, WideSizesAreRead)
{
    Bytes const boxes = join(
        u32(0), pitm(1), atom("iprp", atom("ipco", ispe(40, 30)), ipma(association(1, { 1 }))));
    auto const measuredWide = [&boxes](std::uint64_t size) {
        return measured(join(heicType(), u32(1), text("meta"), u64(size), boxes));
    };
    EXPECT_EQ(measuredWide(boxes.size() + 16), sizeOf40By30);
    for (std::uint64_t const size :
        { std::uint64_t { 0 }, std::uint64_t { 15 }, std::uint64_t { boxes.size() + 15 },
            std::uint64_t { boxes.size() + 17 }, std::uint64_t { 1 } << 32 | (boxes.size() + 16),
            ~std::uint64_t { 0 }, ~std::uint64_t { 0 } - heicType().size() + 1 })
        EXPECT_EQ(measuredWide(size), std::nullopt) << size;
}

TEST(KXPictureSizeHEIFHostile, BoxesEndWithTheBoxAroundThem)
{
    // The size reaches into what follows the container.
    Bytes const boxes = join(atom("ipco", atomClaiming(20, "ispe", u32(0), u32(40))), u32(30),
        ipma(association(1, { 1 })));
    EXPECT_EQ(measuredIn(boxes), std::nullopt);
    // The associations reach past their box.
    EXPECT_EQ(measuredIn(join(twoSizes(), atom("ipma", u32(0), u32(1), u16(1), u8(2), u8(1)))),
        std::nullopt);
}

TEST(KXPictureSizeHEIFHostile, MetadataMayFollowAnyAmountOfMedia)
{
    constexpr std::uint64_t mediaSize = std::uint64_t { 1 } << 40;
    Bytes const head = join(heicType(), u32(1), text("mdat"), u64(mediaSize));
    Bytes const metadata = heifMetadata(40, 30);
    std::uint64_t const start = heicType().size() + mediaSize;
    SparseData data(start + metadata.size(), { { 0, head }, { start, metadata } });
    EXPECT_EQ(sizeOfEncodedPictureInData(data, data.length()), sizeOf40By30);
    EXPECT_LT(data.bytesRead(), 300u);
}

TEST(KXPictureSizeHEIFHostile, AssociationBoxThatClaimsBillionsEndsWithItsBytes)
{
    auto const measuredClaim = [](std::uint32_t versionAndFlags, Bytes const& entries) {
        return measuredIn(
            join(twoSizes(), atom("ipma", u32(versionAndFlags), u32(0xFFFFFFFF), entries)));
    };
    EXPECT_EQ(measuredClaim(0, association(1, { 1 })), sizeOf40By30);
    EXPECT_EQ(measuredClaim(0, association(2, { 1 })), std::nullopt);
    EXPECT_EQ(measuredClaim(0, zeros(3'000'000)), std::nullopt);
    EXPECT_EQ(measuredClaim(0, filled(3'000'000, 0xFF)), std::nullopt);
    EXPECT_EQ(measuredClaim(1 << 24 | 1, zeros(3'000'000)), std::nullopt);
    EXPECT_EQ(measuredIn(join(twoSizes(), atom("ipma", u32(0), u32(0)), association(1, { 1 }))),
        std::nullopt);
}

TEST(KXPictureSizeHEIFHostile, EntriesThatAreNotThereTakeNoSteps)
{
    auto const data = reader(
        heifAround(join(twoSizes(), atom("ipma", u32(0), u32(0xFFFFFFFF), association(2, { 1 })))));
    auto const before = data->budget().stepsLeft();
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), std::nullopt);
    EXPECT_LT(before - data->budget().stepsLeft(), 20u);
}

TEST(KXPictureSizeHEIFHostile, EntriesAfterTheLastThatIsClaimedAreNotRead)
{
    EXPECT_EQ(measuredIn(join(twoSizes(),
                  atom("ipma", u32(0), u32(1), association(2, { 2 }), association(1, { 1 })))),
        std::nullopt);
}

TEST(KXPictureSizeHEIFHostile, NestedBoxesAreNotEntered)
{
    // A million levels.
    Bytes nested;
    constexpr std::uint32_t levels = 1'000'000;
    nested.reserve(levels * 8);
    for (std::uint32_t level = levels; level; --level) {
        for (Bytes const& piece : { u32(level * 8), text("meta") })
            nested.insert(nested.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(measured(join(heicType(), nested)), std::nullopt);
    EXPECT_EQ(measured(join(heicType(), atom("free", nested),
                  pictureMetadata(atom("free", nested), pitm(1),
                      atom("iprp", atom("ipco", ispe(40, 30)), ipma(association(1, { 1 })))))),
        sizeOf40By30);
}

TEST(KXPictureSizeHEIFHostile, EveryBoxAndEntryTakesAStep)
{
    // Type and metadata; handler; handler and primary item; these and the properties; container;
    // container and associations; their entry; the property.
    expectSteps(heif(40, 30), 2 + 1 + 2 + 3 + 1 + 2 + 1 + 1);
    // Three properties, found one by one; two entries more.
    expectSteps(
        join(heicType(),
            pictureMetadata(pitm(1),
                atom("iprp", atom("ipco", ispe(40, 30), irot(1), irot(1)),
                    ipma(association(2, { 1 }), association(3, {}), association(1, { 1, 2, 3 }))))),
        2 + 1 + 2 + 3 + 1 + 2 + 3 + (1 + 2 + 3));
}

TEST(KXPictureSizeHEIFHostile, PropertiesThatAreSoughtAgainAndAgainAreFoundWithinTheBudget)
{
    // 255 associations with the last of 32,767 properties.
    std::vector<Bytes> properties(0x7FFF, atom("free"));
    properties.front() = ispe(40, 30);
    Bytes numbers = u16(1);
    for (int i = 1; i < 255; ++i)
        numbers = join(std::move(numbers), u16(0x7FFF));
    Bytes const picture = join(heicType(),
        pictureMetadata(pitm(1),
            atom("iprp", atom("ipco", concatenated(properties)),
                atom("ipma", u32(1), u32(1), u16(1), u8(255), numbers))));
    auto const data = reader(picture);
    EXPECT_EQ(sizeOfEncodedPictureInData(*data, data->length()), std::nullopt);
    EXPECT_EQ(data->budget().stepsLeft(), 0u);
}
