#include "kxmd/mp4/atoms/KXMP4AtomSDExtAvcc.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtD263.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtEsds.h"
#include "support/AtomTrees.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace build;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t visual = 0x20, audio = 0x40;

std::shared_ptr<KXMP4AtomSDExtEsds> esdsOf(Bytes const& atom)
{
    return lastAtom<KXMP4AtomSDExtEsds>(treeOf(atom), "esds");
}

/// A decoder configuration descriptor without what stands before it.
Bytes configuration(std::uint32_t objectType, Bytes const& info)
{
    return join(u8(4), u8(15 + static_cast<std::uint32_t>(info.size())), u8(objectType), u8(0x15),
        u24(0), u32(3), u32(2), u8(5), u8(static_cast<std::uint32_t>(info.size())), info);
}

}

TEST(KXMP4AtomSDExtEsds, ReadsAllItsFields)
{
    auto const atom = esdsOf(esds(audio, 128000, 96000, bytes({ 0x12, 0x10 })));
    EXPECT_EQ(atom->objectTypeIndication(), 0x40);
    EXPECT_EQ(atom->objFlags(), 0x15);
    EXPECT_EQ(atom->maxBitrate(), 128000);
    EXPECT_EQ(atom->avgBitrate(), 96000);
    EXPECT_EQ(atom->level(), 0);
}

TEST(KXMP4AtomSDExtEsds, LengthsArePaddedWithFillers)
{
    auto const lengthOf = [](Bytes const& bytes) {
        return int { KXMP4AtomSDExtEsds::skipFillersAndReadByte(*reader(bytes)) };
    };
    EXPECT_EQ(lengthOf(bytes({ 0x80, 0x80, 0x80, 0x22 })), 0x22);
    EXPECT_EQ(lengthOf(bytes({ 0x81, 0x05 })), 5);
    EXPECT_EQ(lengthOf(bytes({ 0xFE, 0xFE, 0x07 })), 7);
    EXPECT_EQ(lengthOf(bytes({ 0x82, 0x05 })), 0x82); // Not a filler.
    EXPECT_EQ(lengthOf(bytes({ 0xFF })), 0xFF);
}

TEST(KXMP4AtomSDExtEsds, FillersUpToTheEndOfTheDataEnd)
{
    EXPECT_EQ(KXMP4AtomSDExtEsds::skipFillersAndReadByte(*reader(filled(1000, 0x80))), 0);
    EXPECT_EQ(KXMP4AtomSDExtEsds::skipFillersAndReadByte(*reader({})), 0);
}

TEST(KXMP4AtomSDExtEsds, AACLowComplexityStereo)
{
    auto const atom = esdsOf(esds(audio, 0, 0, bytes({ 0x12, 0x10 })));
    EXPECT_EQ(atom->profile(), 2);
    EXPECT_EQ(atom->audioChannels(), 2);
    EXPECT_EQ(atom->description(), "MP4 Atom:esds - 36 : Profile:Low Complexity, channels:2");
}

TEST(KXMP4AtomSDExtEsds, HighEfficiencyAACHasChannelsOfItsObjectType)
{
    auto const atom = esdsOf(esds(audio, 0, 0, bytes({ 0x2B, 0x92 })));
    EXPECT_EQ(atom->profile(), 5);
    EXPECT_EQ(atom->audioChannels(), 5); // On purpose: the low bits of the object type.
    auto const escaped = esdsOf(esds(audio, 0, 0, bytes({ 0xF8 })));
    EXPECT_EQ(escaped->profile(), 31);
    EXPECT_EQ(escaped->audioChannels(), 15);
}

TEST(KXMP4AtomSDExtEsds, VisualProfileAndLevelStandAfterTheStartCode)
{
    auto const atom = esdsOf(esds(visual, 0, 0, bytes({ 0, 0, 1, 0xB0, 0xF3, 0 })));
    EXPECT_EQ(atom->profile(), 15);
    EXPECT_EQ(atom->level(), 3);
    EXPECT_EQ(atom->audioChannels(), 0);
    EXPECT_EQ(atom->description(), "MP4 Atom:esds - 40 : Profile:Visual Advanced Simple Level:3");
}

TEST(KXMP4AtomSDExtEsds, StartCodeIsFoundOnEvenOffsetsOnly)
{
    struct Case {
        Bytes info;
        int profile;
    };
    Case const cases[] {
        { bytes({ 1, 0xB0, 0x45, 0 }), 4 }, // At once.
        { bytes({ 9, 9, 9, 9, 0, 0, 1, 0xB0, 0x45 }), 4 },
        { bytes({ 9, 0, 0, 1, 0xB0, 0x45, 0, 0 }), 0 }, // Odd.
    };
    for (auto const& [info, profile] : cases)
        EXPECT_EQ(esdsOf(esds(visual, 0, 0, info))->profile(), profile);
}

