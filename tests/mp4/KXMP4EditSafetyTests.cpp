#include "support/AtomTrees.h"
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

Bytes const fragmentedStart = join(ftyp(), moovWithTables(stco({})));

}

TEST(KXMP4EditSafety, UsualFilesAreSafe)
{
    auto const moov = [](std::uint32_t media) {
        return moovWithTables(stco({ media, media + 8 }));
    };
    for (auto const& file : { moovFirst(moov), moovLast(moov) }) {
        EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
        EXPECT_THAT(reasonAgainstRemoving(file), IsEmpty());
        EXPECT_THAT(reasonAgainstCleaning(file), IsEmpty());
    }
}

TEST(KXMP4EditSafety, FilesThatAreNoMoviesHaveNothingToEdit)
{
    for (auto const& file : { Bytes(), text("ID3"), zeros(100), jpeg(8, 8, 100) }) {
        EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
        EXPECT_THAT(reasonAgainstRemoving(file), IsEmpty());
        EXPECT_THAT(reasonAgainstCleaning(file), IsEmpty());
    }
}

TEST(KXMP4EditSafety, FilesWithoutCoversAndUserDataHaveNothingToEdit)
{
    auto const file = moovFirst(
        [](std::uint32_t media) { return atom("moov", trackWithTables(co64({ media }))); });
    EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
    EXPECT_THAT(reasonAgainstRemoving(file), IsEmpty());
    EXPECT_THAT(reasonAgainstCleaning(file), IsEmpty());
}

TEST(KXMP4EditSafety, ACoverOfTheSameSizeMovesNothing)
{
    auto const file = moovFirst([](std::uint32_t media) {
        return atom(
            "moov", trackWithTables(stco({ media })), trackWithTables(co64({ media })), userData);
    });
    EXPECT_THAT(reasonAgainstAdding(file, cover.size()), IsEmpty());
    EXPECT_FALSE(reasonAgainstAdding(file, cover.size() + 1).empty());
}

TEST(KXMP4EditSafety, Media64BitSizesAndOpenEndsAreNoHindrance)
{
    auto const moov = [](std::uint32_t media) { return moovWithTables(stco({ media })); };
    auto const end = static_cast<std::uint32_t>(ftyp().size() + moov(0).size());
    Bytes const media = filled(mediaLength, 0);
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), moov(end + 16), largeAtom("mdat", media))), IsEmpty());
    EXPECT_THAT(reasonAgainstAdding(join(ftyp(), moov(end + 8), atomClaiming(0, "mdat", media))),
        IsEmpty());
}

TEST(KXMP4EditSafety, FragmentsThatCountFromTheirStartAreSafe)
{
    constexpr std::uint32_t defaultBaseIsMoof = 0x20000;
    for (std::uint32_t const flags : { 0u, defaultBaseIsMoof })
        EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(flags, {}, 88))), IsEmpty());
}

TEST(KXMP4EditSafety, FragmentsThatCountFromTheStartOfTheFileMatterBehindTheEdit)
{
    auto const behind = fragmentedStart.size();
    EXPECT_THAT(reasonAgainstAdding(join(fragmentedStart, fragment(1, u64(behind), 88))),
        HasSubstr("movie fragment"));
    Bytes const inFront = join(ftyp(), fragment(1, u64(ftyp().size()), 88));
    EXPECT_THAT(reasonAgainstAdding(join(inFront, moovWithTables(stco({})))), IsEmpty());
}

TEST(KXMP4EditSafety, FragmentsWhoseMediaLiesBeyondTheEditMatter)
{
    Bytes const moov = moovWithTables(stco({}));
    auto const beyond = static_cast<std::uint32_t>(200 + moov.size());
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), fragment(0, {}, beyond), moov, atom("mdat", zeros(500)))),
        HasSubstr("movie fragment"));
}

TEST(KXMP4EditSafety, IndexesOfFragmentsMatterBehindTheEdit)
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

