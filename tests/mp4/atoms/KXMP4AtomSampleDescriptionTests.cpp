#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"
#include "kxmd/mp4/atoms/KXMP4AtomMeta.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/atoms/KXMP4AtomSoundSD.h"
#include "kxmd/mp4/atoms/KXMP4AtomStsd.h"
#include "kxmd/mp4/atoms/KXMP4AtomVideoSD.h"
#include "support/AtomTrees.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::string_view tablePath = "moov/trak/mdia/minf/stbl/stsd";

/// The record of the only sample entry of a file's only track.
KXMDCodecInfo codecOf(std::string_view handlerType, Bytes const& entry)
{
    auto const root = treeOf(atom("moov", track(handlerType, stsd(entry))));
    auto const table = lastAtom<KXMP4AtomStsd>(root, tablePath);
    return table->codecsInfo().at(0);
}

Bytes const aacLowComplexity = bytes({ 0x12, 0x10 });

}

// Handlers.

TEST(KXMP4AtomHdlr, ReadsTheHandlerType)
{
    auto const root = treeOf(hdlr("vide"));
    auto const handler = lastAtom<KXMP4AtomHdlr>(root, "hdlr");
    ASSERT_TRUE(handler);
    EXPECT_EQ(handler->mediaHandlerType(), "vide");
    EXPECT_EQ(handler->description(), "MP4 Atom:hdlr - 33 : Media Handler Type:vide");
}

TEST(KXMP4AtomHdlr, SmallerThanTwentyBytesIsLoggedAndNotRead)
{
    LogCapture const log;
    auto const root = treeOf(join(atom("hdlr", zeros(8), text("vid")), text("e")));
    auto const handler = lastAtom<KXMP4AtomHdlr>(root, "hdlr");
    EXPECT_EQ(handler->mediaHandlerType(), std::nullopt);
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: KXMP4AtomHdlr->data too small"));
    EXPECT_EQ(handler->description(), "MP4 Atom:hdlr - 19 : Media Handler Type:(null)");
}

TEST(KXMP4AtomHdlr, TwentyBytesAreEnough)
{
    auto const root = treeOf(atom("hdlr", zeros(8), text("soun")));
    EXPECT_EQ(lastAtom<KXMP4AtomHdlr>(root, "hdlr")->mediaHandlerType(), "soun");
}

TEST(KXMP4AtomHdlr, TypeThatCannotBeReadLeavesTheOneBefore)
{
    KXMP4AtomHdlr handler;
    handler.parseWithParent(nullptr, *reader(hdlr("vide")));
    handler.parseWithParent(nullptr, *reader(atomClaiming(33, "hdlr", zeros(8), text("sou"))));
    EXPECT_EQ(handler.mediaHandlerType(), "vide");
    EXPECT_EQ(handler.trackTypeOfHandler(), KXMP4TrackTypeVideo);
}

TEST(KXMP4AtomHdlr, OtherVersionsAreNotRead)
{
    auto const root = treeOf(atom("hdlr", u8(1), zeros(7), text("soun"), zeros(12)));
    EXPECT_EQ(lastAtom<KXMP4AtomHdlr>(root, "hdlr")->mediaHandlerType(), std::nullopt);
}

// Metadata containers.

TEST(KXMP4AtomMeta, WithVersionAndWithoutShowTheSameChildren)
{
    for (Bytes const& version : { u32(0), Bytes() }) {
        auto const root = treeOf(atom("meta", version, hdlr("mdir"), atom("ilst")));
        auto const children = root->children().front()->children();
        ASSERT_EQ(children.size(), 2u);
        EXPECT_EQ(children[0]->tag(), "hdlr");
        EXPECT_EQ(children[1]->tag(), "ilst");
    }
}

TEST(KXMP4AtomMeta, FlagsAreTakenForTheSizeOfAChild)
{
    // Wanted: only a word of zeros counts as version and flags.
    auto const root = treeOf(atom("meta", u32(1), atom("ilst")));
    auto const children = root->children().front()->children();
    ASSERT_FALSE(children.empty());
    EXPECT_EQ(children[0]->size(), 1u);
}

