// What texts and log lines allocate.

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXPrintableText.h"
#include "kxmd/base/KXTextPrivate.h"

#include "support/Allocations.h"
#include "support/Builders.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace build;

TEST(TextCost, TextsAreDecodedIntoOneAllocation)
{
    Bytes const latin1 = filled(100'000, 0xE9);
    Bytes const utf16 = utf16BigEndian(std::u16string(50'000, u'a'));
    for (auto const& [bytes, encoding] :
        { std::pair(latin1, KXStringEncodingLatin1), std::pair(utf16, KXStringEncodingUnicode) }) {
        auto const before = Allocations::soFar();
        auto const decoded = textFromBytes(bytes, encoding);
        EXPECT_EQ((Allocations::soFar() - before).count, 1u) << encoding;
        EXPECT_TRUE(decoded);
    }
}

TEST(TextCost, ASCIITextsTakeTheRoomOfTheirBytes)
{
    Bytes const bytes = filled(100'000, 'a');
    for (auto const encoding :
        { KXStringEncodingASCII, KXStringEncodingLatin1, KXStringEncodingUTF8 }) {
        auto const before = Allocations::soFar();
        auto const decoded = textFromBytes(bytes, encoding);
        EXPECT_LE((Allocations::soFar() - before).bytes, bytes.size() + 1) << encoding;
        EXPECT_TRUE(decoded);
    }
}

TEST(TextCost, ShortTextsAreReadWithoutABufferBetween)
{
    constexpr std::uint64_t longest = 1024;
    auto const data = reader(filled(longest, 'a'));
    for (std::uint64_t const length : { longest / 2, longest }) {
        std::optional<std::string> text;
        data->setOffset(0);
        auto const before = Allocations::soFar();
        EXPECT_TRUE(data->readStringTo(text, length, KXStringEncodingLatin1));
        EXPECT_EQ((Allocations::soFar() - before).count, 1u) << length;
    }
}

TEST(TextCost, PrintableTextIsMadeInOneAllocation)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "text\n";
    auto const before = Allocations::soFar();
    std::string const shown = KXTextWithoutControlCharacters(text);
    EXPECT_EQ((Allocations::soFar() - before).count, 1u);
    EXPECT_EQ(shown.size(), text.size());
}

TEST(TextCost, LogLinesThatNobodyHearsAreNotFormatted)
{
    LogCapture const restoresTheSink;
    std::string const text(1000, 'x');
    KXSetLogSink({});
    auto const before = Allocations::soFar();
    KXLog("Metadata", "%s", text.c_str());
    EXPECT_EQ((Allocations::soFar() - before).count, 0u);
}
