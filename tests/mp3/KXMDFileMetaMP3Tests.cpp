#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include "support/Builders.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Bytes title(std::string_view text, ID3 version = ID3::v23)
{
    return textFrame(version, version == ID3::v22 ? "TT2" : "TIT2", text);
}

bool parse(KXMDFileMetaMP3& meta, Bytes bytes)
{
    return meta.parseAbstractData(*reader(std::move(bytes)));
}

std::vector<std::uint64_t> offsetsOf(KXMDFileMetaMP3 const& meta)
{
    std::vector<std::uint64_t> offsets;
    for (auto const& frame : *meta.frames())
        offsets.push_back(frame->offset());
    return offsets;
}

/// A tag that is refused, and what is logged of it.
struct Refusal {
    std::string_view reason;
    Bytes bytes;
    std::vector<std::string> lines;
};

std::vector<Refusal> refusals()
{
    std::string const version = "Metadata: Version not supported";
    std::string const unsynchronisation = "Metadata: Unsynchronization not supported";
    std::string const compression = "Metadata: Compression not supported";
    Bytes const whole = tag(ID3::v23, title("Blue"));
    auto const firstBytes
        = [&whole](std::ptrdiff_t count) { return Bytes(whole.begin(), whole.begin() + count); };
    auto const ofVersion = [](std::uint32_t word, std::uint32_t flags = 0) {
        return tagClaiming(word, flags, 20, zeros(20));
    };
    return {
        { "nothing", {}, {} },
        { "other identifier", text("IDE\3\0\0\0\0\0\0"), {} },
        { "tag after the start", join(u8(0), whole), {} },
        { "cut in the identifier", firstBytes(2), {} },
        { "cut in the version", firstBytes(4), {} },
        { "no flags", firstBytes(5), {} },
        { "cut in the size", firstBytes(9), {} },
        { "version 0", ofVersion(0x0000), { version } },
        { "version 1", ofVersion(0x0100), { version } },
        { "version 1.255", ofVersion(0x01FF), { version } },
        { "version 5", ofVersion(0x0500), { version } },
        { "version 255", ofVersion(0xFF00), { version } },
        { "unsynchronised 2.2", ofVersion(0x0200, 0x80), { unsynchronisation } },
        { "unsynchronised 2.3", ofVersion(0x0300, 0x80), { unsynchronisation } },
        { "unsynchronised 2.4", ofVersion(0x0400, 0xC0), { unsynchronisation } },
        { "compressed 2.2", ofVersion(0x0200, 0x40), { compression } },
        // One line each: the first reason, in this order.
        { "version 5, unsynchronised", ofVersion(0x0500, 0xC0), { version } },
        { "unsynchronised and compressed", ofVersion(0x0200, 0xC0), { unsynchronisation } },
    };
}

}

TEST(KXMDFileMetaMP3, IsEmptyBeforeItParses)
{
    KXMDFileMetaMP3 const meta;
    EXPECT_EQ(meta.metaType(), 1);
    EXPECT_EQ(meta.id3Version(), 0u);
    EXPECT_EQ(meta.majorVersion(), 0u);
    EXPECT_EQ(meta.id3Flags(), 0u);
    EXPECT_EQ(meta.headerSize(), 0u);
    EXPECT_THAT(*meta.frames(), IsEmpty());
    EXPECT_FALSE(meta.canInsertAlbumCover());
}

TEST(KXMDFileMetaMP3, IsParsedFromTheStartWhereverTheReaderStands)
{
    auto const data = reader(tag(ID3::v23, title("Blue")));
    data->setOffset(7);
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(meta.parseAbstractData(*data));
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
}

