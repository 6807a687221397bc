#include "kxmd/mp4/KXMDFileMetaMP4.h"

#include "support/Builders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace build;
using testing::IsEmpty;

namespace {

std::shared_ptr<KXMDFileMetaMP4> metaOf(Bytes const& file)
{
    auto const meta = std::make_shared<KXMDFileMetaMP4>();
    EXPECT_TRUE(meta->parseAbstractData(*reader(file)));
    return meta;
}

Bytes fileWithTags(Bytes const& tags) { return join(ftyp(), atom("moov", userDataWithTags(tags))); }

Bytes const soundTrack = track("soun", stsd(soundEntry("mp4a")));
Bytes const videoTrack = track("vide", stsd(videoEntry("avc1", 64, 48)));

}

TEST(KXMDFileMetaMP4, TakesTheFourTags)
{
    auto const meta = metaOf(fileWithTags(join(tagAtom("\xA9nam", "Title"),
        tagAtom("\xA9"
                "ART",
            "Artist"),
        tagAtom("\xA9"
                "alb",
            "Album"),
        tagAtom("aART", "Band"))));
    EXPECT_EQ(meta->metadataForKey("Name"), "Title");
    EXPECT_EQ(meta->metadataForKey("Artist"), "Artist");
    EXPECT_EQ(meta->metadataForKey("Album"), "Album");
    EXPECT_EQ(meta->metadataForKey("Album Artist"), "Band");
    EXPECT_EQ(meta->metaType(), KXMDMetaTypeMP4);
}

TEST(KXMDFileMetaMP4, UpperCaseArtistWinsOverLowerCase)
{
    Bytes const upper = tagAtom("\xA9"
                                "ART",
        "A");
    Bytes const lower = tagAtom("\xA9"
                                "art",
        "B");
    EXPECT_EQ(metaOf(fileWithTags(join(upper, lower)))->metadataForKey("Artist"), "A");
    EXPECT_EQ(metaOf(fileWithTags(join(lower, upper)))->metadataForKey("Artist"), "A");
    EXPECT_EQ(metaOf(fileWithTags(lower))->metadataForKey("Artist"), "B");
}

TEST(KXMDFileMetaMP4, UpperCaseArtistWithoutTextLeavesTheLowerCaseOne)
{
    Bytes const tags = join(tagAtom("\xA9"
                                    "art",
                                "B"),
        atom("\xA9"
             "ART"));
    EXPECT_EQ(metaOf(fileWithTags(tags))->metadataForKey("Artist"), "B");
}

TEST(KXMDFileMetaMP4, AlbumArtistAloneGivesNoArtist)
{
    auto const meta = metaOf(fileWithTags(tagAtom("aART", "Band")));
    EXPECT_EQ(meta->metadataForKey("Album Artist"), "Band");
    EXPECT_EQ(meta->metadataForKey("Artist"), std::nullopt);
}

TEST(KXMDFileMetaMP4, EachTagIsTakenFromTheLastListThatHoldsIt)
{
    auto const meta = metaOf(join(ftyp(),
        atom("moov", userDataWithTags(join(tagAtom("\xA9nam", "first"), tagAtom("aART", "Band"))),
            userDataWithTags(tagAtom("\xA9nam", "second")))));
    EXPECT_EQ(meta->metadataForKey("Name"), "second");
    EXPECT_EQ(meta->metadataForKey("Album Artist"), "Band");
}

TEST(KXMDFileMetaMP4, LastAtomOfATagCountsAlsoWithoutText)
{
    auto const meta
        = metaOf(fileWithTags(join(tagAtom("\xA9nam", "first"), tagAtom("\xA9nam", ""))));
    EXPECT_EQ(meta->metadataForKey("Name"), std::nullopt);
}

TEST(KXMDFileMetaMP4, QuickTimeMetadataWithoutVersionIsRead)
{
    auto const meta = metaOf(join(ftyp(),
        atom("moov",
            atom("udta", atom("meta", hdlr("mdir"), atom("ilst", tagAtom("\xA9nam", "Title")))))));
    EXPECT_EQ(meta->metadataForKey("Name"), "Title");
}

