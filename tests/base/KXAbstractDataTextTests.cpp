// The three ways in which a reader reads texts.

#include "kxmd/base/KXAbstractData.h"

#include "support/ReaderKinds.h"

using namespace build;

namespace {

using TextOfAnyReader = TestOfEveryReader;
using Text = std::optional<std::string>;

/// UTF-16 units, so that no byte of them is zero.
Bytes utf16Of(std::size_t units)
{
    return filled(units * 2, 0x61); // U+6161.
}

std::string utf8Of(std::size_t units)
{
    std::string text;
    for (std::size_t i = 0; i < units; ++i)
        text += "\u6161";
    return text;
}

}

INSTANTIATE_TEST_SUITE_P(KXAbstractData, TextOfAnyReader, testing::ValuesIn(allReaderKinds),
    testing::PrintToStringParamName());

TEST_P(TextOfAnyReader, KeepsALeadingZeroAsACharacter)
{
    auto const reader = readerOver(bytes({ 0x00, 0x6D, 0x6F, 0x6F }));
    Text text;
    EXPECT_TRUE(reader->readStringTo(text, 4, KXStringEncodingLatin1));
    EXPECT_EQ(text, std::string("\0moo", 4));
    EXPECT_EQ(reader->offset(), 4u);
}

TEST_P(TextOfAnyReader, DecodesLatin1ToTheCharactersOfTheSameCode)
{
    Text text;
    EXPECT_TRUE(
        readerOver(bytes({ 0xA9, 'n', 'a', 'm' }))->readStringTo(text, 4, KXStringEncodingLatin1));
    EXPECT_EQ(text, "\u00A9nam");
}

TEST_P(TextOfAnyReader, EmptyTextIsReadWithoutMoving)
{
    auto const reader = readerOver(build::text("abc"));
    reader->setOffset(3);
    for (auto const encoding : { KXStringEncodingASCII, KXStringEncodingUTF8,
             KXStringEncodingLatin1, KXStringEncodingUnicode }) {
        Text text;
        EXPECT_TRUE(reader->readStringTo(text, 0, encoding));
        EXPECT_EQ(text, "");
        EXPECT_TRUE(reader->readStringWithZeroTerminationTo(text, 0, encoding));
        EXPECT_EQ(text, "");
    }
    EXPECT_EQ(reader->offset(), 3u);
}

TEST_P(TextOfAnyReader, FailsALengthLargerThanWhatRemainsAndStays)
{
    auto const reader = readerOver(build::text("abcd"));
    reader->setOffset(1);
    Text text = "old";
    EXPECT_FALSE(reader->readStringTo(text, 4, KXStringEncodingLatin1));
    EXPECT_FALSE(text);
    EXPECT_EQ(reader->offset(), 1u);
    EXPECT_TRUE(reader->readStringTo(text, 3, KXStringEncodingLatin1));
    EXPECT_EQ(text, "bcd");
}

TEST_P(TextOfAnyReader, LongTextMayEndWithTheData)
{
    auto const data = readerOver(filled(3000, 'a'));
    std::optional<std::string> text;
    data->setOffset(10);
    EXPECT_TRUE(data->readStringTo(text, 2990, KXStringEncodingLatin1));
    EXPECT_EQ(text, std::string(2990, 'a'));
    EXPECT_EQ(data->remainingLength(), 0u);
}

TEST_P(TextOfAnyReader, FailsBytesThatTheEncodingCannotDecodeAndStays)
{
    struct {
        KXStringEncoding encoding;
        Bytes undecodable; // Without zeros.
    } const cases[] {
        { KXStringEncodingASCII, bytes({ 'a', 0x80 }) },
        { KXStringEncodingUTF8, bytes({ 'a', 0xC3 }) },
        { KXStringEncodingUnicode, bytes({ 0xD8, 0x61, 0x61, 0x61 }) }, // A lone surrogate.
        { KXStringEncodingUnicode, bytes({ 'a', 'b', 'c' }) }, // An odd count.
    };
    for (auto const& [encoding, undecodable] : cases) {
        SCOPED_TRACE(testing::PrintToString(undecodable));
        auto const reader = readerOver(join(u8('x'), undecodable));
        reader->setOffset(1);
        Text text = "old";
        EXPECT_FALSE(reader->readStringTo(text, undecodable.size(), encoding));
        EXPECT_FALSE(text);
        text = "old";
        EXPECT_FALSE(reader->readStringWithZeroTerminationTo(text, undecodable.size(), encoding));
        EXPECT_FALSE(text);
        EXPECT_EQ(reader->offset(), 1u);
    }
}

