// The place for a cover in MP3 files.

#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp3/KXMP3EditSafety.h"

#include "support/Builders.h"
#include "support/Files.h"

#include <gmock/gmock.h>

#include <set>

using namespace build;

namespace {

/// A frame of MPEG audio with this header: version and layer, rates, padding.
Bytes audioFrame(int versionAndLayer, int rates, std::size_t length)
{
    return join(bytes({ 0xFF, versionAndLayer, rates, 0 }), zeros(length - 4));
}

// Layer III at 44.1 kHz and 128 kbit/s: 144 * 128000 / 44100 bytes.
Bytes const frame128 = audioFrame(0xFB, 0x90, 417);
Bytes const frame320 = audioFrame(0xFB, 0xE0, 1044);

Bytes repeated(Bytes const& frame, std::size_t count)
{
    return concatenated(std::vector<Bytes>(count, frame));
}

Bytes const song = repeated(frame128, 5);
Bytes const expectedTag = join(text("ID3"), bytes({ 3, 0, 0, 0, 0, 0, 16 }), text("TFLT"), u32(6),
    u16(0), u8(0), text("MPG/3"));

bool canMake(Bytes const& file) { return KXMDCoverPlace::canMakeInData(*reader(file)); }

Bytes made(Bytes const& file)
{
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_EQ(KXMDCoverPlace::makeInData(data), canMake(file));
    return { data->bytes().begin(), data->bytes().end() };
}

}

TEST(KXMP3CoverPlace, SmallestTagIsPutBeforeTheAudio)
{
    auto const endsOfFiles
        = { Bytes(), join(text("TAG"), zeros(124), u8(255)), text("APETAGEX"), text("cut off") };
    for (Bytes const& end : endsOfFiles)
        EXPECT_EQ(made(join(song, end)), join(expectedTag, song, end));
    EXPECT_FALSE(KXMDCoverPlace::reasonAgainstMakingInData(*reader(song)));
    auto const data = reader(song);
    EXPECT_TRUE(KXMDCoverPlace::canMakeInData(*data));
    EXPECT_EQ(data->offset(), 0u);
}

TEST(KXMP3CoverPlace, WhatAnOldTagSaysIsTakenOver)
{
    auto const field = [](std::string const& words, std::size_t length, char filling = 0) {
        return text(words + std::string(length - words.size(), filling));
    };
    auto const frame = [](char const* name, Bytes const& content) {
        return join(text(name), u32(static_cast<std::uint32_t>(content.size() + 1)), u16(0), u8(0),
            content);
    };
    Bytes const kind = frame("TFLT", text("MPG/3"));
    Bytes const texts
        = join(frame("TIT2", text("A T\xEFtle")), frame("TPE1", text(std::string(30, 'a'))),
            frame("TALB", text("Album")), frame("TYER", text("1999")));
    Bytes const before = join(text("TAG"), field("A T\xEFtle", 30), text(std::string(30, 'a')),
        field("Album", 30, ' '), text("1999"));
    struct Case {
        Bytes end, frames;
    };
    for (auto const& [end, frames] : {
             Case { join(field("Words", 28), u8(0), u8(7), u8(17)), // ID3v1.1
                 join(frame("COMM", join(text("XXX"), u8(0), text("Words"))),
                     frame("TRCK", text("7")), frame("TCON", text("(17)"))) },
             Case { join(text("Words " + std::string(24, 'w')), u8(255)),
                 frame("COMM", join(text("XXX"), u8(0), text("Words " + std::string(24, 'w')))) },
             Case { join(zeros(30), u8(0)), frame("TCON", text("(0)")) },
         }) {
        Bytes const file = join(song, before, end);
        Bytes const content = join(kind, texts, frames);
        EXPECT_EQ(made(file),
            join(text("ID3"), bytes({ 3, 0, 0 }),
                syncSafe(static_cast<std::uint32_t>(content.size())), content, file));
        auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(made(file)));
        EXPECT_EQ(meta->metadataForKey(KXMDMetadataKeyName), "A T\u00EFtle");
        EXPECT_EQ(meta->metadataForKey(KXMDMetadataKeyArtist), std::string(30, 'a'));
        EXPECT_EQ(meta->metadataForKey(KXMDMetadataKeyAlbum), "Album");
        EXPECT_TRUE(meta->canInsertAlbumCover());
    }
}

TEST(KXMP3CoverPlace, NoneIsMadeBesideAnAPETag)
{
    Bytes const footer = join(text("APETAGEX"), zeros(24));
    Bytes const oldTag = join(text("TAG"), zeros(125));
    EXPECT_FALSE(canMake(join(song, footer)));
    EXPECT_FALSE(canMake(join(song, footer, oldTag)));
    EXPECT_TRUE(canMake(join(song, footer, u8(0), oldTag)));
    EXPECT_TRUE(canMake(join(song, oldTag)));
}

