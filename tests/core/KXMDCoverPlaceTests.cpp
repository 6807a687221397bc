// The place for a cover in MP4 music.

#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/core/KXMDFileMeta.h"

#include "support/Builders.h"
#include "support/LogCapture.h"
#include "support/LyingSizes.h"

#include <gmock/gmock.h>

using namespace build;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t mediaLength = 64;
Bytes const media = atom("mdat", filled(mediaLength, 'm'));

/// User data stands before the movie's last atom when it was made, since it is never put at the
/// end.
Bytes movieAtom(Bytes const& userData, std::uint32_t chunk)
{
    return atom("moov", atom("mvhd", zeros(100)), userData,
        track("soun", stsd(soundEntry("mp4a")), { chunk, chunk + 32 }));
}

Bytes song(Bytes const& userData)
{
    auto const chunk = ftyp().size() + movieAtom(userData, 0).size() + 8;
    return join(ftyp(), movieAtom(userData, static_cast<std::uint32_t>(chunk)), media);
}

Bytes songWithMediaFirst(Bytes const& userData)
{
    return join(ftyp(), media, movieAtom(userData, static_cast<std::uint32_t>(ftyp().size() + 8)));
}

// What is made.
Bytes const handler = atom("hdlr", zeros(8), text("mdirappl"), zeros(9));
Bytes const firstTag = atom("pgap", atom("data", u32(21), u32(0), u8(0)));
Bytes const tagList = atom("ilst", firstTag);
Bytes const metadata = atom("meta", u32(0), handler, tagList);

bool canMake(Bytes const& file) { return KXMDCoverPlace::canMakeInData(*reader(file)); }

std::string reasonAgainst(Bytes const& file)
{
    return KXMDCoverPlace::reasonAgainstMakingInData(*reader(file)).value_or("");
}

Bytes made(Bytes const& file)
{
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_EQ(KXMDCoverPlace::makeInData(data), canMake(file));
    return { data->bytes().begin(), data->bytes().end() };
}

/// Adds a cover where there is a place for one.
Bytes withCover(Bytes const& file)
{
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(file));
    EXPECT_TRUE(meta && meta->canInsertAlbumCover());
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(meta && meta->addEncodedAlbumCoverToData(KXData(jpeg(300, 300, 500)), data));
    EXPECT_TRUE(meta && meta->hasValidAlbumCover());
    return { data->bytes().begin(), data->bytes().end() };
}

}

TEST(KXMDCoverPlace, WhatIsMissingIsMade)
{
    struct Case {
        Bytes before, after;
    };
    auto const title = userDataWithTags(tagAtom("\xA9too", "Program"));
    for (auto const& [before, after] : {
             Case { {}, atom("udta", metadata) },
             Case { atom("udta"), atom("udta", metadata) },
             Case { atom("udta", u32(0)), atom("udta", metadata, u32(0)) },
             Case { atom("udta", atom("name", text("N"))),
                 atom("udta", atom("name", text("N")), metadata) },
             Case { atom("udta", atom("meta", u32(0))), atom("udta", metadata) },
             Case { atom("udta", atom("meta")), atom("udta", metadata) },
             Case { atom("udta", atom("meta", u32(0), atom("free"))),
                 atom("udta", atom("meta", u32(0), handler, tagList, atom("free"))) },
             Case { atom("udta", atom("meta", u32(0), handler, atom("free"))),
                 atom("udta", atom("meta", u32(0), handler, tagList, atom("free"))) },
             Case { atom("udta", atom("meta", handler)),
                 atom("udta", atom("meta", handler, tagList)) },
             Case { atom("udta", atom("meta", u32(0), handler, atom("ilst"))),
                 atom("udta", metadata) },
         }) {
        EXPECT_EQ(made(song(before)), song(after));
        EXPECT_EQ(made(songWithMediaFirst(before)), songWithMediaFirst(after));
        EXPECT_EQ(reasonAgainst(song(before)), "");
        EXPECT_EQ(reasonAgainst(songWithMediaFirst(before)), "");
    }
}

TEST(KXMDCoverPlace, UserDataAtTheEndOfTheMovieMovesBeforeItsLastAtom)
{
    auto const movieOf = [](std::uint32_t chunk, Bytes const& before, Bytes const& after) {
        auto const sound = track("soun", stsd(soundEntry("mp4a")), { chunk });
        return join(ftyp(), atom("moov", before, sound, after));
    };
    auto const name = atom("name", text("N"));
    auto const lengthBefore = movieOf(0, atom("udta", name), {}).size() + 8;
    auto const file
        = join(movieOf(static_cast<std::uint32_t>(lengthBefore), {}, atom("udta", name)), media);
    auto const completed = atom("udta", name, metadata);
    auto const lengthAfter = movieOf(0, completed, {}).size() + 8;
    EXPECT_EQ(
        made(file), join(movieOf(static_cast<std::uint32_t>(lengthAfter), completed, {}), media));
    EXPECT_EQ(reasonAgainst(file), "");
}