TEST_P(TextOfAnyReader, FailsUndecodableBytesInFrontOfATerminatorAndStays)
{
    auto const reader = readerOver(bytes({ 'a', 0xFF, 0, 'b' }));
    Text text = "old";
    EXPECT_FALSE(reader->readStringToZeroTerminationInto(text, 4, KXStringEncodingUTF8));
    EXPECT_FALSE(text);
    EXPECT_EQ(reader->offset(), 0u);
    EXPECT_TRUE(reader->readStringToZeroTerminationInto(text, 4, KXStringEncodingLatin1));
    EXPECT_EQ(text, "a\u00FF");
}

TEST_P(TextOfAnyReader, UnknownEncodingFails)
{
    auto const reader = readerOver(build::text("abc"));
    Text text = "old";
    EXPECT_FALSE(reader->readStringTo(text, 3, static_cast<KXStringEncoding>(3)));
    EXPECT_FALSE(text);
    EXPECT_EQ(reader->offset(), 0u);
}

TEST_P(TextOfAnyReader, StopsJustAfterTheTerminator)
{
    struct {
        KXStringEncoding encoding;
        Bytes bytes;
        std::string text;
        std::uint64_t end;
    } const cases[] {
        { KXStringEncodingASCII, bytes({ 'a', 'b', 0, 'c' }), "ab", 3 },
        { KXStringEncodingUTF8, bytes({ 0xC3, 0xA9, 0, 0 }), "\u00E9", 3 },
        { KXStringEncodingLatin1, bytes({ 0xE9, 0, 'c' }), "\u00E9", 2 },
        { KXStringEncodingLatin1, bytes({ 0, 'a', 0 }), "", 1 },
        { KXStringEncodingUnicode, join(utf16(u"ab"), u16(0), u8('c')), "ab", 8 },
        { KXStringEncodingUnicode, join(utf16BigEndian(u"ab"), u16(0), u8('c')), "ab", 6 },
        { KXStringEncodingUnicode, bytes({ 0, 0, 'c' }), "", 2 },
        { KXStringEncodingUnicode, join(utf16(u""), u16(0)), "", 4 },
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.bytes));
        auto const reader = readerOver(test.bytes);
        Text text;
        EXPECT_TRUE(
            reader->readStringToZeroTerminationInto(text, test.bytes.size(), test.encoding));
        EXPECT_EQ(text, test.text);
        EXPECT_EQ(reader->offset(), test.end);
    }
}

TEST_P(TextOfAnyReader, FindsNoTerminatorInTwoHalvesOfNeighbouringUnits)
{
    // U+6100, U+0062, U+6100, U+0061, terminator: a search by bytes would stop after the first
    // byte.
    Bytes const units = join(utf16BigEndian(u"\u6100b\u6100a"), u16(0));
    for (std::uint64_t const start : { 0u, 1u, 7u }) {
        SCOPED_TRACE(start);
        auto const reader = readerOver(join(filled(start, 'x'), units, u8('x')));
        reader->setOffset(start);
        Text text;
        EXPECT_TRUE(reader->readStringToZeroTerminationInto(text, 256, KXStringEncodingUnicode));
        EXPECT_EQ(text, "\u6100b\u6100a");
        EXPECT_EQ(reader->offset(), start + units.size());
    }
}

TEST_P(TextOfAnyReader, FindsATerminatorThatEndsExactlyAtTheMaximum)
{
    struct {
        KXStringEncoding encoding;
        Bytes bytes;
        std::uint64_t fits;
    } const cases[] {
        { KXStringEncodingLatin1, bytes({ 'a', 'b', 0, 0 }), 3 },
        { KXStringEncodingUnicode, join(utf16BigEndian(u"ab"), zeros(4)), 6 },
    };
    for (auto const& [encoding, bytes, fits] : cases) {
        SCOPED_TRACE(fits);
        auto const reader = readerOver(bytes);
        Text text = "old";
        for (std::uint64_t tooFew = 0; tooFew < fits; ++tooFew) {
            EXPECT_FALSE(reader->readStringToZeroTerminationInto(text, tooFew, encoding)) << tooFew;
            EXPECT_FALSE(text);
            EXPECT_EQ(reader->offset(), 0u);
        }
        EXPECT_TRUE(reader->readStringToZeroTerminationInto(text, fits, encoding));
        EXPECT_EQ(text, "ab");
        EXPECT_EQ(reader->offset(), fits);
    }
}

