#include "kxmd/base/KXPrintableText.h"

#include <gtest/gtest.h>

TEST(KXPrintableText, LeavesTextAsItIs)
{
    for (char const* const text :
        { "", "Blue Song", "~", " ", "Größe", "\xC2\xA0", "日本", "\xC3\x80" })
        EXPECT_EQ(KXTextWithoutControlCharacters(text), text);
}

TEST(KXPrintableText, ShowsControlCharactersOfASCIIAsQuestionMarks)
{
    EXPECT_EQ(KXTextWithoutControlCharacters("a\x1B[2Jb"), "a?[2Jb");
    EXPECT_EQ(KXTextWithoutControlCharacters({ "\0\t\r\n\x1F\x7F", 6 }), "??????");
}

TEST(KXPrintableText, ShowsThoseFrom80To9FAsOneQuestionMarkWhereverTheyStand)
{
    EXPECT_EQ(KXTextWithoutControlCharacters("\xC2\x80"), "?");
    EXPECT_EQ(KXTextWithoutControlCharacters("\xC2\x9F\xC2\x9B"
                                             "31m"),
        "??31m");
    EXPECT_EQ(KXTextWithoutControlCharacters("a\xC2\x85z"), "a?z");
    EXPECT_EQ(KXTextWithoutControlCharacters("end\xC2\x90"), "end?");
}

TEST(KXPrintableText, BytesThatAreNoUTF8StayAsTheyAre)
{
    for (char const* const text : { "\xC2", "a\xC2", "\xC2z", "\x80\x9F" })
        EXPECT_EQ(KXTextWithoutControlCharacters(text), text);
}