// Chunk offset tables.

TEST(KXMP4AtomSampleTable, ReadsItsCountAndNothingElse)
{
    auto const root = treeOf(join(stco({ 1, 2, 3 }), atom("free")));
    EXPECT_EQ(lastAtom<KXMP4AtomSampleTable>(root, "stco")->noOfEntries(), 3u);
    EXPECT_TRUE(lastAtom(root, "free"));
}

TEST(KXMP4AtomSampleTable, CountBeyondTheDataIsKeptAndHarmless)
{
    auto const root = treeOf(join(atom("stco", u32(0), u32(0xFFFFFFFF)), atom("free")));
    EXPECT_EQ(lastAtom<KXMP4AtomSampleTable>(root, "stco")->noOfEntries(), 0xFFFFFFFFu);
    EXPECT_TRUE(lastAtom(root, "free"));
}

TEST(KXMP4AtomSampleTable, SkipsItsEntries)
{
    Bytes const table = stco({ 1, 2, 3 });
    auto const data = reader(join(table, atom("free")));
    data->setOffset(8);
    KXMP4AtomSampleTable atom;
    atom.parseAtomSpecificData(*data);
    EXPECT_EQ(data->offset(), table.size());
}

// Sample description tables.

TEST(KXMP4AtomStsd, VersionZeroReadsItsCount)
{
    auto const root = treeOf(atom("moov", track("soun", stsd(soundEntry("mp4a")))));
    auto const table = lastAtom<KXMP4AtomStsd>(root, tablePath);
    EXPECT_EQ(table->version(), 0);
    EXPECT_EQ(table->noOfSampleDescriptions(), 1u);
}

TEST(KXMP4AtomStsd, OtherVersionsHaveTheirChildrenRightAfterTheVersion)
{
    Bytes const table = atom("stsd", u8(1), soundEntry("samr"));
    auto const root = treeOf(atom("moov", track("soun", table)));
    auto const atom = lastAtom<KXMP4AtomStsd>(root, tablePath);
    EXPECT_EQ(atom->version(), 1);
    EXPECT_EQ(atom->noOfSampleDescriptions(), 0u);
    ASSERT_EQ(atom->children().size(), 1u);
    EXPECT_EQ(atom->children()[0]->tag(), "samr");
}

TEST(KXMP4AtomStsd, ChildrenAreFoundByScanningNotByCounting)
{
    Bytes const table = atom("stsd", u32(0), u32(77), soundEntry("samr"), soundEntry("sawb"));
    auto const root = treeOf(atom("moov", track("soun", table)));
    EXPECT_EQ(lastAtom(root, tablePath)->children().size(), 2u);
}

TEST(KXMP4AtomStsd, ChildThatIsNoSampleEntryHasAnEmptyRecord)
{
    auto const root = treeOf(
        atom("moov", track("soun", stsd(join(atom("Opus", zeros(28)), soundEntry("samr"))))));
    auto const codecs = lastAtom<KXMP4AtomStsd>(root, tablePath)->codecsInfo();
    ASSERT_EQ(codecs.size(), 2u);
    EXPECT_EQ(codecs[0].codec(), KXMDCodecNone);
    EXPECT_EQ(codecs[0].profile(), KXMDProfileUnknown);
    EXPECT_EQ(codecs[1].codec(), KXMDCodecAMR);
}

// Sound entries.

TEST(KXMP4AtomSoundSD, EveryVersionHasItsChannelsAndItsChildrenInPlace)
{
    for (std::uint32_t const version : { 0u, 1u, 2u }) {
        SCOPED_TRACE(version);
        auto const entry = sampleEntry<KXMP4AtomSoundSD>(
            "soun", soundEntry("mp4a", esds(0x40, 128000, 0, aacLowComplexity), 6, version));
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->audioChannels(), 6u);
        ASSERT_EQ(entry->children().size(), 1u);
        EXPECT_EQ(entry->children()[0]->tag(), "esds");
    }
}

