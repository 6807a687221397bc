// What becomes of chunk offset tables, and of what an edit takes for them.

#include "support/AtomTrees.h"
#include "support/EditableMovies.h"
#include "support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

using namespace build;
using namespace editable;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(KXMP4EditSafetyTables, A64BitTableMattersWhenItsMediaMoves)
{
    auto const moov = [](std::uint32_t media) {
        return atom("moov", trackWithTables(stco({ media })), trackWithTables(co64({ media + 8 })),
            userData);
    };
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moov)), HasSubstr("64-bit chunk offset table"));
    EXPECT_THAT(reasonAgainstRemoving(moovFirst(moov)), HasSubstr("64-bit chunk offset table"));
    EXPECT_THAT(reasonAgainstCleaning(moovFirst(moov)), HasSubstr("64-bit chunk offset table"));
    EXPECT_THAT(reasonAgainstAdding(moovLast(moov)), IsEmpty());
    EXPECT_THAT(reasonAgainstCleaning(moovLast(moov)), IsEmpty());
}

TEST(KXMP4EditSafetyTables, WhatFollowsTheEntriesOfA64BitTableDoesNotMatter)
{
    for (std::uint32_t const claimed : { 0u, 1u }) {
        auto const moov = [claimed](std::uint32_t media) {
            return atom("moov", trackWithTables(stco({ media })),
                trackWithTables(atom("co64", u32(0), u32(claimed), u64(media))), userData);
        };
        EXPECT_EQ(reasonAgainstAdding(moovFirst(moov)).empty(), claimed == 0) << claimed;
    }
}

TEST(KXMP4EditSafetyTables, FilesWithout32BitTablesAreNotEditedByCovers)
{
    auto const file
        = moovFirst([](std::uint32_t media) { return moovWithTables(co64({ media })); });
    EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
    EXPECT_FALSE(reasonAgainstCleaning(file).empty());
}

TEST(KXMP4EditSafetyTables, TablesThatStraddleTheEditMatterByTheOrderOfTheirEntries)
{
    auto const file = [](bool isMediaInFrontFirst) {
        Bytes const front = join(ftyp(), atom("mdat", filled(mediaLength, 'f')));
        auto const inFront = static_cast<std::uint32_t>(ftyp().size() + 8);
        auto const moov = [&](std::uint32_t after) {
            return moovWithTables(isMediaInFrontFirst ? stco({ inFront, after, after + 8 })
                                                      : stco({ after, after + 8, inFront }));
        };
        auto const after = static_cast<std::uint32_t>(front.size() + moov(0).size() + 8);
        return join(front, moov(after), atom("mdat", filled(mediaLength, 'b')));
    };
    EXPECT_THAT(reasonAgainstAdding(file(true)), HasSubstr("entries before the edit ahead of"));
    EXPECT_THAT(reasonAgainstAdding(file(false)), IsEmpty());
}

TEST(KXMP4EditSafetyTables, EntriesPast4GiBWrap)
{
    auto const file = moovFirst([](std::uint32_t media) {
        return moovWithTables(stco({ media, 0xFFFFFF00 }));
    });
    auto const growth = static_cast<std::uint64_t>(0xFF);
    EXPECT_THAT(reasonAgainstAdding(file, cover.size() + growth), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(file, cover.size() + growth + 1), HasSubstr("4 GiB"));
}

TEST(KXMP4EditSafetyTables, MediaInTheRemovedAtomMatters)
{
    auto const file = [](std::uint32_t intoCover) {
        auto const moov = [&](std::uint32_t position) {
            return moovWithTables(stco({ position + intoCover }));
        };
        auto const position = static_cast<std::uint32_t>(
            ftyp().size() + moov(0).size() - title.size() - cover.size());
        return join(ftyp(), moov(position), atom("mdat", zeros(8)));
    };
    EXPECT_THAT(reasonAgainstRemoving(file(0)), HasSubstr("media would be removed"));
    EXPECT_THAT(reasonAgainstRemoving(file(static_cast<std::uint32_t>(cover.size()) - 1)),
        HasSubstr("media would be removed"));
    EXPECT_THAT(reasonAgainstRemoving(file(static_cast<std::uint32_t>(cover.size()))), IsEmpty());
}

