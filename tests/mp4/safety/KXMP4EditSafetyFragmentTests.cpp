// What becomes of the places that fragments, indexes, items and auxiliary information tell.

#include "support/EditableMovies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace build;
using namespace editable;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// A fragment whose header has `headerFields`, with one sample, and its media.
Bytes fragment(std::uint32_t headerFlags, Bytes const& headerFields, std::uint32_t dataOffset)
{
    return join(atom("moof", atom("mfhd", zeros(8)),
                    atom("traf", atom("tfhd", u32(headerFlags), u32(1), headerFields),
                        atom("trun", u32(1), u32(1), u32(dataOffset)))),
        atom("mdat", filled(mediaLength, 'f')));
}

constexpr std::uint32_t allFlags = 0xFFFFFF;

Bytes const fragmentedStart = join(ftyp(), moovWithTables(stco({})));

}

TEST(KXMP4EditSafetyFragments, FragmentsThatCountFromTheirStartAreSafe)
{
    constexpr std::uint32_t defaultBaseIsMoof = 0x20000;
    for (std::uint32_t const flags : { 0u, defaultBaseIsMoof })
        EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(flags, {}, 88))), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, FragmentsThatCountFromTheStartOfTheFileMatterAfterTheEdit)
{
    auto const after = fragmentedStart.size();
    EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(1, u64(after), 88))),
        HasSubstr("movie fragment"));
    Bytes const inFront = join(ftyp(), fragment(1, u64(ftyp().size()), 88));
    EXPECT_THAT(reasonAgainstAdding(join(inFront, moovWithTables(stco({})))), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, FragmentsCountFromTheirBaseOrFromTheirStartIfThatIsCutOff)
{
    constexpr std::uint32_t hasBase = 1;
    auto const afterMovie = static_cast<std::uint32_t>(fragmentedStart.size()) + 10;
    EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(hasBase, u64(0), afterMovie))),
        HasSubstr("movie fragment"));
    EXPECT_THAT(
        reasonAgainstAdding(join(fragmentedStart, fragment(hasBase, {}, afterMovie))), IsEmpty());
    // The base of another track before it is not taken either.
    Bytes const other = atom("traf", atom("tfhd", u32(hasBase), u32(1), u64(0)));
    Bytes const cutOff = atom(
        "traf", atom("tfhd", u32(hasBase), u32(2)), atom("trun", u32(1), u32(1), u32(afterMovie)));
    EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, atom("moof", other, cutOff))), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, FragmentsWhoseMediaLiesBeyondTheEditMatter)
{
    Bytes const moov = moovWithTables(stco({}));
    auto const beyond = static_cast<std::uint32_t>(200 + moov.size());
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), fragment(0, {}, beyond), moov, atom("mdat", zeros(500)))),
        HasSubstr("movie fragment"));
}

TEST(KXMP4EditSafetyFragments, FragmentsCountFromTheFirstByteOfTheirHeader)
{
    auto const reason = [](std::uint32_t excess) {
        auto const start = [](std::uint32_t offset) {
            return join(ftyp(), fragment(0, {}, offset), atom("free", zeros(100)));
        };
        auto const toMovie = static_cast<std::uint32_t>(start(0).size() - ftyp().size());
        Bytes const front = start(toMovie - 1 + excess);
        auto const data = reader(join(front, moovWithTables(stco({}))));
        return KXMP4EditSafety(*data).reasonAgainstEditAt(front.size(), 100).value_or("");
    };
    EXPECT_THAT(reason(0), IsEmpty());
    EXPECT_THAT(reason(1), HasSubstr("movie fragment"));
}

TEST(KXMP4EditSafetyFragments, RunsWithoutAnOffsetFollowTheRunBeforeThem)
{
    // What stands where the offset would is the duration of a sample.
    auto const reason = [](std::uint32_t flags) {
        Bytes const moov = moovWithTables(stco({}));
        auto const beyond = static_cast<std::uint32_t>(200 + moov.size());
        Bytes const run = atom("trun", u32(flags), u32(1), u32(beyond));
        return reasonAgainstAdding(
            join(ftyp(), atom("moof", atom("traf", atom("tfhd", u32(0), u32(1)), run)), moov,
                atom("mdat", zeros(500))));
    };
    constexpr std::uint32_t hasOffset = 1, hasDurations = 0x100;
    EXPECT_THAT(reason(hasDurations), IsEmpty());
    EXPECT_THAT(reason(hasOffset), HasSubstr("movie fragment"));
}