TEST(KXMP4AtomSoundSD, UnknownVersionHasNeitherChannelsNorChildren)
{
    auto const entry = sampleEntry<KXMP4AtomSoundSD>(
        "soun", soundEntry("mp4a", esds(0x40, 0, 0, aacLowComplexity), 2, 3));
    EXPECT_EQ(entry->audioChannels(), 0u);
    EXPECT_THAT(entry->children(), IsEmpty());
}

TEST(KXMP4AtomSoundSD, UnknownVersionLeavesTheReaderBehindTheEntry)
{
    // What stands right after the version is no child, although it looks like one.
    auto const entry = sampleEntry<KXMP4AtomSoundSD>(
        "soun", atom("mp4a", zeros(6), u16(1), u16(3), atom("free"), zeros(20)));
    ASSERT_TRUE(entry);
    EXPECT_THAT(entry->children(), IsEmpty());
    Bytes const bytes = atom("samr", zeros(6), u16(1), u16(3), filled(30, 7));
    auto const data = reader(join(bytes, zeros(9)));
    KXMP4AtomSoundSD alone;
    alone.setSize(bytes.size());
    data->setOffset(8);
    alone.parseAtomSpecificData(*data);
    EXPECT_EQ(data->offset(), bytes.size());
}

TEST(KXMP4AtomSoundSD, TooSmallLeavesTheReaderBehindTheEntry)
{
    Bytes const small = atom("mp4a", atom("free", zeros(11)));
    ASSERT_EQ(small.size(), 27u);
    auto const entry = sampleEntry<KXMP4AtomSoundSD>("soun", join(small, soundEntry("samr")));
    EXPECT_THAT(entry->children(), IsEmpty());
    auto const data = reader(join(small, zeros(9)));
    KXMP4AtomSoundSD alone;
    alone.setSize(small.size());
    data->setOffset(8);
    alone.parseAtomSpecificData(*data);
    EXPECT_EQ(data->offset(), small.size());
}

TEST(KXMP4AtomSoundSD, ChannelCountOfVersion2Has32Bits)
{
    EXPECT_EQ(sampleEntry<KXMP4AtomSoundSD>("soun", soundEntry("mp4a", {}, 0x00030006, 2))
                  ->audioChannels(),
        0x00030006u);
}

TEST(KXMP4AtomSoundSD, Size27HasNeitherChannelsNorChildrenAndSize28IsRead)
{
    Bytes const fields = join(zeros(6), u16(1), u16(0), zeros(6), u16(2));
    auto const tooSmall = sampleEntry<KXMP4AtomSoundSD>("soun", atom("mp4a", fields, zeros(1)));
    EXPECT_EQ(tooSmall->size(), 27u);
    EXPECT_EQ(tooSmall->audioChannels(), 0u);
    EXPECT_THAT(tooSmall->children(), IsEmpty());
    auto const enough = sampleEntry<KXMP4AtomSoundSD>("soun", atom("mp4a", fields, zeros(2)));
    EXPECT_EQ(enough->size(), 28u);
    EXPECT_EQ(enough->audioChannels(), 2u);
}

TEST(KXMP4AtomSoundSD, VendorThatIsCutOffIsNotSkipped)
{
    // At the end of the data its failed read stays, and the bytes that are there are the channels.
    auto const data
        = reader(atomClaiming(36, "samr", zeros(6), u16(1), u16(0), u16(0), text("ap")));
    KXMP4AtomSoundSD entry;
    entry.parseWithParent(nullptr, *data);
    EXPECT_EQ(entry.audioChannels(), 0x6170u);
}

TEST(KXMP4AtomSoundSD, EntriesOfOtherCodecsKeepNoChildren)
{
    for (char const* const type : { "alac", "samr", "sawb" }) {
        auto const entry = sampleEntry("soun", soundEntry(type, atom("abcd")));
        EXPECT_THAT(entry->children(), IsEmpty()) << type;
    }
}