TEST(KXMDCoverPlace, NoneIsMadeAmongItems)
{
    auto const items = song(atom("udta", atom("meta", u32(0), handler, atom("iloc", zeros(8)))));
    EXPECT_FALSE(canMake(items));
}

TEST(KXMDCoverPlace, CoverIsAddedThereAndItsRemovalLeavesThePlace)
{
    for (Bytes const& file : { song({}), songWithMediaFirst({}), song(atom("udta", u32(0))) }) {
        Bytes const place = made(file);
        Bytes const covered = withCover(place);
        EXPECT_GT(covered.size(), place.size() + 500);
        auto const data = std::make_shared<KXMutableData>(covered);
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(covered));
        ASSERT_TRUE(meta && meta->removeAlbumCoverFromData(data));
        EXPECT_THAT(data->bytes(), testing::ElementsAreArray(place));
    }
}

TEST(KXMDCoverPlace, NoneIsMadeWhereThereIsOne)
{
    for (Bytes const& userData :
        { userDataWithTags(tagAtom("\xA9nam", "Title")), userDataWithTags(covr(13, jpeg(8, 8))) }) {
        EXPECT_FALSE(canMake(song(userData)));
        EXPECT_EQ(made(song(userData)), song(userData));
        EXPECT_EQ(reasonAgainst(song(userData)), "");
    }
    EXPECT_FALSE(canMake(made(song({}))));
}

TEST(KXMDCoverPlace, NoneIsMadeInMetadataOfAnotherKind)
{
    auto const other = song(atom("udta", atom("meta", u32(0), hdlr("mdta"))));
    EXPECT_FALSE(canMake(other));
    EXPECT_EQ(made(other), other);
}

TEST(KXMDCoverPlace, NoneIsMadeInWhatIsNoMusic)
{
    auto const film = join(ftyp(), atom("moov", track("vide", stsd(videoEntry("avc1", 8, 8)))));
    auto const recording = join(atom("ftyp", text("isom"), u32(0)),
        atom("moov", track("soun", stsd(soundEntry("mp4a"))),
            track("vide", stsd(videoEntry("avc1", 8, 8)))));
    // A song without a 32-bit table of its media is never edited.
    auto const withoutTable = join(
        ftyp(), atom("moov", atom("trak", atom("mdia", hdlr("soun"), atom("minf", atom("stbl"))))));
    for (Bytes const& file : { film, recording, withoutTable, Bytes(), text("RIFF"), jpeg(8, 8, 99),
             tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Title")) }) {
        EXPECT_FALSE(canMake(file));
        EXPECT_EQ(made(file), file);
        EXPECT_EQ(reasonAgainst(file), "");
    }
    EXPECT_FALSE(KXMDCoverPlace::makeInData(nullptr));
}

TEST(KXMDCoverPlace, MediaThatWouldBeLostIsAReason)
{
    // A second track whose 64-bit table is not corrected.
    auto const file = join(ftyp(),
        atom("moov", track("soun", stsd(soundEntry("mp4a")), { 700 }),
            atom("trak",
                atom("mdia", hdlr("soun"),
                    atom("minf",
                        atom("stbl", stsd(soundEntry("mp4a")),
                            atom("co64", u32(0), u32(1), u64(700))))))),
        atom("mdat", zeros(900)));
    EXPECT_TRUE(canMake(file));
    EXPECT_THAT(reasonAgainst(file), HasSubstr("64-bit chunk offset table"));
}

TEST(KXMDCoverPlace, EveryTruncationIsSurvived)
{
    for (Bytes const& file : { song(atom("udta", u32(0))),
             song(atom("udta", atom("meta", u32(0), handler))), songWithMediaFirst({}) }) {
        for (std::size_t length = 0; length < file.size(); ++length) {
            Bytes const cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
            bool const isPossible = canMake(cut);
            EXPECT_EQ(made(cut) != cut, isPossible) << length;
            static_cast<void>(reasonAgainst(cut));
        }
    }
}

TEST(KXMDCoverPlace, SizesThatLieChangeNothingOrMakeAPlace)
{
    LogCapture const log; // Of every damage.
    auto const file = song(atom("udta", atom("meta", u32(0), handler)));
    forEachLyingSize(
        file, { 0u, 1u, 7u, 30u, 0x7FFFFFFFu, 0xFFFFFFFFu }, [](Bytes const& changed, auto, auto) {
            Bytes const after = made(changed);
            if (after != changed)
                withCover(after);
        });
}