TEST(KXMP4EditSafetyFragments, IndexesOfFragmentsMatterAfterTheEdit)
{
    auto const index = [](std::uint32_t version, Bytes const& place) {
        Bytes const time = version ? u64(0) : u32(0);
        return atom("mfra",
            atom("tfra", u32(version << 24), u32(1), u32(0), u32(1), time, place, zeros(3)));
    };
    for (std::uint32_t const version : { 0u, 1u }) {
        auto const place = [&](std::uint32_t value) { return version ? u64(value) : u32(value); };
        EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(0, {}, 88),
                        index(version, place(static_cast<std::uint32_t>(fragmentedStart.size()))))),
            HasSubstr("index of the movie fragments"));
        EXPECT_THAT(
            reasonAgainstAdding(join(fragmentedStart, index(version, place(8)))), IsEmpty());
    }
}

TEST(KXMP4EditSafetyFragments, AnIndexOfFragmentsMayReachToTheEndOfTheFile)
{
    auto const reason = [](std::uint32_t place) {
        Bytes const index
            = atom("tfra", u32(0), u32(1), u32(0), u32(1), u32(0), u32(place), zeros(3));
        return reasonAgainstAdding(
            join(fragmentedStart, fragment(0, {}, 88), atomClaiming(0, "mfra", index)));
    };
    EXPECT_THAT(reason(8), IsEmpty());
    EXPECT_THAT(reason(static_cast<std::uint32_t>(fragmentedStart.size())),
        HasSubstr("index of the movie fragments"));
}

TEST(KXMP4EditSafetyFragments, IndexesOfFragmentsHaveEntriesOfSeveralWidths)
{
    constexpr std::uint32_t widthsOf2And2And4 = 1 << 4 | 1 << 2 | 3, inFront = 8;
    auto const after = static_cast<std::uint32_t>(fragmentedStart.size());
    for (std::uint32_t const version : { 0u, 1u }) {
        auto const reason = [&](std::uint32_t secondPlace) {
            auto const number
                = [&](std::uint32_t value) { return version ? u64(value) : u32(value); };
            // Whatever is no place looks like one after the edit.
            Bytes const others = filled(2 + 2 + 4, static_cast<std::uint8_t>(after % 256));
            return reasonAgainstAdding(join(fragmentedStart, fragment(0, {}, 88),
                atom("mfra",
                    atom("tfra", u32(version << 24 | allFlags), u32(1), u32(widthsOf2And2And4),
                        u32(2), number(after), number(inFront), others, number(after),
                        number(secondPlace), others, number(after), number(after), others))));
        };
        EXPECT_THAT(reason(inFront), IsEmpty()) << version;
        EXPECT_THAT(reason(after), HasSubstr("index of the movie fragments")) << version;
    }
}

TEST(KXMP4EditSafetyFragments, SegmentIndexesMatterWhenTheEditLiesInWhatTheyReferTo)
{
    auto const index = [](std::uint32_t distance, std::uint32_t size) {
        return atom("sidx", u32(0), u32(1), u32(1000), u32(0), u32(distance), u16(0), u16(1),
            u32(size), u32(0), u32(0));
    };
    Bytes const moov = moovWithTables(stco({}));
    auto const length = static_cast<std::uint32_t>(moov.size());
    EXPECT_THAT(reasonAgainstAdding(join(ftyp(), moov, index(0, 100))), IsEmpty());
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), index(length, 100), moov)), HasSubstr("segment index"));
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), index(0, length), moov)), HasSubstr("segment index"));
    EXPECT_THAT(reasonAgainstAdding(join(ftyp(), index(0, 8), atom("free"), moov)), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, SegmentIndexesCountTheirDistanceFromTheirEnd)
{
    auto const index = [](std::uint32_t version, std::uint32_t distance) {
        auto const number = [&](std::uint32_t value) { return version ? u64(value) : u32(value); };
        return atom("sidx", u32(version << 24), u32(1), u32(1000), number(0), number(distance),
            u16(0), u16(0));
    };
    Bytes const padding = atom("free", zeros(100)), moov = moovWithTables(stco({}));
    auto const toMovie = static_cast<std::uint32_t>(padding.size());
    auto const afterMovie = toMovie + static_cast<std::uint32_t>(moov.size());
    for (std::uint32_t const version : { 0u, 1u }) {
        auto const reason = [&](std::uint32_t distance) {
            return reasonAgainstAdding(
                join(ftyp(), index(version, distance), padding, moov, atom("mdat", zeros(2000))));
        };
        EXPECT_THAT(reason(toMovie), IsEmpty());
        EXPECT_THAT(reason(afterMovie), HasSubstr("segment index"));
    }
}