TEST(KXMDFileMetaMP3, AcceptsTheThreeVersionsWithAnyRevision)
{
    LogCapture const log;
    for (std::uint32_t const word :
        { 0x0200u, 0x0300u, 0x0400u, 0x0401u, 0x02FFu, 0x03FFu, 0x04FFu }) {
        SCOPED_TRACE(word);
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(parse(meta, tagClaiming(word, 0x1F, 20, zeros(30))));
        EXPECT_EQ(meta.id3Version(), word);
        EXPECT_EQ(meta.majorVersion(), word & 0xFF00);
        EXPECT_EQ(meta.id3Flags(), 0x1F); // The other flags mean nothing.
        EXPECT_EQ(meta.headerSize(), 20u);
        EXPECT_EQ(meta.filesize(), 40u);
        EXPECT_THAT(*meta.frames(), IsEmpty()); // All padding.
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMDFileMetaMP3, RefusesOtherTagsWithTheirReason)
{
    for (auto const& [reason, bytes, lines] : refusals()) {
        SCOPED_TRACE(reason);
        LogCapture const log;
        KXMDFileMetaMP3 meta;
        EXPECT_FALSE(parse(meta, bytes));
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(meta.filesize(), 0u);
    }
}

TEST(KXMDFileMetaMP3, RefusalLeavesTheObjectAsItWas)
{
    LogCapture const log;
    Bytes const good
        = tag(ID3::v24, join(title("Blue", ID3::v24), textFrame(ID3::v24, "TPE1", "Ann")));
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta, good));
    auto const frames = meta.frames();
    for (auto const& refusal : refusals()) {
        SCOPED_TRACE(refusal.reason);
        EXPECT_FALSE(parse(meta, refusal.bytes));
        EXPECT_EQ(meta.frames(), frames);
        EXPECT_EQ(meta.id3Version(), 0x0400u);
        EXPECT_EQ(meta.id3Flags(), 0u);
        EXPECT_EQ(meta.headerSize(), good.size() - 10);
        EXPECT_EQ(meta.filesize(), good.size());
        EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
        EXPECT_EQ(meta.metadataForKey("Artist"), "Ann");
    }
}

TEST(KXMDFileMetaMP3, TagOfSizeZeroHasNoFrames)
{
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(parse(meta, tagClaiming(0x0300, 0, 0, title("Blue"))));
    EXPECT_THAT(*meta.frames(), IsEmpty());
    EXPECT_EQ(meta.headerSize(), 0u);
    EXPECT_EQ(meta.id3Version(), 0x0300u);
    EXPECT_EQ(meta.filesize(), 10 + title("Blue").size());
    EXPECT_FALSE(meta.metadataForKey("Name"));
}

TEST(KXMDFileMetaMP3, HeaderAloneIsATagWithoutFrames)
{
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(parse(meta, tagClaiming(0x0300, 0, 0x0FFFFFFF, {})));
    EXPECT_THAT(*meta.frames(), IsEmpty());
    EXPECT_EQ(meta.headerSize(), 0x0FFFFFFFu);
}

TEST(KXMDFileMetaMP3, HeaderSizeIsSyncSafe)
{
    KXMDFileMetaMP3 meta;
    EXPECT_TRUE(
        parse(meta, join(text("ID3"), u16(0x0300), u8(0), bytes({ 0x80, 0xFF, 0x82, 0x81 }))));
    EXPECT_EQ(meta.headerSize(), 0x7Fu << 14 | 2u << 7 | 1u);
}

// Metadata.

TEST(KXMDFileMetaMP3, Version2HasNoAlbumArtist)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta,
        tag(ID3::v22,
            join(textFrame(ID3::v22, "TT2", "Blue"), textFrame(ID3::v22, "TP1", "Ann"),
                textFrame(ID3::v22, "TP2", "Various"), textFrame(ID3::v22, "TAL", "Sea")))));
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_EQ(meta.metadataForKey("Artist"), "Ann");
    EXPECT_EQ(meta.metadataForKey("Album"), "Sea");
    EXPECT_FALSE(meta.metadataForKey("Album Artist"));
    EXPECT_EQ(meta.frames()->size(), 4u);
}

TEST(KXMDFileMetaMP3, Versions3And4HaveFourTags)
{
    for (ID3 const version : { ID3::v23, ID3::v24 }) {
        KXMDFileMetaMP3 meta;
        ASSERT_TRUE(parse(meta,
            tag(version,
                join(textFrame(version, "TALB", "Sea"), textFrame(version, "TPE2", "Various"),
                    textFrame(version, "TPE1", "Ann"), textFrame(version, "TIT2", "Blue")))));
        EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
        EXPECT_EQ(meta.metadataForKey("Artist"), "Ann");
        EXPECT_EQ(meta.metadataForKey("Album"), "Sea");
        EXPECT_EQ(meta.metadataForKey("Album Artist"), "Various");
    }
}

TEST(KXMDFileMetaMP3, OfTwoTitlesTheSecondCounts)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta, tag(ID3::v23, join(title("Blue"), title("Red")))));
    EXPECT_EQ(meta.metadataForKey("Name"), "Red");
}

TEST(KXMDFileMetaMP3, LastTitleCountsAlsoWhenItCannotBeDecoded)
{
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    Bytes const undecodable = frame(ID3::v23, "TIT2", join(u8(1), text("odd")));
    ASSERT_TRUE(parse(meta, tag(ID3::v23, join(title("Blue"), undecodable))));
    EXPECT_EQ(meta.frames()->size(), 2u);
    EXPECT_FALSE(meta.metadataForKey("Name"));
    EXPECT_THAT(log.lines(),
        ElementsAre("Metadata: KXMetaMP3Frame->frameWithData: Couldn't parse string value"));
}

