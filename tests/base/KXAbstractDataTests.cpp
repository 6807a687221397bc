#include "kxmd/base/KXAbstractData.h"

#include "support/LogCapture.h"
#include "support/ReaderKinds.h"

#include <gmock/gmock.h>

#include <array>
#include <limits>

using namespace build;
using testing::ElementsAre;

namespace {

using ReaderOfAnyKind = TestOfEveryReader;

constexpr std::array<std::uint8_t, 4> untouched { 0xEE, 0xEE, 0xEE, 0xEE };

constexpr std::uint64_t farthest = std::numeric_limits<std::uint64_t>::max();

/// Every read of `reader` fails at `offset`, stores nothing and stays.
void expectEveryReadFails(KXAbstractData& reader, std::uint64_t offset)
{
    SCOPED_TRACE("at offset " + std::to_string(offset));
    reader.setOffset(offset);
    EXPECT_EQ(reader.remainingLength(), 0u);

    std::uint32_t word = 1;
    EXPECT_FALSE(reader.readUInt32To(word, KXSwap::yes));
    EXPECT_EQ(word, 0u);
    word = 1;
    EXPECT_FALSE(reader.readUInt32To(word, KXSwap::no));
    EXPECT_EQ(word, 0u);
    std::uint16_t half = 1;
    EXPECT_FALSE(reader.readUInt16To(half, KXSwap::yes));
    EXPECT_EQ(half, 0u);
    std::uint8_t byte = 1;
    EXPECT_FALSE(reader.readUInt8To(byte));
    EXPECT_EQ(byte, 0u);
    EXPECT_EQ(reader.readUInt32OrZero(KXSwap::no), 0u);
    EXPECT_EQ(reader.readUInt16OrZero(KXSwap::no), 0u);
    EXPECT_EQ(reader.readUInt8OrZero(), 0u);

    auto bytes = untouched;
    EXPECT_FALSE(reader.readBytesTo(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.readBytesToMaxLength(bytes.data(), bytes.size()), 0u);
    EXPECT_TRUE(reader.readBytesTo(bytes.data(), 0)); // Nothing is there everywhere.
    EXPECT_EQ(bytes, untouched);

    for (auto const encoding : { KXStringEncodingASCII, KXStringEncodingUTF8,
             KXStringEncodingLatin1, KXStringEncodingUnicode }) {
        std::optional<std::string> text = "old";
        EXPECT_FALSE(reader.readStringTo(text, 2, encoding));
        EXPECT_FALSE(text.has_value());
        text = "old";
        EXPECT_FALSE(reader.readStringToZeroTerminationInto(text, 2, encoding));
        EXPECT_FALSE(text.has_value());
        text = "old";
        EXPECT_FALSE(reader.readStringWithZeroTerminationTo(text, 2, encoding));
        EXPECT_FALSE(text.has_value());
    }
    EXPECT_EQ(reader.offset(), offset);
}

}

INSTANTIATE_TEST_SUITE_P(KXAbstractData, ReaderOfAnyKind, testing::ValuesIn(allReaderKinds),
    testing::PrintToStringParamName());

TEST_P(ReaderOfAnyKind, BeginsAtZeroWithTheLengthOfItsBytes)
{
    auto const reader = readerOver(text("twelve bytes"));
    EXPECT_EQ(reader->offset(), 0u);
    EXPECT_EQ(reader->length(), 12u);
    EXPECT_EQ(reader->remainingLength(), 12u);
}

TEST_P(ReaderOfAnyKind, WithoutBytesFailsEveryRead)
{
    auto const reader = readerOver({});
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->length(), 0u);
    expectEveryReadFails(*reader, 0);
}

TEST_P(ReaderOfAnyKind, AtTheEndFailsStoresZeroAndStays)
{
    auto const reader = readerOver(text("bytes"));
    expectEveryReadFails(*reader, reader->length());
}

TEST_P(ReaderOfAnyKind, TakesAnyOffsetAndFailsReadsFromThere)
{
    auto const reader = readerOver(text("bytes"));
    for (std::uint64_t const offset : { std::uint64_t { 6 }, std::uint64_t { 1 } << 32,
             std::uint64_t { 1 } << 63, farthest - 3, farthest })
        expectEveryReadFails(*reader, offset);

    reader->setOffset(0);
    EXPECT_EQ(reader->readUInt8OrZero(), 'b');
}