TEST(KXMP4EditSafetyFragments, EachReferenceOfASegmentIndexCountsFromTheOneBefore)
{
    Bytes const padding = atom("free", zeros(100)), moov = moovWithTables(stco({}));
    auto const reason = [&](std::uint32_t secondSize) {
        Bytes const others = filled(8, 0xFF); // Of a reference: duration and access points.
        Bytes const index
            = atom("sidx", u32(allFlags), u32(1), u32(1000), u32(0), u32(0), u16(0), u16(2),
                u32(static_cast<std::uint32_t>(padding.size())), others, u32(secondSize), others,
                u32(static_cast<std::uint32_t>(moov.size())), others); // One more than it claims.
        return reasonAgainstAdding(join(ftyp(), index, padding, moov, atom("mdat", zeros(2000))));
    };
    EXPECT_THAT(reason(0), IsEmpty());
    EXPECT_THAT(reason(static_cast<std::uint32_t>(moov.size())), HasSubstr("segment index"));
}

TEST(KXMP4EditSafetyFragments, ReferencesOfASegmentIndexHaveSizesOf31Bits)
{
    constexpr std::uint32_t isIndexItself = 0x80000000;
    Bytes const padding = atom("free", zeros(101));
    auto const reason = [&](std::uint32_t size) {
        Bytes const index = atom("sidx", u32(0), u32(1), u32(1000), u32(0), u32(0), u16(0), u16(1),
            u32(size | isIndexItself), zeros(8));
        Bytes const start = join(ftyp(), index, padding);
        auto const data = reader(join(start, moovWithTables(stco({}))));
        return KXMP4EditSafety(*data).reasonAgainstEditAt(start.size(), 100).value_or("");
    };
    auto const toEdit = static_cast<std::uint32_t>(padding.size());
    EXPECT_THAT(reason(toEdit - 1), IsEmpty());
    EXPECT_THAT(reason(toEdit), HasSubstr("segment index"));
}

TEST(KXMP4EditSafetyFragments, ItemsMayHaveSeveralExtents)
{
    // Whatever is no offset is a place after the edit.
    constexpr std::uint32_t after = 8000, inFront = 8;
    auto const reason = [](std::uint32_t version, std::uint32_t secondOffset) {
        auto const number
            = [&](std::uint32_t value) { return version < 2 ? u16(value) : u32(value); };
        Bytes const method = version ? u16(0) : Bytes(), index = version ? u32(after) : Bytes();
        Bytes const item = join(number(after), method, u16(after), u32(0), u16(2), index,
            u32(inFront), u32(after), index, u32(secondOffset), u32(after));
        Bytes const items = atom("iloc", u32(version << 24), u16(0x4444), number(1), item);
        return reasonAgainstAdding(join(ftyp(), moovWithTables(stco({})),
            atom("meta", u32(0), items), atom("mdat", zeros(9000))));
    };
    for (std::uint32_t const version : { 0u, 1u, 2u }) {
        EXPECT_THAT(reason(version, inFront), IsEmpty()) << version;
        EXPECT_THAT(reason(version, after), HasSubstr("items")) << version;
    }
}

TEST(KXMP4EditSafetyFragments, ItemsAreLookedForWhereAllSizesAreKnown)
{
    constexpr std::uint32_t after = 8000;
    auto const reason = [](std::uint32_t version, std::uint32_t sizes, Bytes const& places) {
        Bytes const items
            = atom("iloc", u32(version << 24), u16(sizes), u32(1), u32(1), u16(0), u16(0), places);
        return reasonAgainstAdding(join(ftyp(), moovWithTables(stco({})),
            atom("meta", u32(0), items), atom("mdat", zeros(9000))));
    };
    EXPECT_THAT(reason(2, 0x0040, join(u32(after), u16(3))), HasSubstr("items"));
    EXPECT_THAT(reason(2, 0x4040, join(u32(8), u16(1), u32(after - 8))), HasSubstr("items"));
    EXPECT_THAT(reason(2, 0x8080, join(u64(8), u16(1), u64(after - 8))), HasSubstr("items"));
    // Sizes and versions that the standard does not know.
    EXPECT_THAT(reason(2, 0x0030, join(u24(after), u16(3))), HasSubstr("items"));
    EXPECT_THAT(reason(2, 0x3130, join(u24(8), u16(2), u24(0), u8(0), u24(after - 8), u8(0))),
        HasSubstr("items"));
    EXPECT_THAT(reason(2, 0x0090, join(u8(0), u64(after), u16(1))), IsEmpty());
    EXPECT_THAT(reason(2, 0x9000, join(u16(1), u8(0), u64(after))), IsEmpty());
    EXPECT_THAT(reason(3, 0x0040, join(u32(after), u16(1))), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, OnlyAsManyItemsMatterAsAreClaimed)
{
    auto const reason = [](std::uint32_t claimed) {
        auto const item
            = [](std::uint32_t place) { return join(u16(1), u16(0), u16(1), u32(place), u32(10)); };
        Bytes const items
            = atom("iloc", u32(0), u16(0x4400), u16(claimed), item(8), item(8000), item(8));
        return reasonAgainstAdding(join(ftyp(), moovWithTables(stco({})),
            atom("meta", u32(0), items), atom("mdat", zeros(9000))));
    };
    EXPECT_THAT(reason(1), IsEmpty());
    EXPECT_THAT(reason(2), HasSubstr("items"));
}

TEST(KXMP4EditSafetyFragments, ExtentsWithoutBytesTakeNoTime)
{
    constexpr std::uint32_t count = 50000;
    Bytes const item = join(u16(1), u16(0), u16(0xFFFF));
    Bytes const items
        = atom("iloc", u32(0), u16(0), u16(count), concatenated(std::vector<Bytes>(count, item)));
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), moovWithTables(stco({})), atom("meta", u32(0), items))),
        IsEmpty());
}

