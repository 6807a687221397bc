#include "kxmd/mp3/KXMP3EditSafety.h"

#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <algorithm>
#include <array>
#include <random>

using namespace build;

namespace {

constexpr std::uint32_t extendedHeaderFlag = 0x40;

Bytes const sound = join(bytes({ 0xFF, 0xFB }), filled(200, 0x55));
Bytes const title = textFrame(ID3::v24, "TIT2", "Title");
Bytes const cover = pictureFrame(ID3::v24, jpeg(20, 20));

std::string removalReason(Bytes const& file)
{
    return KXMP3EditSafety(*reader(file)).reasonAgainstRemovingAlbumCover().value_or("");
}

std::string additionReason(Bytes const& file, std::uint64_t frameSize = 1000)
{
    return KXMP3EditSafety(*reader(file))
        .reasonAgainstAddingAlbumCoverOfSize(frameSize)
        .value_or("");
}

/// What the removal of its covers leaves of a file.
Bytes bareFile(Bytes const& file)
{
    auto const data = std::make_shared<KXMutableData>(file);
    EXPECT_TRUE(KXMDFileMetaMP3().removeAlbumCoverFromData(data));
    return { data->bytes().begin(), data->bytes().end() };
}

/// A file with two covers between its texts.
Bytes coveredFile(ID3 version)
{
    bool const isShort = version == ID3::v22;
    Bytes const picture = pictureFrame(version, png(9, 9));
    return join(tag(version,
                    join(textFrame(version, isShort ? "TT2" : "TIT2", "T"), picture, picture,
                        textFrame(version, isShort ? "TAL" : "TALB", "A"))),
        sound);
}

/// What lies after the tag, by the size in its header.
Bytes soundOf(Bytes const& file)
{
    std::size_t size = 10;
    for (std::size_t i = 6; i < 10; ++i)
        size += static_cast<std::size_t>(file[i] & 0x7F) << 7 * (9 - i);
    return { file.begin() + static_cast<std::ptrdiff_t>(std::min(size, file.size())), file.end() };
}

constexpr char const* pastItsEnd = "a cover runs past the end of the tag";
constexpr char const* readByUsAlone = "frames of its tag would not be found by other programs";

}

class MP3EditSafety : public CoverTest {
    LogCapture const log;
};

TEST_F(MP3EditSafety, OrdinaryTagsOfEachVersionMayBeEdited)
{
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        Bytes const text = textFrame(version, version == ID3::v22 ? "TT2" : "TIT2", "Title");
        Bytes const covered
            = join(tag(version, join(text, pictureFrame(version, png(9, 9)))), sound);
        EXPECT_EQ(removalReason(covered), "");
        EXPECT_EQ(additionReason(covered), "");
        EXPECT_EQ(additionReason(join(tag(version, text), sound)), "");
    }
}

TEST_F(MP3EditSafety, WhereNothingIsEditedNothingIsHarmed)
{
    Bytes const damaged = join(tagClaiming(0x0400, extendedHeaderFlag, 40, filled(40, 'x')), sound);
    for (Bytes const& file : { Bytes(), sound, text("ID3"), tag(ID3::v24, {}), damaged }) {
        EXPECT_EQ(removalReason(file), "");
    }
    EXPECT_EQ(removalReason(tag(ID3::v24, title, extendedHeaderFlag)), "");
}

TEST_F(MP3EditSafety, CoverThatRunsIntoTheSoundIsRefused)
{
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        std::string_view const identifier = version == ID3::v22 ? "PIC" : "APIC";
        std::uint32_t const wordOfVersion = static_cast<std::uint32_t>(version);
        Bytes const content = join(filled(14, 0), sound);
        Bytes const frames = frameClaiming(version, 100, identifier, content);
        Bytes const file = tagClaiming(wordOfVersion, 0, 40, frames);
        EXPECT_EQ(removalReason(file), pastItsEnd);
        EXPECT_EQ(additionReason(file), pastItsEnd);
        EXPECT_LT(bareFile(file).size(), file.size() - 40); // Some of the sound went with it.
    }
}

TEST_F(MP3EditSafety, CoverThatEndsWithTheTagMayBeEdited)
{
    Bytes const frames = join(title, cover);
    auto const size = static_cast<std::uint32_t>(frames.size());
    Bytes const file = join(tagClaiming(0x0400, 0, size, frames), sound);
    EXPECT_EQ(removalReason(file), "");
    EXPECT_EQ(bareFile(file),
        join(tagClaiming(0x0400, 0, static_cast<std::uint32_t>(title.size()), title), sound));
    Bytes const shorter = join(tagClaiming(0x0400, 0, size - 1, frames), sound);
    EXPECT_EQ(removalReason(shorter), pastItsEnd);
}

TEST_F(MP3EditSafety, ExtendedHeaderOfVersion4IsRefused)
{
    Bytes const extendedHeader = join(syncSafe(6), bytes({ 1, 0 }));
    Bytes const file = tag(ID3::v24, join(extendedHeader, title, cover), extendedHeaderFlag);
    EXPECT_EQ(additionReason(file), readByUsAlone);
    Bytes const readable = tag(ID3::v24, join(extendedHeader, zeros(4), cover), extendedHeaderFlag);
    EXPECT_EQ(removalReason(readable), readByUsAlone);
}

