// What texts and log lines allocate.

#include "kxmd/base/KXLog.h"
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

TEST(TextCost, LogLinesThatNobodyHearsAreNotFormatted)
{
    LogCapture const restoresTheSink;
    std::string const text(1000, 'x');
    KXSetLogSink({});
    auto const before = Allocations::soFar();
    KXLog("Metadata", "%s", text.c_str());
    EXPECT_EQ((Allocations::soFar() - before).count, 0u);
}