TEST(KXMP4EditSafetyFragments, ItemsInTheFileMatterAfterTheEdit)
{
    auto const items = [](std::uint32_t method, std::uint32_t place) {
        return atom("meta", u32(0),
            atom("iloc", u32(1 << 24), u16(0x4440), u16(1), u16(1), u16(method), u16(0), u32(place),
                u16(1), u32(4), u32(10)));
    };
    Bytes const start = join(ftyp(), moovWithTables(stco({})));
    EXPECT_THAT(reasonAgainstAdding(join(start, items(0, 9000))), IsEmpty()) << "Not in the file.";
    Bytes const media = atom("mdat", zeros(9000));
    EXPECT_THAT(reasonAgainstAdding(join(start, items(0, 8000), media)), HasSubstr("items"));
    EXPECT_THAT(reasonAgainstAdding(join(start, items(1, 8000), media)), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(join(start, items(0, 8), media)), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, OffsetsOfAuxiliaryInformationMatterAfterTheEdit)
{
    auto const moov = [](std::uint32_t media) {
        return moovWithTables(join(stco({ media }), atom("saio", u32(0), u32(1), u32(media))));
    };
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moov)), HasSubstr("auxiliary"));
    EXPECT_THAT(reasonAgainstAdding(moovLast(moov)), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, OffsetsOfAuxiliaryInformationInAMovieCountFromTheStartOfTheFile)
{
    constexpr std::uint32_t inFront = 1500; // From the start of the fragment it is after the edit.
    Bytes const padding = atom("free", zeros(2000));
    Bytes const moov = moovWithTables(join(stco({}), atom("saio", u32(0), u32(1), u32(inFront))));
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), padding, fragment(0, {}, 88), moov, padding)), IsEmpty());
}

TEST(KXMP4EditSafetyFragments, AuxiliaryInformationMayHaveATypeAndOffsetsOf64Bits)
{
    Bytes const padding = atom("free", zeros(2000));
    auto const unclaimed = [](std::uint32_t place) { return join(u32(place), u32(place)); };
    for (std::uint32_t const version : { 0u, 1u }) {
        auto const reason = [&](bool isAfter) {
            return reasonAgainstAdding(join(moovLast([&](std::uint32_t media) {
                std::uint32_t const after = media + 1500, offset = isAfter ? after : media;
                return moovWithTables(join(stco({ media }),
                    atom("saio", u32(version << 24 | allFlags), text("type"), u32(after), u32(1),
                        version ? u64(offset) : u32(offset), unclaimed(after))));
            }),
                padding));
        };
        EXPECT_THAT(reason(false), IsEmpty()) << version;
        EXPECT_THAT(reason(true), HasSubstr("auxiliary")) << version;
    }
}

TEST(KXMP4EditSafetyFragments, OffsetsOfAuxiliaryInformationInAFragmentCountFromItsStart)
{
    auto const fragmentWith = [](std::uint32_t offset) {
        return atom("moof",
            atom("traf", atom("tfhd", u32(0), u32(1)), atom("saio", u32(0), u32(1), u32(offset))));
    };
    // A place in the file after the edit, and one past its end from the start of the fragment.
    auto const afterMovie = static_cast<std::uint32_t>(fragmentedStart.size()) + 10;
    EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragmentWith(afterMovie))), IsEmpty());
    Bytes const moov = moovWithTables(stco({}));
    auto const beyond = static_cast<std::uint32_t>(100 + moov.size());
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), fragmentWith(beyond), moov, atom("mdat", zeros(500)))),
        HasSubstr("auxiliary"));
}