TEST_F(MP3EditSafety, ExtendedHeaderOfVersion3MayStay)
{
    Bytes const extendedHeader = join(u32(6), zeros(6));
    Bytes const frames = join(textFrame(ID3::v23, "TIT2", "T"), pictureFrame(ID3::v23, png(9, 9)));
    Bytes const file = tag(ID3::v23, join(extendedHeader, frames), extendedHeaderFlag);
    EXPECT_EQ(removalReason(file), "");
    EXPECT_EQ(additionReason(file), "");
}

TEST_F(MP3EditSafety, FrameOfVersion4WhoseSizeIsNotSyncSafeIsRefused)
{
    // Of 200 bytes, as version 2.3 has it: 72 where seven bits of each byte count.
    Bytes const wide = join(text("TXXX"), u32(200), zeros(2), filled(200, 'a'));
    EXPECT_EQ(additionReason(tag(ID3::v24, join(title, wide, title, cover))), readByUsAlone);
    EXPECT_EQ(additionReason(tag(ID3::v24, join(title, wide))), readByUsAlone);
    EXPECT_EQ(removalReason(tag(ID3::v24, join(cover, wide, title))), readByUsAlone);
}

TEST_F(MP3EditSafety, CoverOfVersion4WhoseSizeIsNotSyncSafeIsRefusedBeforeOtherFrames)
{
    Bytes const picture = filled(200, 'a');
    Bytes const wide = join(text("APIC"), u32(200), zeros(2), picture);
    EXPECT_EQ(removalReason(tag(ID3::v24, join(title, wide, title))), readByUsAlone);
    EXPECT_EQ(removalReason(tag(ID3::v24, join(title, wide))), ""); // What is left hides nothing.
}

TEST_F(MP3EditSafety, LargeFramesOfVersion4MayStay)
{
    Bytes const large = frame(ID3::v24, "TXXX", filled(200, 'a'));
    EXPECT_EQ(additionReason(tag(ID3::v24, join(large, title, cover))), "");
    EXPECT_EQ(additionReason(tag(ID3::v24, join(title, cover, large))), "");
    EXPECT_EQ(additionReason(tag(ID3::v24, join(title, large, zeros(500)))), ""); // Padding.
    auto const size = static_cast<std::uint32_t>(title.size() + large.size());
    EXPECT_EQ(additionReason(join(tagClaiming(0x0400, 0, size, join(title, large)), sound)), "");
}

TEST_F(MP3EditSafety, FrameOfAnOddNameMayStay)
{
    Bytes const odd = frame(ID3::v24, "T+LB", filled(8, 1));
    EXPECT_EQ(additionReason(tag(ID3::v24, join(title, odd, title, cover))), "");
}

TEST_F(MP3EditSafety, NamesOfThreeLettersMayBeFilledUpWithAZeroOrASpace)
{
    // Read in eight bits of a byte, the size of the first frame leads to the third.
    auto const reason = [](char filler) {
        constexpr std::uint32_t firstBody = 0xC8, later = 0x80;
        std::string const name = std::string("TT2") + filler;
        return additionReason(tag(ID3::v24,
            join(frame(ID3::v24, "PRIV", filled(firstBody, 'p')),
                frame(ID3::v24, name, zeros(later - 10)), title)));
    };
    EXPECT_EQ(reason('\0'), "");
    EXPECT_EQ(reason(' '), "");
    EXPECT_EQ(reason('!'), readByUsAlone);
}

TEST_F(MP3EditSafety, CoverTooLargeForAFrameIsRefused)
{
    EXPECT_EQ(additionReason(tag(ID3::v24, {}), 10 + 0x10000000), ""); // No place for any.
    constexpr char const* tooLarge = "the cover is too large for a frame of its tag";
    Bytes const shortFrames = tag(ID3::v22, textFrame(ID3::v22, "TT2", "T"));
    EXPECT_EQ(additionReason(shortFrames, 6 + 0xFFFFFF), "");
    EXPECT_EQ(additionReason(shortFrames, 6 + 0x1000000), tooLarge);
    EXPECT_EQ(additionReason(tag(ID3::v24, title), 10 + 0x10000000), tooLarge);
    // The largest frames of these are larger than any tag.
    constexpr char const* tagTooLarge = "the tag would grow past 256 MiB";
    EXPECT_EQ(additionReason(tag(ID3::v24, title), 10 + 0x0FFFFFFF), tagTooLarge);
    Bytes const version3 = tag(ID3::v23, textFrame(ID3::v23, "TIT2", "T"));
    EXPECT_EQ(additionReason(version3, std::uint64_t { 10 } + 0xFFFFFFFF), tagTooLarge);
    EXPECT_EQ(additionReason(version3, std::uint64_t { 10 } + 0x100000000), tooLarge);
}