TEST(KXMP3CoverPlace, CoverIsAddedThereBeforeTheSameAudio)
{
    Bytes const place = made(song);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader(place));
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->metaType(), KXMDMetaTypeMP3);
    EXPECT_TRUE(meta->canInsertAlbumCover());
    EXPECT_FALSE(meta->hasValidAlbumCover());
    EXPECT_FALSE(KXMP3EditSafety(*reader(place)).reasonAgainstAddingAlbumCoverOfSize(1000));
    KXData const picture(jpeg(300, 300, 1000));
    auto const data = std::make_shared<KXMutableData>(place);
    ASSERT_TRUE(meta->addEncodedAlbumCoverToData(picture, data));
    EXPECT_TRUE(meta->hasValidAlbumCover());
    Bytes const after(data->bytes().begin(), data->bytes().end());
    EXPECT_EQ(after.size(), place.size() + meta->albumCoverSizeForEncodedImage(picture));
    EXPECT_EQ(Bytes(after.end() - static_cast<std::ptrdiff_t>(song.size()), after.end()), song);
    // Both frames are still found, and the tag ends where the audio begins.
    auto const& tags = dynamic_cast<KXMDFileMetaMP3&>(*meta);
    EXPECT_EQ(tags.frames()->size(), 2u);
    EXPECT_EQ(tags.headerSize() + 10 + song.size(), after.size());
    EXPECT_TRUE(meta->removeAlbumCoverFromData(data));
    EXPECT_THAT(data->bytes(), testing::ElementsAreArray(place));
}

TEST(KXMP3CoverPlace, EveryRateOfLayerIIIIsKnown)
{
    struct Rate {
        int versionAndLayer, rates;
        std::size_t length;
    };
    for (auto const& [versionAndLayer, rates, length] :
        { Rate { 0xFB, 0x92, 418 }, // With a byte of padding.
            Rate { 0xFA, 0x90, 417 }, // With a checksum.
            Rate { 0xFB, 0x10, 104 }, Rate { 0xFB, 0xE4, 960 }, Rate { 0xFB, 0x98, 576 },
            Rate { 0xF3, 0x80, 208 }, Rate { 0xF3, 0xE4, 480 },
            Rate { 0xF3, 0x18, 36 }, // Version 2.
            Rate { 0xE3, 0x80, 417 }, Rate { 0xE3, 0xE8, 1440 } }) { // Version 2.5.
        EXPECT_TRUE(canMake(repeated(audioFrame(versionAndLayer, rates, length), 3)))
            << versionAndLayer << ' ' << rates;
        EXPECT_FALSE(canMake(repeated(audioFrame(versionAndLayer, rates, length + 1), 3)));
    }
}

TEST(KXMP3CoverPlace, BitRatesMayVary)
{
    EXPECT_TRUE(canMake(join(frame128, frame320, frame128)));
    EXPECT_FALSE(canMake(join(frame128, audioFrame(0xFB, 0x94, 384), frame128))) << "48 kHz";
    EXPECT_FALSE(canMake(join(frame128, audioFrame(0xF3, 0x90, 261), frame128))) << "version 2";
}

TEST(KXMP3CoverPlace, TwoFramesAreEnoughWhereTheAudioEnds)
{
    auto const two = repeated(frame128, 2);
    for (std::string_view const end : { "", "TAG", "APETAGEX", "LYRICSBEGIN", "3DI" })
        EXPECT_TRUE(canMake(join(two, text(end)))) << end;
    EXPECT_FALSE(canMake(join(two, text("other"))));
    EXPECT_FALSE(canMake(frame128));
    EXPECT_FALSE(canMake(join(frame128, text("TAG"))));
}

TEST(KXMP3CoverPlace, NothingElseIsTakenForAnMP3)
{
    for (auto const& [versionAndLayer, rates] :
        { std::pair { 0xFD, 0x90 }, // Layer II.
            { 0xFF, 0x90 }, { 0xF9, 0x90 }, // Layer I; none, as in ADTS.
            { 0xEB, 0x90 }, { 0xDB, 0x90 }, // No version; no sync word.
            { 0xFB, 0x00 }, { 0xFB, 0xF0 }, { 0xFB, 0x9C } }) // Free, forbidden and reserved rates.
        EXPECT_FALSE(canMake(repeated(audioFrame(versionAndLayer, rates, 417), 5)));
    auto const reservedEmphasis = join(bytes({ 0xFF, 0xFB, 0x90, 2 }), zeros(413));
    EXPECT_FALSE(canMake(repeated(reservedEmphasis, 5)));
    EXPECT_FALSE(canMake(filled(5000, 0xFF)));
    EXPECT_FALSE(canMake(zeros(5000)));
    EXPECT_FALSE(canMake(join(text("other"), song)));
    EXPECT_FALSE(canMake(join(tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Title")), song)));
    EXPECT_FALSE(canMake(join(tag(ID3::v24, {}), song)));
    EXPECT_FALSE(canMake(made(song)));
}

TEST(KXMP3CoverPlace, EveryTruncationIsSurvived)
{
    for (std::size_t length = 0; length <= song.size(); ++length) {
        Bytes const cut(song.begin(), song.begin() + static_cast<std::ptrdiff_t>(length));
        bool const isMP3 = length == 2 * frame128.size() || length >= 2 * frame128.size() + 4;
        EXPECT_EQ(canMake(cut), isMP3) << length;
        EXPECT_EQ(made(cut).size(), isMP3 ? length + expectedTag.size() : length);
    }
}

TEST(KXMP3CoverPlace, OfTheSamplesOnlyMP3sAreTakenForSuch)
{
    auto const paths = sampleFiles();
    if (paths.empty())
        GTEST_SKIP() << "no samples";
    std::size_t count = 0;
    for (auto const& path : paths) {
        Bytes const file = bytesOfFile(path);
        bool const isMovie
            = file.size() >= 8 && std::equal(file.begin() + 4, file.begin() + 8, "ftyp");
        if (isMovie || !canMake(file))
            continue;
        ++count;
        auto const folder = path.parent_path().filename();
        EXPECT_TRUE(folder == "mp3" || folder == "broken") << path;
        EXPECT_THAT(path.extension().string(), testing::AnyOf(".mp3", "")) << path;
    }
    EXPECT_GE(count, 10u);
}