TEST_P(TextOfAnyReader, FailsWithoutATerminatorBeforeTheEnd)
{
    struct {
        KXStringEncoding encoding;
        Bytes bytes;
    } const cases[] {
        { KXStringEncodingLatin1, text("abc") }, { KXStringEncodingUnicode, utf16BigEndian(u"ab") },
        { KXStringEncodingUnicode, join(utf16BigEndian(u"ab"), u8(0)) }, // Half a terminator.
    };
    for (auto const& [encoding, bytes] : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        auto const reader = readerOver(bytes);
        Text text = "old";
        EXPECT_FALSE(reader->readStringToZeroTerminationInto(text, 0xFFFFFFFF, encoding));
        EXPECT_FALSE(text);
        EXPECT_EQ(reader->offset(), 0u);
    }
}

TEST_P(TextOfAnyReader, FieldIsDecodedUpToItsTerminatorOrWhole)
{
    struct {
        KXStringEncoding encoding;
        Bytes field;
        std::string text;
    } const cases[] {
        { KXStringEncodingLatin1, bytes({ 'a', 0, 'b', 0 }), "a" },
        { KXStringEncodingLatin1, text("abcd"), "abcd" },
        { KXStringEncodingLatin1, bytes({ 0, 'b' }), "" },
        { KXStringEncodingUTF8, bytes({ 'a', 0, 0xFF }), "a" }, // What follows is not decoded.
        { KXStringEncodingUnicode, join(utf16(u"a"), u16(0), utf16(u"b")), "a" },
        { KXStringEncodingUnicode, utf16(u"ab"), "ab" },
        { KXStringEncodingUnicode, join(utf16(u"a"), zeros(3)), "a" }, // Of an odd length.
    };
    for (auto const& [encoding, field, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(field));
        auto const reader = readerOver(join(u8('x'), field, build::text("behind")));
        reader->setOffset(1);
        Text text;
        EXPECT_TRUE(reader->readStringWithZeroTerminationTo(text, field.size(), encoding));
        EXPECT_EQ(text, expected);
        EXPECT_EQ(reader->offset(), 1 + field.size());
    }
}

TEST_P(TextOfAnyReader, FieldLongerThanWhatRemainsFailsAlthoughATerminatorIsThere)
{
    auto const reader = readerOver(bytes({ 'a', 0, 'b' }));
    Text text = "old";
    EXPECT_FALSE(reader->readStringWithZeroTerminationTo(text, 4, KXStringEncodingLatin1));
    EXPECT_FALSE(text);
    EXPECT_EQ(reader->offset(), 0u);
}

TEST_P(TextOfAnyReader, ReadsTextsOfAnyLengthFromAnyPosition)
{
    // Around the lengths at which a reader changes how it looks for the bytes.
    for (std::size_t const start : { 0u, 1u, 1023u, 8190u, 8191u }) {
        for (std::size_t const length : { 1022u, 1023u, 1024u, 1025u, 2050u, 70001u }) {
            SCOPED_TRACE(std::to_string(start) + ", " + std::to_string(length));
            auto const reader = readerOver(join(zeros(start), filled(length, 'x'), zeros(9)));
            std::string const expected(length, 'x');
            Text text;
            reader->setOffset(start);
            EXPECT_TRUE(reader->readStringTo(text, length, KXStringEncodingLatin1));
            EXPECT_TRUE(text == expected);
            reader->setOffset(start);
            EXPECT_TRUE(
                reader->readStringToZeroTerminationInto(text, length + 1, KXStringEncodingUTF8));
            EXPECT_TRUE(text == expected);
            EXPECT_EQ(reader->offset(), start + length + 1);
            reader->setOffset(start);
            EXPECT_TRUE(
                reader->readStringWithZeroTerminationTo(text, length + 9, KXStringEncodingASCII));
            EXPECT_TRUE(text == expected);
            EXPECT_EQ(reader->offset(), start + length + 9);
        }
    }
}

TEST_P(TextOfAnyReader, ReadsLongUTF16FromOddPositions)
{
    for (std::size_t const start : { 0u, 1u, 8191u }) {
        for (std::size_t const units : { 510u, 511u, 512u, 513u, 5000u }) {
            SCOPED_TRACE(std::to_string(start) + ", " + std::to_string(units));
            auto const reader = readerOver(join(zeros(start), utf16Of(units), u16(0), u8('x')));
            reader->setOffset(start);
            Text text;
            EXPECT_TRUE(
                reader->readStringToZeroTerminationInto(text, 0xFFFFFFFF, KXStringEncodingUnicode));
            EXPECT_TRUE(text == utf8Of(units));
            EXPECT_EQ(reader->offset(), start + units * 2 + 2);
        }
    }
}