TEST(KXMP4AtomSDExtEsds, SearchReadsAWordBeyondADescriptorOfTwoBytes)
{
    // The first word is the descriptor's; one more is always looked at.
    Bytes const file = join(esds(visual, 0, 0, bytes({ 0, 0 })), bytes({ 1, 0xB0, 0x45 }));
    EXPECT_EQ(esdsOf(file)->profile(), 4);
}

TEST(KXMP4AtomSDExtEsds, SearchOfA255ByteDescriptorEnds)
{
    // The first word, and then one for each step of an eight-bit counter through the even numbers.
    constexpr std::size_t wordsSearched = 1 + 128;
    Bytes const head
        = join(u32(0), u8(4), u8(200), u8(visual), u8(0), u24(0), u32(0), u32(0), u8(5), u8(255));
    for (bool const isLastWord : { true, false }) {
        std::size_t const wordsInFront = isLastWord ? wordsSearched - 1 : wordsSearched;
        auto const found = esdsOf(
            atom("esds", head, filled(wordsInFront * 2, 7), bytes({ 1, 0xB0, 0x45 }), zeros(10)));
        EXPECT_EQ(found->profile(), isLastWord ? 4 : 0);
        EXPECT_EQ(found->level(), isLastWord ? 5 : 0);
    }
}

TEST(KXMP4AtomSDExtEsds, DescriptorOfNoLengthEndsTheStream)
{
    LogCapture const log;
    Bytes const info = bytes({ 5, 2, 0x12, 0x10 });
    auto const noStream
        = esdsOf(atom("esds", u32(0), u8(3), u8(0), configuration(audio, bytes({ 0x12, 0x10 }))));
    EXPECT_EQ(noStream->objectTypeIndication(), 0);
    EXPECT_EQ(noStream->profile(), 0);
    esdsOf(atom("esds", u32(0), u8(4), u8(0), info));
    EXPECT_THAT(log.lines(), IsEmpty()); // No information of an object type that nobody knows.
}

TEST(KXMP4AtomSDExtEsds, VersionThatIsCutOffIsNotSkipped)
{
    // At the end of the data its failed read stays, and the bytes that are there are taken for
    // tags.
    auto const found = esdsOf(atomClaiming(100, "esds", u8(4), u8(5), u8(audio)));
    EXPECT_EQ(found->objectTypeIndication(), 0x40);
}

TEST(KXMP4AtomSDExtEsds, OtherObjectTypesAreLoggedAndKeepTheirBitRates)
{
    LogCapture const log;
    constexpr std::uint32_t mpeg1Audio = 0x6B;
    auto const atom = esdsOf(esds(mpeg1Audio, 320000, 0, bytes({ 1, 2 })));
    EXPECT_EQ(atom->profile(), 0);
    EXPECT_EQ(atom->maxBitrate(), 320000);
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: KXMP4AtomEsds->Skip object type:107"));
    EXPECT_EQ(atom->description(), "MP4 Atom:esds - 36 : Unknown object type");
}

TEST(KXMP4AtomSDExtEsds, StreamWithoutDecoderConfigurationIsLogged)
{
    LogCapture const log;
    esdsOf(atom("esds", u32(0), u8(3), u8(7), u16(0), u8(0), u8(5), u8(2), u16(0x1210)));
    EXPECT_THAT(log.lines(), ElementsAre("Metadata: KXMP4AtomEsds->Skip object type:0"));
}

TEST(KXMP4AtomSDExtEsds, StreamMayBeginWithAnInnerDescriptor)
{
    auto const atom
        = esdsOf(build::atom("esds", u32(0), configuration(audio, bytes({ 0x12, 0x10 }))));
    EXPECT_EQ(atom->profile(), 2);
    EXPECT_EQ(atom->maxBitrate(), 3);
}

TEST(KXMP4AtomSDExtEsds, OptionalFieldsOfTheStreamDescriptorAreNotSkipped)
{
    // The flags announce a stream that this one depends on; its two bytes are taken for a tag.
    auto const found = esdsOf(atom("esds", u32(0), u8(3), u8(25), u16(0), u8(0x80), u16(7),
        configuration(audio, bytes({ 0x12, 0x10 }))));
    EXPECT_EQ(found->objectTypeIndication(), 0);
}