TEST(KXMP4EditSafetyTables, TablesThatClaimMoreThanTheyHoldMatterWhenWhatFollowsIsChanged)
{
    // What follows is a size, which is changed when it is larger than the edit's place.
    auto const moovWith = [](std::uint32_t next) {
        return [next](std::uint32_t media) {
            Bytes const table = atom("stco", u32(0), u32(5), u32(media), u32(media));
            return atom(
                "moov", userData, trackWithTables(join(table, atom("free", zeros(next - 8)))));
        };
    };
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moovWith(50))), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moovWith(2000))), HasSubstr("claims more entries"));
    EXPECT_THAT(reasonAgainstAdding(moovLast(moovWith(2000))), IsEmpty());
}

TEST(KXMP4EditSafetyTables, EachTableHasRoomOfItsOwn)
{
    // The second has none at all.
    auto const file = moovFirst([](std::uint32_t media) {
        Bytes const table = atom("stco", u32(0), u32(1));
        return atom("moov", userData, trackWithTables(stco({ media })),
            trackWithTables(join(table, atom("free", zeros(2000)))));
    });
    EXPECT_THAT(reasonAgainstAdding(file), HasSubstr("claims more entries"));
}

TEST(KXMP4EditSafetyTables, ATableThatClaimsEntriesPastTheEndOfTheFileMatters)
{
    for (std::uint32_t const claimed : { 3u, 0xFFFFFFFFu }) {
        Bytes const table = atom("stco", u32(0), u32(claimed), u32(5000), u32(6000));
        EXPECT_THAT(
            reasonAgainstAdding(join(ftyp(), atom("moov", userData, trackWithTables(table)))),
            HasSubstr("claims more entries"));
    }
}

TEST(KXMP4EditSafetyTables, WhatOnlyLooksLikeATableMattersWhenItIsChanged)
{
    auto const fileWith = [](Bytes const& table) {
        return join(
            moovFirst([](std::uint32_t media) { return moovWithTables(stco({ media })); }), table);
    };
    EXPECT_THAT(
        reasonAgainstAdding(fileWith(stco({ 9000 }))), HasSubstr("not a chunk offset table"));
    // Changed when the old cover goes, and changed back by the new one.
    EXPECT_THAT(reasonAgainstAdding(fileWith(stco({ 9000 })), cover.size()), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(fileWith(stco({ 5 }))), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(fileWith(stco({}))), IsEmpty());
}

TEST(KXMP4EditSafetyTables, LookAlikesAfterA64BitSizeMatter)
{
    // The tree takes the size 1 as it is, and the next bytes for atoms.
    auto const fileWith = [](std::uint32_t entry) {
        Bytes const moov = moovWithTables(stco({}));
        // At its second byte: 00 00 01 6D, a size; what lies after that is a table.
        Bytes media = zeros(0x16D + 1 - 16);
        media = join(std::move(media), stco({ entry }), zeros(8));
        return join(ftyp(), moov, largeAtom("mdat", media));
    };
    EXPECT_THAT(reasonAgainstAdding(fileWith(9000)), HasSubstr("not a chunk offset table"));
    EXPECT_THAT(reasonAgainstAdding(fileWith(5)), IsEmpty());
}

TEST(KXMP4EditSafetyTables, MediaInAnotherFileDoesNotMove)
{
    auto const information = [](std::uint32_t flags) {
        return atom("dinf", atom("dref", u32(0), u32(1), atom("url ", u32(flags))));
    };
    auto const file = [&](std::uint32_t flags, std::uint32_t entry) {
        return moovFirst(
            [&](std::uint32_t) { return moovWithTables(stco({ entry }), information(flags)); });
    };
    EXPECT_THAT(reasonAgainstAdding(file(0, 9000)), HasSubstr("another file"));
    EXPECT_THAT(reasonAgainstAdding(file(0, 5)), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(file(1, 9000)), IsEmpty());
}

TEST(KXMP4EditSafetyTables, AReferenceTooSmallForItsFieldsNamesNoOtherFile)
{
    auto const reason = [](std::uint32_t size) {
        Bytes const reference = atomClaiming(size, "url ", u32(0));
        return reasonAgainstAdding(moovFirst([&](std::uint32_t media) {
            return moovWithTables(
                stco({ media }), atom("dinf", atom("dref", u32(0), u32(1), reference)));
        }));
    };
    EXPECT_THAT(reason(11), IsEmpty());
    EXPECT_THAT(reason(12), HasSubstr("another file"));
}