TEST(KXMDFileMetaMP3, EmptyTextLeavesItsKeyUnset)
{
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta, tag(ID3::v23, join(title(""), textFrame(ID3::v23, "TPE1", "Ann")))));
    EXPECT_FALSE(meta.metadataForKey("Name"));
    EXPECT_EQ(meta.metadataForKey("Artist"), "Ann");
}

TEST(KXMDFileMetaMP3, IdentifiersOfAnotherVersionMeanNothing)
{
    KXMDFileMetaMP3 meta;
    // Decoded, since "TAL," is a part of the list of texts, yet not the album's identifier.
    ASSERT_TRUE(parse(meta, tag(ID3::v23, textFrame(ID3::v23, "TAL,", "Sea"))));
    EXPECT_EQ((*meta.frames())[0]->content(), "Sea");
    EXPECT_FALSE(meta.metadataForKey("Album"));
}

TEST(KXMDFileMetaMP3, ParsingAgainReplacesEverything)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(
        parse(meta, tag(ID3::v23, join(title("Blue"), textFrame(ID3::v23, "TPE1", "Ann")))));
    meta.setMetadataForKey("kept?", "Mood");
    auto const before = meta.frames();

    ASSERT_TRUE(parse(meta, tag(ID3::v22, title("Red", ID3::v22), 0x01)));
    EXPECT_EQ(meta.metadataForKey("Name"), "Red");
    EXPECT_FALSE(meta.metadataForKey("Artist"));
    EXPECT_FALSE(meta.metadataForKey("Mood"));
    EXPECT_EQ(meta.majorVersion(), 0x0200u);
    EXPECT_EQ(meta.id3Flags(), 1u);
    EXPECT_EQ(meta.frames()->size(), 1u);

    ASSERT_EQ(before->size(), 2u); // The old list stays as it was for those who hold it.
    EXPECT_EQ((*before)[0]->content(), "Blue");
}

// Where frames begin and end.

TEST(KXMDFileMetaMP3, FramesThatBeginInTheLastTenBytesAreLeftOut)
{
    // An empty frame has ten bytes: positions 10, 20, and 30 in a tag that claims `size` bytes.
    Bytes const empty = frame(ID3::v23, "TCON", {});
    struct {
        std::uint32_t size;
        std::vector<std::uint64_t> offsets;
    } const cases[] {
        { 10, {} },
        { 11, { 10 } }, // Begins at size - 1.
        { 20, { 10 } },
        { 21, { 10, 20 } },
        { 25, { 10, 20 } }, // The third begins at size + 5, inside of the tag.
        { 30, { 10, 20 } },
        { 31, { 10, 20, 30 } },
    };
    for (auto const& [size, offsets] : cases) {
        KXMDFileMetaMP3 meta;
        EXPECT_TRUE(
            parse(meta, tagClaiming(0x0300, 0, size, join(empty, empty, empty, zeros(20)))));
        EXPECT_EQ(offsetsOf(meta), offsets) << size;
    }
}

TEST(KXMDFileMetaMP3, FrameMayReachBeyondTheTag)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(
        parse(meta, tagClaiming(0x0300, 0, 11, join(title("Longer than its tag"), zeros(9)))));
    EXPECT_EQ(meta.metadataForKey("Name"), "Longer than its tag");
}

TEST(KXMDFileMetaMP3, FrameMayReachBeyondTheFileAndIsTheLast)
{
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta,
        tagClaiming(
            0x0300, 0, 100'000, join(title("Blue"), frameClaiming(ID3::v23, 5000, "TCON", {})))));
    EXPECT_EQ(meta.frames()->size(), 2u);
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMDFileMetaMP3, PaddingEndsTheFrames)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta, tag(ID3::v23, join(title("Blue"), zeros(4), title("Red")))));
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_EQ(meta.frames()->size(), 1u);
}

TEST(KXMDFileMetaMP3, ExtendedHeaderOfVersion3IsSkippedAfterItsSize)
{
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    Bytes const content = join(u32(200), filled(200, 0xEE), title("Blue"));
    ASSERT_TRUE(parse(meta, tag(ID3::v23, content, 0x40)));
    EXPECT_THAT(offsetsOf(meta), ElementsAre(214));
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_EQ(meta.id3Flags(), 0x40);
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: Contains extended header v2.3"));
}

