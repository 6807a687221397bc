#include "kxmd/base/KXMutableData.h"

#include "kxmd/base/KXMutableAbstractData.h"
#include "support/Builders.h"
#include "support/RecordingData.h"

#include <gmock/gmock.h>

#include <limits>
#include <random>

using namespace build;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr std::uint64_t farthest = std::numeric_limits<std::uint64_t>::max();

Bytes const before = bytes({ 1, 2, 3, 4 });

std::uint64_t bytesRead(RecordingData const& source)
{
    std::uint64_t sum = 0;
    for (auto const& read : source.reads())
        sum += read.count;
    return sum;
}

/// A file that was cut off since it was opened.
class CutOffData final : public KXAbstractData {
public:
    CutOffData(std::uint64_t length, std::uint64_t readable)
        : _length(length)
        , _readable(readable)
    {
    }

    std::uint64_t length() const override { return _length; }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }

    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        auto const end = std::min(position + count, _readable);
        std::uint64_t const copied = end - std::min(end, position);
        std::fill_n(target, copied, std::uint8_t { 9 });
        return copied;
    }

    std::uint64_t const _length;
    std::uint64_t const _readable;
};

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

namespace {

/// Makes the same random edits to a buffer and to a plain vector.
class RandomEdits {
public:
    RandomEdits(std::uint32_t seed, KXMutableData& data, Bytes expected)
        : _random(seed)
        , _data(data)
        , _expected(std::move(expected))
    {
        for (std::uint64_t i = 0; i < _expected.size(); ++i)
            _origins.push_back(i);
    }

    void edit()
    {
        switch (below(5)) {
        case 0:
            return insert(filled(1 + below(20), static_cast<std::uint8_t>(below(256))));
        case 1:
            return insertUnknown(below(20));
        case 2:
            return remove(below(12));
        case 3:
            return removeRanges();
        default:
            return overwrite(below(12));
        }
    }

    void expectEqual()
    {
        ASSERT_EQ(_data.length(), _expected.size());
        Bytes read(_expected.size());
        ASSERT_TRUE(_data.readBytesToAt(read.data(), read.size(), 0));
        ASSERT_THAT(read, ElementsAreArray(_expected));
        expectKept();
    }

    Bytes const& expected() const { return _expected; }

private:
    static constexpr std::uint64_t inserted = farthest;

    std::size_t below(std::size_t limit) { return _random() % limit; }
    std::size_t position() { return below(_expected.size() + 1); }

    template <class List, class... Arguments>
    static void insertInto(List& list, std::size_t position, Arguments... arguments)
    {
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(position), arguments...);
    }
    template <class List> static void removeFrom(List& list, std::size_t first, std::size_t count)
    {
        auto const begin = list.begin() + static_cast<std::ptrdiff_t>(first);
        list.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
    }

    void insert(Bytes const& bytes)
    {
        auto const at = position();
        EXPECT_TRUE(_data.insertBytesAt(bytes, at));
        insertInto(_expected, at, bytes.begin(), bytes.end());
        insertInto(_origins, at, bytes.size(), inserted);
    }

    void insertUnknown(std::size_t count)
    {
        auto const at = position();
        EXPECT_TRUE(_data.insertUnknownBytesAt(count, at));
        insertInto(_expected, at, count, std::uint8_t { 0xFF });
        insertInto(_origins, at, count, inserted);
    }

    void remove(std::size_t count)
    {
        auto const at = position();
        count = std::min(count, _expected.size() - at);
        EXPECT_TRUE(_data.removeBytesAt(at, count));
        removeFrom(_expected, at, count);
        removeFrom(_origins, at, count);
    }

    void removeRanges()
    {
        std::vector<KXMutableData::Range> ranges;
        for (std::size_t at = below(8); at < _expected.size(); at += below(8)) {
            auto const count = std::min(below(5), _expected.size() - at);
            ranges.push_back({ at, count });
            at += count;
        }
        EXPECT_TRUE(_data.removeRanges(ranges));
        for (auto range = ranges.rbegin(); range != ranges.rend(); ++range) {
            removeFrom(_expected, range->position, range->length);
            removeFrom(_origins, range->position, range->length);
        }
    }