TEST_P(ReaderOfAnyKind, SwapsBigEndianNumbersOnly)
{
    auto const reader = readerOver(bytes({ 0x12, 0x34, 0x56, 0x78 }));
    std::uint32_t word = 0;
    EXPECT_TRUE(reader->readUInt32To(word, KXSwap::yes));
    EXPECT_EQ(word, 0x12345678u);
    EXPECT_EQ(reader->offset(), 4u);
    reader->setOffset(0);
    EXPECT_TRUE(reader->readUInt32To(word, KXSwap::no));
    EXPECT_EQ(word, 0x78563412u);

    std::uint16_t half = 0;
    reader->setOffset(0);
    EXPECT_TRUE(reader->readUInt16To(half, KXSwap::no));
    EXPECT_EQ(half, 0x3412u);
    EXPECT_EQ(reader->offset(), 2u);
    EXPECT_TRUE(reader->readUInt16To(half, KXSwap::yes));
    EXPECT_EQ(half, 0x5678u);
    EXPECT_EQ(reader->offset(), 4u);
}

TEST_P(ReaderOfAnyKind, ReadsTheJPEGMarkerWithSwap)
{
    std::uint16_t marker = 0;
    EXPECT_TRUE(readerOver(bytes({ 0xFF, 0xD8 }))->readUInt16To(marker, KXSwap::yes));
    EXPECT_EQ(marker, 0xFFD8u);
}

TEST_P(ReaderOfAnyKind, ReadsBytesOneAfterTheOther)
{
    auto const reader = readerOver(bytes({ 1, 2 }));
    std::uint8_t byte = 0;
    EXPECT_TRUE(reader->readUInt8To(byte));
    EXPECT_EQ(byte, 1u);
    EXPECT_EQ(reader->readUInt8OrZero(), 2u);
    EXPECT_EQ(reader->offset(), 2u);
}

TEST_P(ReaderOfAnyKind, FailsANumberOfWhichOnlyAPartIsLeft)
{
    auto const reader = readerOver(bytes({ 1, 2, 3, 4, 5 }));
    reader->setOffset(2);
    std::uint32_t word = 7;
    EXPECT_FALSE(reader->readUInt32To(word, KXSwap::yes));
    EXPECT_EQ(word, 0u);
    EXPECT_EQ(reader->offset(), 2u);

    reader->setOffset(4);
    std::uint16_t half = 7;
    EXPECT_FALSE(reader->readUInt16To(half, KXSwap::no));
    EXPECT_EQ(half, 0u);
    EXPECT_EQ(reader->offset(), 4u);
}

TEST_P(ReaderOfAnyKind, OrZeroReadsMoveOnlyWhenTheySucceed)
{
    auto const reader = readerOver(bytes({ 0, 0, 0, 9, 0, 8, 7 }));
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 9u);
    EXPECT_EQ(reader->readUInt16OrZero(KXSwap::yes), 8u);
    EXPECT_EQ(reader->readUInt16OrZero(KXSwap::yes), 0u);
    EXPECT_EQ(reader->offset(), 6u);
    EXPECT_EQ(reader->readUInt8OrZero(), 7u);
    EXPECT_EQ(reader->readUInt8OrZero(), 0u);
    EXPECT_EQ(reader->offset(), 7u);
}

