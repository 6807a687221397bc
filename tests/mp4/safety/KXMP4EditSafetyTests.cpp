#include "support/AtomTrees.h"
#include "support/EditableMovies.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

using namespace build;
using namespace editable;
using testing::HasSubstr;
using testing::IsEmpty;

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

TEST(KXMP4EditSafety, AMovieWithoutAPlaceForACoverGetsNone)
{
    auto const file = moovFirst(
        [](std::uint32_t media) { return atom("moov", trackWithTables(stco({ media }))); });
    EXPECT_THAT(reasonAgainstAdding(file), IsEmpty());
}

TEST(KXMP4EditSafety, AtomsAfterTheFieldsOfASoundEntryOfEachVersionMatter)
{
    constexpr std::uint32_t fieldsOfVersion[] { 0, 16, 36 };
    for (std::uint32_t version = 0; version < std::size(fieldsOfVersion); ++version) {
        auto const reason = [&](std::uint32_t excess) {
            Bytes const edited = atom("esds", zeros(4));
            auto const size = static_cast<std::uint32_t>(8 + edited.size()) + excess;
            Bytes const extension = atomClaiming(size, "wave", edited);
            Bytes const entry = atom("mp4a", zeros(6), u16(1), u16(version),
                zeros(18 + fieldsOfVersion[version]), extension);
            Bytes const movie = join(ftyp(),
                atom("moov",
                    atom("trak",
                        atom("mdia", hdlr("soun"),
                            atom("minf", atom("stbl", stsd(entry), stco({})))))));
            auto const extensionAt = static_cast<std::uint64_t>(
                std::search(movie.begin(), movie.end(), extension.begin(), extension.end())
                - movie.begin());
            auto const data = reader(movie);
            return KXMP4EditSafety(*data).reasonAgainstEditAt(extensionAt + 8, 100).value_or("");
        };
        EXPECT_THAT(reason(0), IsEmpty()) << version;
        EXPECT_THAT(reason(1), HasSubstr("contradict each other")) << version;
    }
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

TEST(KXMP4EditSafety, ACoverThatWasCutOffCanNeitherBeRemovedNorReplaced)
{
    auto const claiming = [](char const* type, Bytes const& payload) {
        constexpr std::uint32_t lost = 100;
        return atomClaiming(static_cast<std::uint32_t>(8 + payload.size()) + lost, type, payload);
    };
    Bytes const tags = claiming("ilst", join(title, claiming("covr", zeros(50))));
    Bytes const metadata = claiming("meta", join(u32(0), hdlr("mdir"), tags));
    auto const file = join(
        ftyp(), claiming("moov", join(trackWithTables(stco({ 40 })), claiming("udta", metadata))));
    EXPECT_THAT(reasonAgainstRemoving(file), HasSubstr("past the end of the file"));
    EXPECT_THAT(reasonAgainstAdding(file), HasSubstr("past the end of the file"));
}

TEST(KXMP4EditSafety, AtomsThatWereCutOffTogetherWithTheMovieAtomAreNoHindrance)
{
    constexpr std::uint32_t lost = 100; // Bytes of padding at the very end.
    Bytes const track = trackWithTables(stco({ 40 }));
    auto const cutOffFile = [&](std::uint32_t lostByMetadata) {
        auto const claiming = [](char const* type, std::uint32_t excess, Bytes const& payload) {
            auto const size = static_cast<std::uint32_t>(8 + payload.size());
            return atomClaiming(size + excess, type, payload);
        };
        Bytes const metadata = claiming("meta", lostByMetadata,
            join(u32(0), hdlr("mdir"), atom("ilst", cover, title), claiming("free", lost, {})));
        return join(ftyp(), claiming("moov", lost, join(track, claiming("udta", lost, metadata))));
    };
    EXPECT_THAT(reasonAgainstRemoving(cutOffFile(lost)), IsEmpty());
    EXPECT_FALSE(reasonAgainstRemoving(cutOffFile(lost + 1)).empty());
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

TEST(KXMP4EditSafety, ATableThatIsCorrectedOnceMoreWhileItsOtherParentIsThereMatters)
{
    // The metadata of the second user data runs on into the track, which is so found twice until
    // all user data is gone.
    Bytes const otherData = atom("udta", tagAtom("\xA9nam", "Other"));
    auto const reason = [&](Bytes const& firstData, std::uint32_t excess) {
        return reasonAgainstCleaning(moovFirst([&](std::uint32_t media) {
            Bytes const list = atomClaiming(
                static_cast<std::uint32_t>(8 + cover.size()) + excess, "ilst", cover);
            auto const size = static_cast<std::uint32_t>(12 + list.size()) + excess;
            Bytes const data = atom("udta", atomClaiming(size, "meta", u32(0), list));
            return atom("moov", firstData, data, trackWithTables(stco({ media })));
        }));
    };
    auto const track = static_cast<std::uint32_t>(trackWithTables(stco({ 0 })).size());
    EXPECT_THAT(reason(otherData, 0), IsEmpty());
    EXPECT_THAT(reason({}, track), IsEmpty());
    EXPECT_FALSE(reason(otherData, track).empty());
}

TEST(KXMP4EditSafety, ATableThatIsCorrectedOnceMoreBeforeItIsRemovedMatters)
{
    // It has no room for its entries: those are what follows the user data.
    Bytes const table = atom("stco", u32(0), u32(100));
    auto const reason = [&](Bytes const& firstData) {
        return reasonAgainstCleaning(moovFirst([&](std::uint32_t media) {
            return atom("moov", firstData, atom("udta", table), trackWithTables(stco({ media })));
        }));
    };
    EXPECT_THAT(reason({}), IsEmpty());
    EXPECT_THAT(reason(atom("udta", title)), HasSubstr("not a chunk offset table"));
}

TEST(KXMP4EditSafety, AnAtomWhoseTypeIsASizeThatIsCorrectedMatters)
{
    // A detour leads to an atom of four bytes. Its type is the size of the movie, and that of a
    // table once the cover is gone: the movie's first atoms would be its entries.
    auto const fileWithDetour = [](std::uint32_t sizeOfMovie) {
        Bytes const padding = atom("free", zeros(16), u32(4));
        auto const toLastField = static_cast<std::uint32_t>(8 + padding.size() - 4);
        Bytes const detour = atom(
            "udta", atomClaiming(8 + toLastField + 1, "edts", atomClaiming(toLastField, "free")));
        Bytes const moov = moovWithTables(stco({ 40 }));
        return join(ftyp(), detour, padding,
            atomClaiming(sizeOfMovie, "moov", Bytes(moov.begin() + 8, moov.end())));
    };
    constexpr std::uint32_t typeOfTable = 0x7374636F;
    auto const file = fileWithDetour(typeOfTable);
    ASSERT_EQ(lastAtom(treeOf(file), "udta/edts/stco")->size(), 4u);
    EXPECT_FALSE(reasonAgainstAdding(file).empty());
    auto const sizeWithCover = typeOfTable + static_cast<std::uint32_t>(cover.size());
    EXPECT_FALSE(reasonAgainstAdding(fileWithDetour(sizeWithCover)).empty());
}

TEST(KXMP4EditSafety, ALargeAtomMattersOnlyWhereASizeInItsHeaderIsCorrected)
{
    // To the tree it has a size of 1, and the next atom begins a byte after it: a container of 300
    // bytes, which takes the last byte of its size from the type of the large one.
    auto const reason = [](Bytes const& largeInEntry, Bytes const& largeAfter) {
        return reasonAgainstCleaning(join(moovFirst([&](std::uint32_t media) {
            Bytes const track = atom("trak",
                atom("mdia", hdlr("soun"),
                    atom("minf",
                        atom("stbl", stsd(soundEntry("mp4a", largeInEntry)), stco({ media })))));
            return atom("moov", track, atom("udta", title), atom("udta", title));
        }),
            largeAfter));
    };
    Bytes const removed = atom("mp4a", zeros(100));
    Bytes const rest = join(removed, atom("free", zeros(300 - 8 - removed.size() - 8)));
    Bytes const shared = join(u32(1), u8(300 - 256), text("wave"), rest);
    Bytes const apart = atom("wave", rest);
    EXPECT_THAT(reason(apart, {}), IsEmpty());
    EXPECT_THAT(reason(apart, shared), IsEmpty());
    EXPECT_FALSE(reason(shared, {}).empty());
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
    EXPECT_THAT(safety.reasonAgainstEditAt(3, 100).value_or(""), HasSubstr("no atom of that size"));
    EXPECT_TRUE(safety.reasonAgainstEditAt(3, 1).has_value());
    EXPECT_EQ(safety.reasonAgainstEditAt(3, 0), std::nullopt);
    EXPECT_TRUE(safety.reasonAgainstEditAt(0, INT64_MIN).has_value());
    EXPECT_THAT(
        safety.reasonAgainstEditAt(table->offset(), 0xFFFFFFFF).value_or(""), HasSubstr("4 GiB"));
}

TEST(KXMP4EditSafety, AnEditThatTakesAHeaderApartMatters)
{
    // The tree takes "moov" to be one byte long and finds an atom between its bytes, of 365 bytes
    // by those and the type. Without it the last byte before it begins a header with what is left.
    constexpr std::uint32_t size = 0x16D, header = 16;
    std::uint64_t const place = ftyp().size() + 1;
    Bytes const first = atom("free", zeros(size - header - 8));
    Bytes const file = join(ftyp(), largeAtom("moov", join(first, userData)));
    auto const data = reader(file);
    EXPECT_THAT(
        KXMP4EditSafety(*data).reasonAgainstEditAt(place, -std::int64_t { size }).value_or(""),
        HasSubstr("contradict each other"));
}

TEST(KXMP4EditSafety, AFileOfMoreAtomsThanTheTreeKeepsIsNotEdited)
{
    constexpr std::size_t most = 1u << 20;
    LogCapture const log;
    auto const reason = [](std::size_t furtherAtoms) {
        Bytes const movie
            = moovFirst([](std::uint32_t media) { return moovWithTables(stco({ media })); });
        auto const data
            = reader(join(movie, concatenated(std::vector<Bytes>(furtherAtoms, atom("free")))));
        return KXMP4EditSafety(*data).reasonAgainstEditAt(0, 100).value_or("");
    };
    EXPECT_THAT(reason(most - 100), IsEmpty());
    EXPECT_THAT(reason(most), HasSubstr("too many atoms"));

    Bytes const withoutCover = moovFirst(
        [](std::uint32_t media) { return atom("moov", trackWithTables(stco({ media }))); });
    EXPECT_THAT(reasonAgainstRemoving(
                    join(withoutCover, concatenated(std::vector<Bytes>(most, atom("free"))))),
        IsEmpty());
}