TEST_F(MP3EditSafety, PaddingThatIsCutOffByTheEndOfTheFileIsPadding)
{
    // Of 200 bytes, if all bits of each count; of 72, if zeros follow up to there.
    Bytes const wide = join(text("TXXX"), u32(200), zeros(2), filled(72, 'a'));
    auto const size = static_cast<std::uint32_t>(title.size() + 10 + 200);
    Bytes const start = join(tagClaiming(0x0400, 0, size, title), wide);
    EXPECT_EQ(additionReason(join(start, zeros(20))), "");
    EXPECT_EQ(additionReason(join(start, zeros(128))), "");
    EXPECT_EQ(additionReason(join(start, zeros(128), sound)), ""); // Up to the end of the tag.
    EXPECT_EQ(additionReason(join(start, zeros(20), u8(1))), readByUsAlone);
    EXPECT_EQ(additionReason(join(start, zeros(127), u8(1))), readByUsAlone);
}

TEST_F(MP3EditSafety, LongPaddingIsLookedAtToItsEnd)
{
    auto const reason = [](std::uint32_t last) {
        constexpr std::uint32_t sizeIn8Bits = 1 << 16, sizeIn7Bits = 1 << 14;
        Bytes const wide = join(text("TXXX"), u32(sizeIn8Bits), zeros(2), filled(sizeIn7Bits, 'a'));
        auto const size = static_cast<std::uint32_t>(title.size()) + 10 + sizeIn8Bits;
        return additionReason(join(tagClaiming(0x0400, 0, size, join(title, wide)),
            zeros(sizeIn8Bits - sizeIn7Bits - 1), u8(last)));
    };
    EXPECT_EQ(reason(0), "");
    EXPECT_EQ(reason(1), readByUsAlone);
}

TEST_F(MP3EditSafety, NameInTheLastFourBytesOfTheTagIsThatOfAFrame)
{
    auto const reason = [](std::string_view last) {
        Bytes const wide = join(text("TXXX"), u32(200), zeros(2), filled(72, 'a'), zeros(128));
        auto const size = static_cast<std::uint32_t>(title.size() + wide.size() + 4);
        return additionReason(tagClaiming(0x0400, 0, size, join(title, wide, text(last))));
    };
    EXPECT_EQ(reason("TALB"), readByUsAlone);
    EXPECT_EQ(reason("talb"), "");
}

TEST_F(MP3EditSafety, WhatOthersTakeForTheEndOfTheLastCoverHidesNothing)
{
    auto const reason = [](std::string_view identifier) {
        Bytes const wide = join(text(identifier), u32(200), zeros(2), filled(72, 'a'));
        Bytes const frames = join(title, title, title, wide);
        auto const size = static_cast<std::uint32_t>(3 * title.size() + 10 + 200);
        return additionReason(join(tagClaiming(0x0400, 0, size, frames), zeros(127), u8(1)));
    };
    EXPECT_EQ(reason("APIC"), "");
    EXPECT_EQ(reason("TXXX"), readByUsAlone);
}

TEST_F(MP3EditSafety, WithoutACoverThereIsNoReasonAgainstItsRemoval)
{
    Bytes const wide = join(text("TXXX"), u32(200), zeros(2), filled(200, 'a'));
    Bytes const file = tag(ID3::v24, join(title, wide, title));
    EXPECT_EQ(additionReason(file), readByUsAlone);
    EXPECT_EQ(removalReason(file), "");
}

TEST_F(MP3EditSafety, TagMayNotGrowOutOfItsSize)
{
    constexpr std::uint64_t largestTag = 0x0FFFFFFF;
    for (ID3 const version : { ID3::v23, ID3::v24 }) {
        Bytes const text = textFrame(version, "TIT2", "Title");
        std::uint64_t const size = text.size() + 10; // With the padding of `tag`.
        EXPECT_EQ(additionReason(tag(version, text), largestTag - size), "");
        EXPECT_EQ(additionReason(tag(version, text), largestTag - size + 1),
            "the tag would grow past 256 MiB");
        // The covers that go make room.
        Bytes const picture = pictureFrame(version, png(9, 9));
        EXPECT_EQ(additionReason(tag(version, join(text, picture)), largestTag - size), "");
    }
}

TEST_F(MP3EditSafety, WhateverIsAllowedLeavesTheSoundOfDamagedFiles)
{
    std::minstd_rand random(1);
    int allowed = 0;
    for (int i = 0; i < 6000; ++i) {
        ID3 const version = std::array { ID3::v22, ID3::v23, ID3::v24 }[i % 3];
        Bytes file = coveredFile(version);
        for (std::size_t damages = 1 + random() % 3; damages; --damages)
            file[random() % 80] = static_cast<std::uint8_t>(random() % 3 ? random() : 0);
        if (random() % 2)
            file.resize(random() % file.size());
        if (!removalReason(file).empty())
            continue;
        auto const data = std::make_shared<KXMutableData>(file);
        if (!KXMDFileMetaMP3().removeAlbumCoverFromData(data))
            continue;
        allowed += data->length() < file.size();
        ASSERT_EQ(soundOf(bytesOf(*data)), soundOf(file))
            << i << " " << testing::PrintToString(file);
    }
    EXPECT_GT(allowed, 500); // It is not for want of edits.
}