TEST(KXMDFileMetaMP3, ExtendedHeaderOfVersion4IsSkippedWithFourBytesMore)
{
    // The size is sync-safe and counts its own four bytes; they are skipped once more.
    LogCapture const log;
    KXMDFileMetaMP3 meta;
    Bytes const content = join(syncSafe(200), filled(200, 0xEE), title("Blue", ID3::v24));
    ASSERT_TRUE(parse(meta, tag(ID3::v24, content, 0x40)));
    EXPECT_THAT(offsetsOf(meta), ElementsAre(214));
    EXPECT_EQ(meta.metadataForKey("Name"), "Blue");
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: Contains extended header v2.4"));
}

TEST(KXMDFileMetaMP3, ExtendedHeaderMayBeMissingOrClaimMoreThanThereIs)
{
    LogCapture const log;
    for (ID3 const version : { ID3::v23, ID3::v24 }) {
        for (Bytes const& content : { Bytes(), zeros(3), filled(4, 0xFF), filled(40, 0xFF) }) {
            KXMDFileMetaMP3 meta;
            EXPECT_TRUE(
                parse(meta, tagClaiming(static_cast<std::uint16_t>(version), 0x40, 1000, content)));
            EXPECT_THAT(*meta.frames(), IsEmpty());
        }
    }
}

// Questions.

TEST(KXMDFileMetaMP3, IdentifiersFollowTheVersion)
{
    struct {
        std::uint32_t version;
        std::string_view title, album, albumArtist, artist, albumCover, mimeJPEG;
    } const cases[] {
        { 0x0200, "TT2", "TAL", "", "TP1", "PIC", "JPG" },
        { 0x0201, "TT2", "TAL", "", "TP1", "PIC", "JPG" },
        { 0x0300, "TIT2", "TALB", "TPE2", "TPE1", "APIC", "image/jpeg" },
        { 0x0400, "TIT2", "TALB", "TPE2", "TPE1", "APIC", "image/jpeg" },
        { 0, "", "", "", "", "", "" }, // Not parsed yet.
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.version);
        KXMDFileMetaMP3 meta;
        if (test.version) {
            ASSERT_TRUE(parse(meta, tagClaiming(test.version, 0, 0, {})));
        }
        EXPECT_EQ(meta.titleTag(), test.title);
        EXPECT_EQ(meta.albumTag(), test.album);
        EXPECT_EQ(meta.albumArtistTag(), test.albumArtist);
        EXPECT_EQ(meta.artistTag(), test.artist);
        EXPECT_EQ(meta.albumCoverTag(), test.albumCover);
        EXPECT_EQ(meta.mimeJPEG(), test.mimeJPEG);
    }
}

TEST(KXMDFileMetaMP3, AllFramesWithTagAreEqualToItAndInOrder)
{
    KXMDFileMetaMP3 meta;
    ASSERT_TRUE(parse(meta,
        tag(ID3::v23, join(title("Blue"), textFrame(ID3::v23, "TPE1", "Ann"), title("Red")))));
    auto const titles = meta.allFramesWithTag("TIT2");
    ASSERT_TRUE(titles);
    ASSERT_EQ(titles->size(), 2u);
    EXPECT_EQ((*titles)[0], (*meta.frames())[0]);
    EXPECT_EQ((*titles)[1], (*meta.frames())[2]);
    for (std::string_view const other : { "TIT", "TIT22", "tit2", "TALB" }) {
        auto const frames = meta.allFramesWithTag(other);
        ASSERT_TRUE(frames) << other;
        EXPECT_THAT(*frames, IsEmpty()) << other;
    }
}

TEST(KXMDFileMetaMP3, AllFramesWithAnEmptyTagAreAbsent)
{
    KXMDFileMetaMP3 meta;
    EXPECT_FALSE(meta.allFramesWithTag(""));
    ASSERT_TRUE(parse(meta, tag(ID3::v23, title("Blue"))));
    EXPECT_FALSE(meta.allFramesWithTag(""));
}

TEST(KXMDFileMetaMP3, IsOneMP3StreamWithoutVideo)
{
    KXMDFileMetaMP3 const meta;
    EXPECT_FALSE(meta.containsVideo());
    EXPECT_THAT(meta.videoCodecsInfo(), IsEmpty());
    auto const codecs = meta.audioCodecsInfo();
    ASSERT_EQ(codecs.size(), 1u);
    EXPECT_EQ(codecs[0].description(), "Codec: MP3 Audio/None Level:0");
    EXPECT_EQ(codecs[0].profile(), KXMDProfileUnknown);
    EXPECT_EQ(codecs[0].audioChannels(), 0);
    EXPECT_EQ(codecs[0].bitRate(), 0.0);
}