TEST(KXMP4AtomSoundSD, CodecOfEachType)
{
    EXPECT_EQ(codecOf("soun", soundEntry("alac")).codec(), KXMDCodecALAC);
    EXPECT_EQ(codecOf("soun", soundEntry("samr")).codec(), KXMDCodecAMR);
    EXPECT_EQ(codecOf("soun", soundEntry("sawb")).codec(), KXMDCodecAMRWB);
    EXPECT_EQ(codecOf("soun", soundEntry("samr")).profile(), KXMDProfileUnknown);
    EXPECT_EQ(codecOf("soun", soundEntry("mp4a")).codec(), KXMDCodecAAC);
    EXPECT_EQ(codecOf("soun", soundEntry("mp4a")).profile(), KXMDProfileUnknown);
}

TEST(KXMP4AtomSoundSD, OtherCodecsTakeNoChannels)
{
    for (char const* const type : { "alac", "samr", "sawb" }) {
        auto const info = codecOf("soun", soundEntry(type, {}, 6));
        EXPECT_EQ(info.audioChannels(), 0) << type;
        EXPECT_EQ(info.bitRate(), 0) << type;
    }
}

TEST(KXMP4AtomSoundSD, LevelOfItsConfigurationIsNotTaken)
{
    // A configuration of visual objects has a level.
    Bytes const visual = esds(0x20, 0, 0, bytes({ 0, 0, 1, 0xB0, 0xF3 }));
    auto const info = codecOf("soun", soundEntry("mp4a", visual));
    EXPECT_EQ(info.profile(), 15);
    EXPECT_EQ(info.profileLevel(), 0);
}

TEST(KXMP4AtomSoundSD, AACTakesProfileBitRateAndChannelsButNoLevel)
{
    auto const info
        = codecOf("soun", soundEntry("mp4a", esds(0x40, 128000, 96000, aacLowComplexity), 6));
    EXPECT_EQ(info.profile(), 2);
    EXPECT_EQ(info.profileLevel(), 0);
    EXPECT_EQ(info.bitRate(), 128000);
    EXPECT_EQ(info.audioChannels(), 6);
    EXPECT_EQ(info.videoSize(), KXSize());
}

TEST(KXMP4AtomSoundSD, ConfigurationInTheWaveAtomCounts)
{
    Bytes const wave
        = atom("wave", atom("frma", text("mp4a")), esds(0x40, 64000, 0, aacLowComplexity));
    auto const info = codecOf("soun", soundEntry("mp4a", wave, 2, 1));
    EXPECT_EQ(info.profile(), 2);
    EXPECT_EQ(info.bitRate(), 64000);
}

TEST(KXMP4AtomSoundSD, DirectConfigurationWinsOverTheWaveAtomAndTheLastOfSeveralCounts)
{
    Bytes const children = join(esds(0x40, 1, 0, aacLowComplexity),
        esds(0x40, 2, 0, aacLowComplexity), atom("wave", esds(0x40, 3, 0, aacLowComplexity)));
    EXPECT_EQ(codecOf("soun", soundEntry("mp4a", children)).bitRate(), 2);
}

TEST(KXMP4AtomSoundSD, BitRateIsSigned)
{
    auto const info
        = codecOf("soun", soundEntry("mp4a", esds(0x40, 0xFFFFFFFF, 0, aacLowComplexity)));
    EXPECT_EQ(info.bitRate(), -1);
}

TEST(KXMP4AtomSoundSD, DescriptionNamesTheChannels)
{
    auto const entry = sampleEntry("soun", soundEntry("samr", {}, 1));
    EXPECT_EQ(entry->description(), "MP4 Atom:samr - 36 : Sound SD, channels:1");
}

// Video entries.