TEST(KXMDFileMetaMP4, VideoMediaHeaderAloneMeansVideo)
{
    auto const meta = metaOf(
        join(ftyp(), atom("moov", atom("trak", atom("mdia", atom("minf", atom("vmhd")))))));
    EXPECT_TRUE(meta->containsVideo());
    EXPECT_THAT(meta->videoCodecsInfo(), IsEmpty());
}

TEST(KXMDFileMetaMP4, AudioFileHasAudioRecordsOnly)
{
    auto const meta = metaOf(join(ftyp(), atom("moov", soundTrack)));
    EXPECT_FALSE(meta->containsVideo());
    EXPECT_THAT(meta->videoCodecsInfo(), IsEmpty());
    ASSERT_EQ(meta->audioCodecsInfo().size(), 1u);
    EXPECT_EQ(meta->audioCodecsInfo()[0].codec(), KXMDCodecAAC);
}

TEST(KXMDFileMetaMP4, EverySampleEntryOfEveryTrackHasARecordInFileOrder)
{
    Bytes const second = track("soun", stsd(join(soundEntry("samr"), soundEntry("sawb"))));
    auto const meta = metaOf(join(ftyp(), atom("moov", videoTrack, soundTrack, second)));
    ASSERT_EQ(meta->videoCodecsInfo().size(), 1u);
    auto const audio = meta->audioCodecsInfo();
    ASSERT_EQ(audio.size(), 3u);
    EXPECT_EQ(audio[0].codec(), KXMDCodecAAC);
    EXPECT_EQ(audio[1].codec(), KXMDCodecAMR);
    EXPECT_EQ(audio[2].codec(), KXMDCodecAMRWB);
}

TEST(KXMDFileMetaMP4, SecondParseForgetsTheTagsOfTheFirst)
{
    auto const meta = metaOf(fileWithTags(tagAtom("\xA9nam", "Title")));
    auto const firstTree = meta->mp4Atom();
    Bytes const without = fileWithTags({});
    EXPECT_TRUE(meta->parseAbstractData(*reader(without)));
    EXPECT_EQ(meta->metadataForKey("Name"), std::nullopt);
    EXPECT_NE(meta->mp4Atom(), firstTree);
    EXPECT_EQ(meta->filesize(), without.size());
}

TEST(KXMDFileMetaMP4, UnparsedObjectAnswersEverything)
{
    KXMDFileMetaMP4 const meta;
    EXPECT_FALSE(meta.containsVideo());
    EXPECT_THAT(meta.audioCodecsInfo(), IsEmpty());
    EXPECT_FALSE(meta.hasValidAlbumCover());
    EXPECT_FALSE(meta.canInsertAlbumCover());
    EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);
}

TEST(KXMDFileMetaMP4, CoversAreJudgedByWidestAndHighest)
{
    struct Case {
        std::vector<Bytes> covers;
        bool isValid;
    };
    Case const cases[] {
        { {}, false },
        { { jpeg(200, 200) }, true },
        { { jpeg(199, 300) }, false },
        { { png(150, 400), jpeg(400, 150) }, true },
        { { jpeg(150, 150), jpeg(150, 150) }, false },
    };
    for (auto const& [covers, isValid] : cases) {
        Bytes tags;
        for (auto const& cover : covers)
            tags = join(std::move(tags), covr(13, cover));
        EXPECT_EQ(metaOf(fileWithTags(tags))->hasValidAlbumCover(), isValid);
    }
}

TEST(KXMDFileMetaMP4, CoverCanBeInsertedBesideTagListAndChunkOffsetTable)
{
    Bytes const tags = userDataWithTags(tagAtom("\xA9nam", "Title"));
    EXPECT_TRUE(metaOf(join(ftyp(), atom("moov", soundTrack, tags)))->canInsertAlbumCover());
    EXPECT_FALSE(metaOf(join(ftyp(), atom("moov", soundTrack)))->canInsertAlbumCover());
    EXPECT_FALSE(metaOf(join(ftyp(), atom("moov", tags)))->canInsertAlbumCover());
}

TEST(KXMDFileMetaMP4, EmbeddedCoversCountWithTheirHeaders)
{
    Bytes const first = covr(13, jpeg(10, 10, 100));
    Bytes const second = covr(27, zeros(50)); // Of a type that is not shown; counts all the same.
    EXPECT_EQ(metaOf(fileWithTags(join(first, second)))->albumCoverSizeForEmbeddedTags(),
        first.size() + second.size());
}