TEST_P(ReaderOfAnyKind, CopiesExactlyTheBytesAskedForOrNone)
{
    auto const reader = readerOver(bytes({ 1, 2, 3, 4, 5, 6 }));
    auto target = untouched;
    EXPECT_TRUE(reader->readBytesTo(target.data(), 4));
    EXPECT_THAT(target, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(reader->offset(), 4u);

    target = untouched;
    EXPECT_FALSE(reader->readBytesTo(target.data(), 3));
    EXPECT_EQ(target, untouched);
    EXPECT_EQ(reader->offset(), 4u);
    EXPECT_TRUE(reader->readBytesTo(target.data(), 2));
    EXPECT_THAT(target, ElementsAre(5, 6, 0xEE, 0xEE));
}

TEST_P(ReaderOfAnyKind, RefusesALengthBeyondAllMemory)
{
    auto const reader = readerOver(text("bytes"));
    reader->setOffset(1);
    auto target = untouched;
    EXPECT_FALSE(reader->readBytesTo(target.data(), farthest));
    EXPECT_EQ(target, untouched);
    for (std::uint64_t const length : { std::uint64_t { 0xFFFFFFFF }, farthest }) {
        std::optional<std::string> text;
        EXPECT_FALSE(reader->readStringTo(text, length, KXStringEncodingLatin1));
        EXPECT_FALSE(
            reader->readStringWithZeroTerminationTo(text, length, KXStringEncodingUnicode));
    }
    EXPECT_EQ(reader->offset(), 1u);
}

TEST_P(ReaderOfAnyKind, MaxLengthReadEndsAtTheEndOfTheData)
{
    constexpr std::uint64_t block = 524288;
    auto const reader = readerOver(filled(3000, 0x5A));
    Bytes target(block);
    reader->setOffset(2990);
    EXPECT_EQ(reader->readBytesToMaxLength(target.data(), block), 10u);
    EXPECT_EQ(target[9], 0x5A);
    EXPECT_EQ(target[10], 0);
    EXPECT_EQ(reader->offset(), 3000u);
    EXPECT_EQ(reader->readBytesToMaxLength(target.data(), block), 0u);
    EXPECT_EQ(reader->offset(), 3000u);

    reader->setOffset(0);
    EXPECT_EQ(reader->readBytesToMaxLength(target.data(), 7), 7u);
    EXPECT_EQ(reader->offset(), 7u);
}

TEST_P(ReaderOfAnyKind, SkipsPastTheEnd)
{
    auto const reader = readerOver(text("bytes"));
    reader->skipBytes(3);
    EXPECT_EQ(reader->readUInt8OrZero(), 'e');
    reader->skipBytes(1000);
    EXPECT_EQ(reader->offset(), 1004u);
    EXPECT_EQ(reader->remainingLength(), 0u);
}

TEST(KXMutableAbstractData, HandsOutTheBufferItWasMadeOver)
{
    auto const data = std::make_shared<KXMutableData>(text("buffer"));
    EXPECT_EQ(KXMutableAbstractData::abstractDataWithData(data)->mutableData(), data);
}

TEST(KXMutableAbstractData, StaysSafeAfterTheBufferHasShrunk)
{
    auto const data = std::make_shared<KXMutableData>(filled(100000, 1));
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    reader->setOffset(50000);
    EXPECT_EQ(reader->readUInt8OrZero(), 1u);
    ASSERT_TRUE(data->removeBytesAt(4, 99996));

    EXPECT_EQ(reader->length(), 4u);
    expectEveryReadFails(*reader, 50001);
    reader->setOffset(2);
    EXPECT_EQ(reader->readUInt16OrZero(KXSwap::no), 0x0101u);
}

TEST(KXMutableAbstractData, ReadsTheEditedBytes)
{
    auto const data = std::make_shared<KXMutableData>(text("ad"));
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    EXPECT_EQ(reader->readUInt8OrZero(), 'a');
    // Far more than a buffer has in reserve, so that it moves in memory.
    ASSERT_TRUE(data->insertBytesAt(filled(100000, 'b'), 1));
    EXPECT_EQ(reader->readUInt8OrZero(), 'b');
    reader->setOffset(100001);
    EXPECT_EQ(reader->readUInt8OrZero(), 'd');
}

TEST(KXAbstractData, PathWithAZeroByteIsNotOpened)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", text("content"));
    EXPECT_TRUE(KXAbstractData::abstractDataWithPath(path));
    using std::string_literals::operator""s;
    EXPECT_FALSE(KXAbstractData::abstractDataWithPath(path + "\0"s));
    EXPECT_FALSE(KXAbstractData::abstractDataWithPath(path + "\0.mp3"s));
    EXPECT_FALSE(KXAbstractData::createWithPath("\0"s + path));
}