TEST(KXMP4AtomSDExtEsds, LengthLargerThanTheAtomStopsBeforeItsDescriptor)
{
    LogCapture const log;
    Bytes const whole = atom("esds", u32(0), configuration(audio, bytes({ 0x12, 0x10 })));
    constexpr std::size_t configurationLength = 13, infoLength = 28;
    for (std::size_t const position : { configurationLength, infoLength }) {
        for (int const length : { 0, 0x7F }) {
            Bytes changed = whole;
            changed[position] = static_cast<std::uint8_t>(length);
            auto const atom = esdsOf(changed);
            EXPECT_EQ(atom->profile(), 0);
            EXPECT_EQ(atom->objectTypeIndication(), position == infoLength ? 0x40 : 0);
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KXMP4AtomSDExtEsds, LengthUpToTheSizeOfTheAtomIsTaken)
{
    Bytes const whole = esds(audio, 3, 2, bytes({ 0x12, 0x10 }));
    constexpr std::size_t streamLength = 13, configurationLength = 18, infoLength = 33;
    for (std::size_t const position : { streamLength, configurationLength, infoLength }) {
        SCOPED_TRACE(position);
        Bytes changed = whole;
        changed[position] = static_cast<std::uint8_t>(whole.size());
        EXPECT_EQ(esdsOf(changed)->profile(), 2);
        ++changed[position];
        auto const stopped = esdsOf(changed);
        EXPECT_EQ(stopped->profile(), 0);
        EXPECT_EQ(stopped->maxBitrate(), position == infoLength ? 3 : 0);
    }
}

TEST(KXMP4AtomSDExtEsds, SearchEndsWithTheWordAtTheEndOfTheDescriptor)
{
    struct Case {
        std::uint32_t length;
        std::size_t words;
    };
    // One word, and one more for every two bytes begun.
    for (auto const& [length, words] :
        { Case { 1, 2 }, { 2, 2 }, { 3, 3 }, { 4, 3 }, { 5, 4 }, { 100, 51 }, { 253, 128 } }) {
        SCOPED_TRACE(length);
        Bytes const head = join(
            u32(0), u8(4), u8(200), u8(visual), u8(0), u24(0), u32(0), u32(0), u8(5), u8(length));
        for (bool const isLastWord : { true, false }) {
            std::size_t const wordsBefore = isLastWord ? words - 1 : words;
            auto const found = esdsOf(atom(
                "esds", head, filled(wordsBefore * 2, 7), bytes({ 1, 0xB0, 0x45 }), zeros(255)));
            EXPECT_EQ(found->profile(), isLastWord ? 4 : 0);
        }
    }
}

TEST(KXMP4AtomSDExtAvcc, ReadsProfileAndLevel)
{
    auto const atom = lastAtom<KXMP4AtomSDExtAvcc>(treeOf(avcC(77, 30)), "avcC");
    EXPECT_EQ(atom->profile(), 77);
    EXPECT_EQ(atom->level(), 30);
    EXPECT_EQ(atom->maxBitrate(), 0);
    EXPECT_EQ(atom->description(), "MP4 Atom:avcC - 15 : Profile:ACV Main Level:30");
}

TEST(KXMP4AtomSDExtAvcc, OtherConfigurationVersionsAreNotRead)
{
    for (std::uint32_t const version : { 0u, 2u, 255u }) {
        auto const found = lastAtom<KXMP4AtomSDExtAvcc>(
            treeOf(atom("avcC", u8(version), u8(77), u8(0), u8(30))), "avcC");
        EXPECT_EQ(found->profile(), 0) << version;
        EXPECT_EQ(found->level(), 0) << version;
    }
}

TEST(KXMP4AtomSDExtAvcc, TruncatedRecordKeepsZeros)
{
    auto const found
        = lastAtom<KXMP4AtomSDExtAvcc>(treeOf(atomClaiming(15, "avcC", u8(1), u8(77))), "avcC");
    EXPECT_EQ(found->profile(), 77);
    EXPECT_EQ(found->level(), 0);
}

TEST(KXMP4AtomSDExtD263, ReadsLevelThenProfile)
{
    auto const found = lastAtom<KXMP4AtomSDExtD263>(
        treeOf(atom("d263", text("vend"), u8(1), u8(10), u8(3))), "d263");
    EXPECT_EQ(found->level(), 10);
    EXPECT_EQ(found->profile(), 3);
    EXPECT_EQ(found->description(), "MP4 Atom:d263 - 15 : Profile:Unknown H263 profile:3 Level:10");
}