TEST(KXMP4EditSafetyTables, AnEntryThatStaysMattersWhereItMayBeOfThisFile)
{
    // The first entry, before the edit, ends the correction of the table.
    auto const reason = [](Bytes const& references, std::uint32_t count) {
        return reasonAgainstAdding(moovFirst([&](std::uint32_t media) {
            return moovWithTables(
                stco({ 5, media }), atom("dinf", atom("dref", u32(0), u32(count), references)));
        }));
    };
    constexpr std::size_t lengthOfPlace = 12;
    Bytes const elsewhere = atom("url ", u32(0), zeros(lengthOfPlace));
    Bytes const inThisFile = atom("url ", u32(1));
    EXPECT_THAT(reason(elsewhere, 1), IsEmpty());
    EXPECT_THAT(reason(join(elsewhere, inThisFile), 2), HasSubstr("another file"));
    EXPECT_THAT(reason(inThisFile, 1), HasSubstr("entries before the edit ahead of"));
}

TEST(KXMP4EditSafetyTables, AnEntryRightAfterALargeFileDoesNotPass4GiB)
{
    constexpr std::uint32_t end = 0x80000000;
    TemporaryFolder const folder;
    Bytes const movie = join(ftyp(), moovWithTables(stco({ 5, end + 1 })), atomClaiming(0, "mdat"));
    std::string const path = folder.write("movie.mp4", movie);
    std::filesystem::resize_file(path, end);
    auto const data = KXAbstractData::abstractDataWithPath(path);
    EXPECT_THAT(KXMP4EditSafety(*data).reasonAgainstAddingAlbumCoverOfSize(1000).value_or(""),
        HasSubstr("entries before the edit ahead of"));
}

TEST(KXMP4EditSafetyTables, AnEntryThatStaysAtTheEndOfTheFileIsNoRemovedMedia)
{
    auto const length = moovLast([](std::uint32_t) {
        return moovWithTables(stco({ 5, 0 }));
    }).size();
    auto const file = moovLast([&](std::uint32_t) {
        return moovWithTables(stco({ 5, static_cast<std::uint32_t>(length) }));
    });
    EXPECT_THAT(reasonAgainstAdding(file), HasSubstr("entries before the edit ahead of"));
}

TEST(KXMP4EditSafetyTables, AnEntryThatStaysMayBelongAtTheLastPlaceBelow4GiB)
{
    constexpr std::uint32_t growth = 1000, largest = 0xFFFFFFFF;
    auto const reason = [](std::uint32_t entry) {
        TemporaryFolder const folder;
        Bytes const movie
            = join(ftyp(), moovWithTables(stco({ 5, entry })), atomClaiming(0, "mdat"));
        std::string const path = folder.write("movie.mp4", movie);
        std::filesystem::resize_file(path, std::uint64_t { entry } + 1);
        auto const data = KXAbstractData::abstractDataWithPath(path);
        return KXMP4EditSafety(*data)
            .reasonAgainstAddingAlbumCoverOfSize(cover.size() + growth)
            .value_or("");
    };
    EXPECT_THAT(reason(largest - growth), HasSubstr("entries before the edit ahead of"));
    EXPECT_THAT(reason(largest - growth + 1), HasSubstr("4 GiB"));
}

TEST(KXMP4EditSafetyTables, NumbersOf64BitsAreReadWhole)
{
    // With the highest bit lost, the entry would lead to the media.
    constexpr std::uint64_t highestBit = std::uint64_t { 1 } << 63;
    auto const reason = [](std::uint64_t bits) {
        return reasonAgainstAdding(moovFirst([bits](std::uint32_t media) {
            return atom("moov", trackWithTables(stco({ media })),
                trackWithTables(co64({ bits | media })), userData);
        }));
    };
    EXPECT_THAT(reason(highestBit), IsEmpty());
    EXPECT_THAT(reason(0), HasSubstr("64-bit chunk offset table"));
}

TEST(KXMP4EditSafetyTables, TablesOf64BitsAndAuxiliaryOffsetsMayLeadIntoAnotherFile)
{
    auto const reason = [](std::uint32_t flags, char const* type) {
        return reasonAgainstAdding(moovFirst([&](std::uint32_t media) {
            Bytes const table = type == std::string_view("saio")
                ? atom(type, u32(0), u32(1), u32(media))
                : co64({ media });
            Bytes const information
                = atom("dinf", atom("dref", u32(0), u32(1), atom("url ", u32(flags))));
            return atom("moov", trackWithTables(stco({ media })),
                trackWithTables(table, information), userData);
        }));
    };
    constexpr std::uint32_t isInThisFile = 1;
    for (char const* const type : { "co64", "saio" }) {
        EXPECT_THAT(reason(0, type), IsEmpty());
        EXPECT_THAT(reason(isInThisFile, type), HasSubstr("would not be corrected"));
    }
}

