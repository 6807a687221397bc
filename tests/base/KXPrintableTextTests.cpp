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

TEST(KXPrintableText, ShowsWhatTurnsTheOrderOfTextOrEndsALineAsQuestionMarks)
{
    for (char const* const character : { "\u061C", "\u200E", "\u200F", "\u2028", "\u2029", "\u202A",
             "\u202E", "\u2066", "\u2069" }) {
        EXPECT_EQ(KXTextWithoutControlCharacters(std::string("a") + character + "b"), "a?b");
    }
    for (char const* const neighbour : { "\u061B", "\u061D", "\u200D", "\u2010", "\u2027", "\u202F",
             "\u2065", "\u206A", "\U0001F469\u200D\U0001F680" }) {
        EXPECT_EQ(KXTextWithoutControlCharacters(neighbour), neighbour);
    }
}

TEST(KXPrintableText, ShowsEachByteThatIsNotUTF8AsAQuestionMark)
{
    EXPECT_EQ(KXTextWithoutControlCharacters("\x9B"
                                             "31m"),
        "?31m");
    EXPECT_EQ(KXTextWithoutControlCharacters("a\xC2"), "a?");
    EXPECT_EQ(KXTextWithoutControlCharacters("\xE2\x82z"), "??z");
    EXPECT_EQ(KXTextWithoutControlCharacters("\xF0\x9F\x98z"), "???z");
    EXPECT_EQ(KXTextWithoutControlCharacters("\xC2z\x80\x9F"), "?z??");
    EXPECT_EQ(KXTextWithoutControlCharacters("\xF0\x9F\x98"), "???"); // Cut off.
}

TEST(KXPrintableText, GivesEachOfThemToWhoeverReplacesIt)
{
    std::u32string given;
    auto const shown
        = KXTextReplacingControlCharactersWith("a\x1B\u202E\u0085é\xFF", [&](char32_t character) {
              given += character;
              return std::string("<>");
          });
    EXPECT_EQ(shown, "a<><><>é<>");
    EXPECT_EQ(given, U"\x1B\u202E\u0085\uFFFD");
}