TEST(KXMP4EditSafety, SegmentIndexesMatterWhenTheEditLiesInWhatTheyReferTo)
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

TEST(KXMP4EditSafety, ItemsInTheFileMatterBehindTheEdit)
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

TEST(KXMP4EditSafety, OffsetsOfAuxiliaryInformationMatterBehindTheEdit)
{
    auto const moov = [](std::uint32_t media) {
        return moovWithTables(join(stco({ media }), atom("saio", u32(0), u32(1), u32(media))));
    };
    EXPECT_THAT(reasonAgainstAdding(moovFirst(moov)), HasSubstr("auxiliary"));
    EXPECT_THAT(reasonAgainstAdding(moovLast(moov)), IsEmpty());
}

TEST(KXMP4EditSafety, AtomsThatRunPastTheirParentMatter)
{
    // The tag list claims more than the metadata around it holds.
    Bytes const list = atomClaiming(500, "ilst", cover, title);
    Bytes const data = atom("udta", atom("meta", u32(0), hdlr("mdir"), list));
    auto const file = moovFirst([&](std::uint32_t media) {
        return atom("moov", trackWithTables(stco({ media })), data, atom("free", zeros(600)));
    });
    EXPECT_FALSE(reasonAgainstRemoving(file).empty());
}

TEST(KXMP4EditSafety, ACutOffMovieAtomIsNoHindrance)
{
    Bytes const moov = moovWithTables(stco({ 40 }));
    auto const claimed = static_cast<std::uint32_t>(moov.size() + 100);
    Bytes const payload(moov.begin() + 8, moov.end());
    EXPECT_THAT(
        reasonAgainstAdding(join(ftyp(), atomClaiming(claimed, "moov", payload))), IsEmpty());
}

TEST(KXMP4EditSafety, AnAtomWithoutChildrenThatRunsPastItsParentIsNoHindranceInFrontOfTheEdit)
{
    Bytes const broken = atom("trak", atom("mdia", atomClaiming(0x70000000, "what")));
    auto const file = moovFirst([&](std::uint32_t media) {
        return atom("moov", broken, trackWithTables(stco({ media })), userData);
    });
    EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
    Bytes const container = atom("trak", atom("mdia", atomClaiming(0x70000000, "minf")));
    auto const walkedTwice = moovFirst([&](std::uint32_t media) {
        return atom("moov", container, trackWithTables(stco({ media })), userData);
    });
    EXPECT_FALSE(reasonAgainstAdding(walkedTwice).empty());
}

TEST(KXMP4EditSafety, AnswersForEditsOfSingleAtoms)
{
    auto const file
        = moovFirst([](std::uint32_t media) { return moovWithTables(stco({ media })); });
    auto const data = reader(file);
    KXMP4EditSafety const safety(*data);
    auto const table = lastAtom(treeOf(file), "moov/trak");
    auto const media = lastAtom(treeOf(file), "mdat");
    auto const size = static_cast<std::int64_t>(media->size());
    EXPECT_EQ(safety.reasonAgainstEditAt(table->offset(), 100), std::nullopt);
    EXPECT_EQ(safety.reasonAgainstEditAt(media->offset(), 100), std::nullopt);
    EXPECT_EQ(safety.reasonAgainstEditAt(0, 100), std::nullopt);
    EXPECT_EQ(safety.reasonAgainstEditAt(0, 0), std::nullopt);
    EXPECT_THAT(
        safety.reasonAgainstEditAt(media->offset(), -size).value_or(""), HasSubstr("media"));
    EXPECT_TRUE(safety.reasonAgainstEditAt(media->offset(), -size - 1).has_value());
    EXPECT_TRUE(safety.reasonAgainstEditAt(3, 100).has_value());
    EXPECT_TRUE(safety.reasonAgainstEditAt(0, INT64_MIN).has_value());
    EXPECT_THAT(
        safety.reasonAgainstEditAt(table->offset(), 0xFFFFFFFF).value_or(""), HasSubstr("4 GiB"));
}