TEST(KXMP4EditSafetyTables, TablesTooShortForACountMatterWhenWhatFollowsIsChanged)
{
    Bytes const sizes = atom("stsz", u32(0), u32(0), u32(2), u32(0x1000), u32(0x2000));
    for (std::size_t length = 0; length < 8; ++length) {
        auto const moov = [&](std::uint32_t media) {
            Bytes const shortTable = atom("stco", filled(length, 1));
            return moovWithTables(join(stco({ media }), shortTable, sizes));
        };
        // Without any field the first "entry" is the 0 after the header of what follows.
        auto const expected = length ? HasSubstr("not a chunk offset table") : HasSubstr("");
        for (auto const& file : { moovFirst(moov), moovLast(moov) }) {
            EXPECT_THAT(reasonAgainstAdding(file), expected) << length;
            EXPECT_THAT(reasonAgainstRemoving(file), expected) << length;
            EXPECT_THAT(reasonAgainstCleaning(file), expected) << length;
            EXPECT_EQ(reasonAgainstAdding(file).empty(), length == 0) << length;
        }
    }
}

TEST(KXMP4EditSafetyTables, ATableTooShortForACountMattersOnceASizeAfterItGrowsIntoOne)
{
    // The count is the table's last byte and the first three of the size that follows.
    auto const moov = [](std::uint32_t media) {
        return atom("moov", trackWithTables(join(stco({ media }), atom("stco", zeros(5)))),
            userDataWithTags(title));
    };
    auto const smallSize = 255 - userDataWithTags(title).size();
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moov), smallSize), IsEmpty());
    EXPECT_THAT(
        reasonAgainstAdding(moovFirst(moov), smallSize + 1), HasSubstr("not a chunk offset"));
}

TEST(KXMP4EditSafetyTables, ALookAlikeMattersWhenTheSizeAfterItGrowsPastThePlaceOfTheEdit)
{
    Bytes const lookAlike = atom("stco", u32(0), u32(1));
    Bytes const padding = atom("free", zeros(1000));
    auto const moov = [&](std::uint32_t media) {
        return atom("moov", padding, trackWithTables(stco({ media })), lookAlike, userData);
    };
    auto const file = moovFirst(moov);
    auto const edited = treeOf(file)->allAtomsWithPath("moov/udta/meta/ilst/covr").front();
    auto const largest = edited->offset() - 1 - (userData.size() - cover.size());
    EXPECT_THAT(reasonAgainstAdding(file, largest), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(file, largest + 1), HasSubstr("not a chunk offset table"));
    EXPECT_THAT(reasonAgainstRemoving(file), IsEmpty());
}

TEST(KXMP4EditSafetyTables, ATableThatClaimsMoreMattersWhenTheSizeAfterItGrowsPastTheEdit)
{
    Bytes const padding = atom("free", zeros(1000));
    auto const moov = [&](std::uint32_t media) {
        Bytes const table = atom("stco", u32(0), u32(9), u32(media));
        return atom("moov", padding, trackWithTables(table), userData);
    };
    auto const file = moovFirst(moov);
    auto const edited = treeOf(file)->allAtomsWithPath("moov/udta/meta/ilst/covr").front();
    auto const largest = edited->offset() - 1 - (userData.size() - cover.size());
    EXPECT_THAT(reasonAgainstAdding(file, largest), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(file, largest + 1), HasSubstr("claims more entries"));
}

TEST(KXMP4EditSafetyTables, ATableThatClaimsMoreMayEndWithinAnEntry)
{
    // Two bytes of the table and the upper half of the size after it, 65,536 or a little more.
    auto const moov = [](std::uint32_t media) {
        Bytes const table = atom("stco", u32(0), u32(9), u32(media), u16(1));
        return atom("moov", trackWithTables(table), userData);
    };
    auto const file = [&](std::uint32_t place) {
        auto const unpadded = treeOf(moovFirst(moov));
        auto const edited = unpadded->allAtomsWithPath("moov/udta/meta/ilst/covr").front();
        Bytes const padding = atom("free", zeros(place - 8 - edited->offset()));
        return moovFirst([&](std::uint32_t media) { return join(padding, moov(media)); });
    };
    constexpr std::uint64_t grownTo5 = 5u << 16, place = 0x10005;
    auto const largest = grownTo5 - 1 - (userData.size() - cover.size());
    EXPECT_THAT(reasonAgainstAdding(file(place), largest), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(file(place), largest + 1), HasSubstr("claims more entries"));
    EXPECT_THAT(reasonAgainstAdding(file(place + 1), largest + 1), IsEmpty());
}