    void overwrite(std::size_t count)
    {
        auto const at = position();
        Bytes const bytes = filled(std::min(count, _expected.size() - at), 0xEE);
        if (_data.replaceBytesAt(at, bytes))
            std::copy(
                bytes.begin(), bytes.end(), _expected.begin() + static_cast<std::ptrdiff_t>(at));
        else // Not all of them are known; and then none is overwritten.
            EXPECT_THAT(_expected, testing::Contains(0xFF));
    }

    void expectKept() const
    {
        std::vector<std::uint64_t> origins(_expected.size(), inserted);
        std::uint64_t end = 0;
        for (auto const& [origin, position, length] : _data.keptBytes()) {
            ASSERT_GE(position, end);
            end = position + length;
            ASSERT_LE(end, origins.size());
            for (std::uint64_t i = 0; i < length; ++i)
                origins[position + i] = origin + i;
        }
        ASSERT_EQ(origins, _origins);
    }

    std::mt19937 _random;
    KXMutableData& _data;
    Bytes _expected;
    std::vector<std::uint64_t> _origins;
};

}

TEST(KXMutableData, RandomEditsGiveWhatAVectorGives)
{
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        Bytes bytes;
        for (int i = 0; i < 100; ++i)
            bytes.push_back(static_cast<std::uint8_t>(i));
        Bytes roomy = bytes;
        roomy.reserve(seed % 2 ? 5000 : 0); // Put into one row where it is, or in a new one.
        KXMutableData data(std::move(roomy));
        RandomEdits edits(seed, data, bytes);
        for (std::uint32_t i = 0; i < 60; ++i) {
            edits.edit();
            ASSERT_NO_FATAL_FAILURE(edits.expectEqual()) << i;
            if (i % 7 == seed % 7) {
                ASSERT_THAT(data.bytes(), ElementsAreArray(edits.expected())) << i;
                ASSERT_NO_FATAL_FAILURE(edits.expectEqual()) << i;
            }
        }
    }
}

TEST(KXMutableData, RandomEditsOfASourceGiveWhatAVectorGives)
{
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        Bytes const bytes = filled(200, 7);
        KXMutableData data(reader(bytes));
        RandomEdits edits(seed, data, bytes);
        for (std::uint32_t i = 0; i < 60; ++i) {
            edits.edit();
            ASSERT_NO_FATAL_FAILURE(edits.expectEqual()) << i;
        }
        ASSERT_THAT(data.bytes(), ElementsAreArray(edits.expected()));
        ASSERT_NO_FATAL_FAILURE(edits.expectEqual());
    }
}

TEST(KXMutableData, OneRowIsMadeWithoutASecondBufferWhereThereIsRoom)
{
    Bytes roomy = filled(1000, 1);
    roomy.reserve(2000);
    auto const* const row = roomy.data();
    KXMutableData data(std::move(roomy));
    EXPECT_TRUE(data.insertBytesAt(filled(900, 2), 500));
    EXPECT_TRUE(data.removeBytesAt(0, 10));
    EXPECT_EQ(data.bytes().data(), row);
    EXPECT_THAT(
        data.bytes(), ElementsAreArray(join(filled(490, 1), filled(900, 2), filled(500, 1))));
    EXPECT_EQ(data.bytes().data(), row);
    EXPECT_TRUE(data.insertBytesAt(filled(200, 3), 0));
    EXPECT_NE(data.bytes().data(), row);
    EXPECT_EQ(data.bytes().size(), 2090u);
}

TEST(KXMutableData, OneRowMayTakeAllTheRoomThereIs)
{
    Bytes roomy = filled(10, 1);
    roomy.reserve(50);
    auto const room = roomy.capacity();
    auto const* const row = roomy.data();
    KXMutableData data(std::move(roomy));
    EXPECT_TRUE(data.insertUnknownBytesAt(room - 10, 5));
    EXPECT_EQ(data.bytes().data(), row);
}

TEST(KXMutableData, OneRowIsMadeOnlyOnce)
{
    KXMutableData data(reader(filled(100, 1)));
    EXPECT_TRUE(data.insertBytesAt(filled(10, 2), 50)); // Three pieces.
    auto const* const row = data.bytes().data();
    Bytes const keepsItsMemory = filled(110, 3);
    EXPECT_EQ(data.bytes().data(), row);
}