TEST(KXMP4AtomVideoSD, ReadsSizeAndCompressorName)
{
    auto const entry = sampleEntry<KXMP4AtomVideoSD>("vide", videoEntry("avc1", 1280, 720));
    EXPECT_EQ(entry->width(), 1280);
    EXPECT_EQ(entry->height(), 720);
    EXPECT_EQ(entry->codecName(), std::string("\5coder") + std::string(26, '\0'));
    EXPECT_EQ(entry->description(), "MP4 Atom:avc1 - 86 : Video SD: 1280 x 720");
}

TEST(KXMP4AtomVideoSD, OneZeroSideMakesBothZero)
{
    for (auto const& [width, height] : { std::pair(0u, 480u), std::pair(640u, 0u) }) {
        auto const entry = sampleEntry<KXMP4AtomVideoSD>("vide", videoEntry("avc1", width, height));
        EXPECT_EQ(entry->width(), 0);
        EXPECT_EQ(entry->height(), 0);
        EXPECT_EQ(entry->description(), "MP4 Atom:avc1 - 86 : Video SD: 0 x 0");
    }
}

TEST(KXMP4AtomVideoSD, SmallerThan78BytesIsLogged)
{
    LogCapture const log;
    auto const entry = sampleEntry<KXMP4AtomVideoSD>("vide", atom("avc1", zeros(69)));
    EXPECT_EQ(entry->size(), 77u);
    EXPECT_THAT(entry->children(), IsEmpty());
    EXPECT_THAT(
        log.lines(), testing::Contains("Metadata: KXMP4AtomVideoSD->Atom size too small, exiting"));
}

TEST(KXMP4AtomVideoSD, TooSmallLeavesTheReaderAtItsFields)
{
    auto const entry = sampleEntry<KXMP4AtomVideoSD>("vide", atom("avc1", avcC(77, 30)));
    ASSERT_TRUE(entry);
    ASSERT_EQ(entry->children().size(), 1u);
    EXPECT_EQ(entry->children()[0]->tag(), "avcC");
}

TEST(KXMP4AtomVideoSD, UnknownVersionLeavesTheReaderBehindIt)
{
    auto const entry = sampleEntry<KXMP4AtomVideoSD>(
        "vide", atom("avc1", zeros(6), u16(1), u16(2), avcC(77, 30), zeros(60)));
    ASSERT_TRUE(entry);
    ASSERT_EQ(entry->children().size(), 1u);
    EXPECT_EQ(entry->children()[0]->tag(), "avcC");
}

TEST(KXMP4AtomVideoSD, CompressorNameThatCannotBeReadLeavesTheOneBefore)
{
    Bytes const whole = videoEntry("avc1", 640, 480);
    KXMP4AtomVideoSD entry;
    entry.parseWithParent(nullptr, *reader(whole));
    std::string const name = entry.codecName().value();
    constexpr std::size_t nameOffset = 8 + 42;
    entry.parseWithParent(nullptr, *reader({ whole.begin(), whole.begin() + nameOffset + 31 }));
    EXPECT_EQ(entry.codecName(), name);
}

TEST(KXMP4AtomVideoSD, Size78IsReadAlthoughItsFieldsRunPastTheAtom)
{
    Bytes const whole = videoEntry("avc1", 640, 480);
    Bytes cut(whole.begin(), whole.end() - 8);
    cut[3] = 78;
    auto const entry = sampleEntry<KXMP4AtomVideoSD>("vide", cut);
    EXPECT_EQ(entry->size(), 78u);
    EXPECT_EQ(entry->width(), 640);
}

TEST(KXMP4AtomVideoSD, UnknownVersionIsLoggedAndOneIsRead)
{
    LogCapture const log;
    EXPECT_EQ(
        sampleEntry<KXMP4AtomVideoSD>("vide", videoEntry("avc1", 640, 480, {}, 1))->width(), 640);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(
        sampleEntry<KXMP4AtomVideoSD>("vide", videoEntry("avc1", 640, 480, {}, 2))->width(), 0);
    EXPECT_THAT(log.lines(),
        testing::Contains("Metadata: KXMP4AtomVideoSD->unknown video version, exiting:2"));
}