TEST(KXMP4EditSafetyTables, ATableWith64BitSizeIsNeverCorrected)
{
    auto const moovWithFlags = [](std::uint32_t flags) {
        return [flags](std::uint32_t media) {
            return moovWithTables(largeAtom("stco", join(u32(flags), u32(1), u32(media))));
        };
    };
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moovWithFlags(0))), HasSubstr("not be corrected"));
    EXPECT_THAT(reasonAgainstAdding(moovLast(moovWithFlags(0))), IsEmpty());
    // They stand where other tables have their first entry.
    EXPECT_THAT(reasonAgainstAdding(moovLast(moovWithFlags(0xFFFFFF))), HasSubstr("not a chunk"));
}

namespace {

/// A movie whose table has seven entries, the first of which is given unless it is the media's
/// place. From its third byte on the second entry begins a look-alike, which the tree finds before
/// the table.
Bytes movieWithLookAlikeWithinTable(std::optional<std::uint32_t> firstEntry = {})
{
    Bytes const lookAlike = join(u32(0x70000000), text("stco"), u32(0x70007000));
    Bytes const count = zeros(4);
    constexpr std::uint32_t placeOfLookAlike = 16 + 4 + 2;
    return moovFirst([&](std::uint32_t media) {
        Bytes const table = atom("stco", u32(0), u32(7), u32(firstEntry.value_or(media)),
            u16(0x7000), lookAlike, count, u16(0x8000), u32(media), u32(media));
        Bytes const track = trackWithTables(table);
        auto const way = static_cast<std::uint32_t>(track.size() - 8 - table.size());
        // What is found after the padding is found there again.
        auto const padding = 8 + way + placeOfLookAlike;
        Bytes const detour
            = atom("edts", atomClaiming(padding + 9, "udta", atomClaiming(padding, "free")));
        return atom("moov", atom("trak", detour, Bytes(track.begin() + 8, track.end())), userData);
    });
}

}

TEST(KXMP4EditSafetyTables, TablesThatAreFoundOutOfOrderAreKnownForTables)
{
    auto const reason = [](std::optional<std::uint32_t> firstEntry) {
        Bytes const file = movieWithLookAlikeWithinTable(firstEntry);
        auto const data = reader(file);
        auto const edited = lastAtom(treeOf(file), "moov/udta");
        return KXMP4EditSafety(*data).reasonAgainstEditAt(edited->offset(), 1000).value_or("");
    };
    EXPECT_THAT(reason({}), IsEmpty());
    EXPECT_THAT(reason(5), HasSubstr("entries before the edit ahead of"));
}

TEST(KXMP4EditSafetyTables, ALookAlikeWithinATableIsNoHindranceWhileItHasNoEntries)
{
    // Its count becomes another once the entries are moved, but by then it has been passed.
    auto const file = movieWithLookAlikeWithinTable();
    ASSERT_EQ(lastAtom(treeOf(file), "moov/trak/edts/udta/stco")->size(), 0x70000000u);
    auto const edited = lastAtom(treeOf(file), "moov/udta");
    auto const data = reader(file);
    auto const reason = KXMP4EditSafety(*data).reasonAgainstEditAt(edited->offset(), 1000);
    EXPECT_EQ(reason, std::nullopt);

    auto const root = treeOf(file);
    KXMutableData buffer(file);
    Bytes const inserted = atom("free", zeros(992));
    ASSERT_TRUE(lastAtom(root, "moov/udta")->insertBeforeSelfInMutableData(buffer, inserted));
    auto const table = lastAtom(root, "moov/trak/mdia/minf/stbl/stco");
    for (std::uint64_t entry = 0; entry < 7; ++entry) {
        auto const place = table->offset() + 16 + 4 * entry;
        std::uint32_t before = 0, after = 0;
        ASSERT_TRUE(KXMutableData(file).readUInt32ToAt(before, place));
        ASSERT_TRUE(buffer.readUInt32ToAt(after, place));
        EXPECT_EQ(after, before + inserted.size()) << entry;
    }
}