TEST(KXMutableData, BytesAreGivenInPlaceWhereOnePieceInMemoryHasThem)
{
    KXMutableData data(bytes({ 1, 2, 3, 4 }));
    EXPECT_TRUE(data.insertBytesAt(bytes({ 8, 9 }), 2));
    auto const inPlace = [&data](std::uint64_t position, std::uint64_t length) {
        auto const* const found = data.bytesInPlaceAt(position, length);
        return found ? std::optional(Bytes(found, found + length)) : std::nullopt;
    };
    EXPECT_EQ(inPlace(0, 2), bytes({ 1, 2 }));
    EXPECT_EQ(inPlace(2, 2), bytes({ 8, 9 }));
    EXPECT_EQ(inPlace(5, 1), bytes({ 4 }));
    EXPECT_EQ(inPlace(1, 2), std::nullopt); // Across an edge.
    EXPECT_EQ(inPlace(5, 2), std::nullopt); // Past the end.
    EXPECT_EQ(inPlace(6, 0), std::nullopt);
    EXPECT_EQ(inPlace(7, 0), std::nullopt);
    EXPECT_EQ(KXMutableData(reader(before)).bytesInPlaceAt(0, 1), nullptr); // Not in memory.
}

TEST(KXMutableData, RangesAreEmptyUntilTheyAreFilled)
{
    using Range = KXMutableData::Range;
    using Kept = KXMutableData::Kept;
    EXPECT_EQ(Range(), (Range { 0, 0 }));
    EXPECT_EQ(Kept(), (Kept { 0, 0, 0 }));
}

TEST(KXMutableData, RemovalsLeaveNoEmptyPieces)
{
    using Kept = KXMutableData::Kept;
    KXMutableData data(filled(100, 0));
    EXPECT_TRUE(data.removeBytesAt(90, 10));
    EXPECT_THAT(data.keptBytes(), ElementsAre(Kept { 0, 0, 90 }));
    EXPECT_TRUE(data.removeBytesAt(0, 10));
    EXPECT_THAT(data.keptBytes(), ElementsAre(Kept { 10, 0, 80 }));
}

TEST(KXMutableData, TellsWhatWasOverwrittenByItsFormerPlaces)
{
    KXMutableData data(filled(100, 0));
    EXPECT_TRUE(data.insertBytesAt(filled(10, 1), 20));
    EXPECT_TRUE(data.replaceUInt32AtWith(10, 5));
    EXPECT_TRUE(data.replaceUInt32AtWith(14, 5)); // Goes on.
    EXPECT_TRUE(data.replaceUInt32AtWith(28, 5)); // Two inserted bytes first.
    EXPECT_TRUE(data.replaceUInt32AtWith(22, 5)); // Nothing but inserted ones.
    using Range = KXMutableData::Range;
    EXPECT_THAT(data.overwrittenOrigins(), ElementsAre(Range { 10, 8 }, Range { 20, 2 }));
}

TEST(KXMutableData, OfASourceNoMoreIsReadThanIsAskedFor)
{
    auto const source = std::make_shared<RecordingData>(filled(1'000'000, 9));
    KXMutableData data(source);
    EXPECT_TRUE(data.removeBytesAt(100, 50));
    EXPECT_TRUE(data.insertUnknownBytesAt(1u << 30, 5));
    EXPECT_EQ(data.length(), 1'000'000u - 50 + (1u << 30));
    EXPECT_EQ(bytesRead(*source), 0u);
    std::uint32_t value;
    EXPECT_TRUE(data.readUInt32ToAt(value, data.length() - 4));
    EXPECT_EQ(value, 0x09090909u);
    EXPECT_TRUE(data.replaceUInt32AtWith(data.length() - 4, 1));
    EXPECT_LE(bytesRead(*source), 8u);
}

