#include "kxmd/base/KXTextPrivate.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

struct Decoding {
    Bytes bytes;
    std::optional<std::string> text;
};

void expectDecodings(KXStringEncoding encoding, std::initializer_list<Decoding> decodings)
{
    for (auto const& [bytes, text] : decodings)
        EXPECT_EQ(textFromBytes(bytes, encoding), text) << testing::PrintToString(bytes);
}

}

TEST(KXText, ASCIIEndsAtSevenBits)
{
    expectDecodings(KXStringEncodingASCII,
        {
            { {}, "" },
            { bytes({ 'a', 0, 0x7F }), std::string("a\0\x7F", 3) },
            { bytes({ 'a', 0x80 }), std::nullopt },
            { text("\u00E9"), std::nullopt },
        });
}

TEST(KXText, Latin1KnowsEveryByte)
{
    Bytes all;
    std::string expected;
    for (unsigned code = 0; code < 256; ++code) {
        all.push_back(static_cast<std::uint8_t>(code));
        if (code >= 0x80)
            expected += static_cast<char>(0xC0 | code >> 6);
        expected += static_cast<char>(code < 0x80 ? code : 0x80 | (code & 0x3F));
    }
    EXPECT_EQ(textFromBytes(all, KXStringEncodingLatin1), expected);
}

TEST(KXText, UTF8IsTakenWhenItIsWellFormed)
{
    expectDecodings(KXStringEncodingUTF8,
        {
            { {}, "" },
            { text("a\u00E9\u20AC\U0001F600"), "a\u00E9\u20AC\U0001F600" },
            { bytes({ 0xF4, 0x8F, 0xBF, 0xBF }), "\U0010FFFF" },
            { bytes({ 0xEF, 0xBB, 0xBF, 'a' }), "\uFEFFa" }, // The byte-order mark is kept.
            { bytes({ 0x7F }), "\x7F" }, // The first and the last of each length.
            { bytes({ 0xC2, 0x80, 0xDF, 0xBF }), "\u0080\u07FF" },
            { bytes({ 0xE0, 0xA0, 0x80, 0xEF, 0xBF, 0xBF }), "\u0800\uFFFF" },
            { bytes({ 0xF0, 0x90, 0x80, 0x80 }), "\U00010000" },
            { bytes({ 0xED, 0x9F, 0xBF, 0xEE, 0x80, 0x80 }), "\uD7FF\uE000" },
            { bytes({ 'a', 0, 'b' }), std::string("a\0b", 3) },
            { bytes({ 0x80 }), std::nullopt }, // A continuation alone.
            { bytes({ 0xC3 }), std::nullopt }, // Cut off.
            { bytes({ 0xE2, 0x82 }), std::nullopt },
            { bytes({ 0xC3, 'a' }), std::nullopt },
            { bytes({ 0xC3, 0x7F }), std::nullopt },
            { bytes({ 0xC3, 0xC0 }), std::nullopt },
            { bytes({ 0xE2, 0x82, 'a', 'a' }), std::nullopt },
            { bytes({ 0xE2, 0x82, 'a' }), std::nullopt },
            { bytes({ 0xC0, 0x80 }), std::nullopt }, // Overlong.
            { bytes({ 0xC1, 0xBF }), std::nullopt },
            { bytes({ 0xE0, 0x9F, 0xBF }), std::nullopt },
            { bytes({ 0xF0, 0x8F, 0xBF, 0xBF }), std::nullopt },
            { bytes({ 0xED, 0xA0, 0x80 }), std::nullopt }, // A surrogate.
            { bytes({ 0xF4, 0x90, 0x80, 0x80 }), std::nullopt }, // Past U+10FFFF.
            { bytes({ 0xF5, 0x80, 0x80, 0x80 }), std::nullopt },
            { bytes({ 0xFF }), std::nullopt },
        });
}

TEST(KXText, UTF16FollowsItsByteOrderMarkAndDropsIt)
{
    expectDecodings(KXStringEncodingUnicode,
        {
            { {}, "" },
            { bytes({ 0xFF, 0xFE }), "" },
            { bytes({ 0xFE, 0xFF }), "" },
            { bytes({ 0xFF, 0xFE, 'a', 0 }), "a" },
            { bytes({ 0xFE, 0xFF, 0, 'a' }), "a" },
            { utf16(u"\u00E9\u20AC\U0001F600"), "\u00E9\u20AC\U0001F600" },
            { bytes({ 0xFE, 0xFF, 0xFE, 0xFF }), "\uFEFF" }, // Only the first is a mark.
            { bytes({ 0xFF, 0xFE, 'a', 0, 0, 0, 'b', 0 }), std::string("a\0b", 3) },
            { utf16(u"\u007F\u0080\u07FF\u0800"), "\u007F\u0080\u07FF\u0800" },
            { utf16(u"\uD7FF\uE000\uFFFF"), "\uD7FF\uE000\uFFFF" },
            { utf16(u"\U00010000\U000103FF\U0010FFFF"), "\U00010000\U000103FF\U0010FFFF" },
        });
}

TEST(KXText, UTF16WithoutAMarkIsBigEndian)
{
    expectDecodings(KXStringEncodingUnicode,
        {
            { bytes({ 0, 'a' }), "a" },
            { bytes({ 'a', 0 }), "\u6100" },
            { utf16BigEndian(u"a\U0001F600"), "a\U0001F600" },
        });
}

TEST(KXText, UTF16WithAnOddCountOrALoneSurrogateFails)
{
    expectDecodings(KXStringEncodingUnicode,
        {
            { bytes({ 'a' }), std::nullopt },
            { bytes({ 0xFF, 0xFE, 'a' }), std::nullopt },
            { bytes({ 0xD8, 0x00 }), std::nullopt }, // High, then the end.
            { bytes({ 0xD8, 0x00, 0, 'a' }), std::nullopt }, // High, then a letter.
            { bytes({ 0xD8, 0x00, 0xD8, 0x00 }), std::nullopt }, // High twice.
            { bytes({ 0xDC, 0x00, 0, 'a' }), std::nullopt }, // Low first.
            { bytes({ 0xDC, 0x00, 0xDC, 0x00 }), std::nullopt }, // Low twice.
            { bytes({ 0xDF, 0xFF, 0xDC, 0x00 }), std::nullopt },
            { bytes({ 0xD8, 0x00, 0xE0, 0x00 }), std::nullopt }, // High, then past the low ones.
            { bytes({ 0xFF, 0xFE, 0x00, 0xDC }), std::nullopt },
            { bytes({ 0xDB, 0xFF, 0xDF, 0xFF }), "\U0010FFFF" },
        });
}

TEST(KXText, UnknownEncodingsDecodeNothing)
{
    EXPECT_EQ(textFromBytes(text("a"), static_cast<KXStringEncoding>(0)), std::nullopt);
    EXPECT_EQ(textFromBytes({}, static_cast<KXStringEncoding>(11)), std::nullopt);
}

TEST(KXText, OnlyUTF16HasATwoByteTerminator)
{
    EXPECT_EQ(terminatorSizeForEncoding(KXStringEncodingASCII), 1u);
    EXPECT_EQ(terminatorSizeForEncoding(KXStringEncodingUTF8), 1u);
    EXPECT_EQ(terminatorSizeForEncoding(KXStringEncodingLatin1), 1u);
    EXPECT_EQ(terminatorSizeForEncoding(KXStringEncodingUnicode), 2u);
}