TEST(KXMP4AtomVideoSD, EveryTypeOfEachListHasItsCodec)
{
    struct TypesOfCodec {
        KXMDCodec codec;
        std::vector<char const*> types;
    };
    TypesOfCodec const cases[] {
        { KXMDCodecMP4Visual,
            { "DIVX", "Xvid", "mp4s", "m4s2", "xvid", "mp4v", "fmp4", "3iv2", "smp4", "X,Xv" } },
        { KXMDCodecAVC,
            { "h264", "H264", "s264", "AVC1", "avc1", "DAVC", "davc", "X264", "VSSH", "264,",
                ",s26" } },
        { KXMDCodecH263, { "h263", "s263", "263,", "3,s2" } },
        { KXMDCodecNone, { "hvc1", "hev1", "av01", "jpeg", "avc3", "VSS\0" } },
    };
    for (auto const& [codec, types] : cases) {
        for (char const* const type : types)
            EXPECT_EQ(codecOf("vide", videoEntry(std::string_view(type, 4), 64, 48)).codec(), codec)
                << type;
    }
}

TEST(KXMP4AtomVideoSD, MP4VisualTakesProfileLevelBitRateAndSize)
{
    Bytes const info = bytes({ 0, 0, 1, 0xB0, 0xF3 });
    auto const codec = codecOf("vide", videoEntry("mp4v", 320, 240, esds(0x20, 400000, 0, info)));
    EXPECT_EQ(codec.profile(), 15);
    EXPECT_EQ(codec.profileLevel(), 3);
    EXPECT_EQ(codec.bitRate(), 400000);
    EXPECT_EQ(codec.videoSize(), (KXSize { 320, 240 }));
    EXPECT_EQ(codec.audioChannels(), 0);
}

TEST(KXMP4AtomVideoSD, AVCTakesProfileAndLevelOnly)
{
    auto const codec
        = codecOf("vide", videoEntry("avc1", 320, 240, join(avcC(66, 10), avcC(77, 30))));
    EXPECT_EQ(codec.profile(), 77);
    EXPECT_EQ(codec.profileLevel(), 30);
    EXPECT_EQ(codec.bitRate(), 0);
    EXPECT_EQ(codec.videoSize(), (KXSize { 320, 240 }));
}

TEST(KXMP4AtomVideoSD, H263TakesProfileAndLevelOnly)
{
    Bytes const d263 = atom("d263", text("vend"), u8(0), u8(10), u8(3));
    auto const codec = codecOf("vide", videoEntry("s263", 176, 144, d263));
    EXPECT_EQ(codec.profile(), 3);
    EXPECT_EQ(codec.profileLevel(), 10);
    EXPECT_EQ(codec.bitRate(), 0);
}

TEST(KXMP4AtomVideoSD, ConfigurationsOfOtherCodecsAreNotTaken)
{
    Bytes const sound = esds(0x40, 128000, 0, aacLowComplexity);
    auto const visual = codecOf("vide", videoEntry("mp4v", 320, 240, sound));
    EXPECT_EQ(visual.profile(), 2);
    EXPECT_EQ(visual.audioChannels(), 0);
    for (char const* const type : { "avc1", "s263" }) {
        auto const codec = codecOf("vide", videoEntry(type, 320, 240, sound));
        EXPECT_EQ(codec.profile(), KXMDProfileUnknown) << type;
        EXPECT_EQ(codec.bitRate(), 0) << type;
    }
    EXPECT_EQ(
        codecOf("vide", videoEntry("mp4v", 320, 240, avcC(77, 30))).profile(), KXMDProfileUnknown);
}

TEST(KXMP4AtomVideoSD, WithoutConfigurationTheProfileIsUnknown)
{
    EXPECT_EQ(codecOf("vide", videoEntry("avc1", 320, 240)).profile(), KXMDProfileUnknown);
}