TEST(KXMutableData, WhatFollowsUntouchedBytesIsBroughtInAlone)
{
    auto const source = std::make_shared<RecordingData>(filled(1000, 9));
    KXMutableData data(source);
    EXPECT_TRUE(data.removeBytesAt(100, 50));
    EXPECT_TRUE(data.replaceUInt32AtWith(100, 1)); // Where a piece begins.
    EXPECT_TRUE(data.removeBytesAt(500, 50));
    EXPECT_TRUE(data.replaceUInt32AtWith(498, 1)); // Across an edge.
    using Read = RecordingData::Read;
    EXPECT_THAT(source->reads(), ElementsAre(Read { 150, 4 }, Read { 548, 2 }, Read { 600, 4 }));
}

TEST(KXMutableData, EachFurtherReadOfATableIsTwiceAsLong)
{
    auto const source = std::make_shared<RecordingData>(filled(1'000'000, 9));
    KXMutableData data(source);
    EXPECT_TRUE(data.removeBytesAt(500'000, 1)); // The table is not in the last piece.
    for (std::uint64_t at = 1000; at < 1060; at += 4)
        EXPECT_TRUE(data.replaceUInt32AtWith(at, 1));
    using Read = RecordingData::Read;
    EXPECT_THAT(source->reads(),
        ElementsAre(Read { 1000, 4 }, Read { 1004, 8 }, Read { 1012, 16 }, Read { 1028, 32 }));
}

TEST(KXMutableData, ATableIsBroughtInWithFewReads)
{
    auto const source = std::make_shared<RecordingData>(filled(1'000'000, 9));
    KXMutableData data(source);
    for (std::uint64_t at = 1000; at < 401'000; at += 4)
        EXPECT_TRUE(data.replaceUInt32AtWith(at, 1));
    EXPECT_LE(source->reads().size(), 40u);
    EXPECT_LE(bytesRead(*source), 400'000u + 64 * 1024);
    using Range = KXMutableData::Range;
    EXPECT_THAT(data.overwrittenOrigins(), ElementsAre(Range { 1000, 400'000 }));
    EXPECT_EQ(data.keptBytes().size(), 1u);
}

TEST(KXMutableData, WhatCannotBeReadOfASourceFailsAndChangesNothing)
{
    KXMutableData data(std::make_shared<CutOffData>(100, 50));
    std::uint32_t value = 7;
    EXPECT_FALSE(data.readUInt32ToAt(value, 60));
    EXPECT_EQ(value, 0u);
    EXPECT_FALSE(data.replaceUInt32AtWith(60, 1));
    EXPECT_FALSE(data.replaceUInt32AtWith(48, 1));
    EXPECT_THAT(data.overwrittenOrigins(), IsEmpty());
    EXPECT_THAT(data.bytes(), IsEmpty());
    EXPECT_TRUE(data.removeBytesAt(40, 60));
    EXPECT_THAT(data.bytes(), ElementsAreArray(filled(40, 9)));
}

TEST(KXMutableData, ReadersSeeEveryEdit)
{
    auto const data = std::make_shared<KXMutableData>(before);
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    EXPECT_TRUE(data->insertBytesAt(bytes({ 9, 8 }), 2));
    EXPECT_EQ(reader->length(), 6u);
    std::uint32_t value;
    reader->setOffset(1); // Across two edges.
    EXPECT_TRUE(reader->readUInt32To(value, KXSwap::yes));
    EXPECT_EQ(value, 0x02090803u);
    std::optional<std::string> text;
    reader->setOffset(0);
    EXPECT_TRUE(reader->readStringTo(text, 6, KXStringEncodingLatin1));
    EXPECT_EQ(*text, "\x01\x02\x09\x08\x03\x04");
}

TEST(KXMutableAbstractData, ThereIsNoReaderOverNothing)
{
    EXPECT_EQ(KXMutableAbstractData::abstractDataWithData(nullptr), nullptr);
}

TEST(KXMutableData, ManyRangesAreRemovedInOnePass)
{
    // Piece by piece this would move a list of a hundred thousand pieces as often.
    constexpr std::uint64_t count = 200'000;
    KXMutableData data(filled(2 * count, 1));
    std::vector<KXMutableData::Range> ranges;
    for (std::uint64_t i = 0; i < count; ++i)
        ranges.push_back({ 2 * i, 1 });
    EXPECT_TRUE(data.removeRanges(ranges));
    EXPECT_EQ(data.bytes().size(), count);
}
