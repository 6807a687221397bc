#include "kxmd/base/KXFourCharacterCodePrivate.h"

#include <gtest/gtest.h>

TEST(KXFourCharacterCode, IsOfTextsWithFourLatin1Characters)
{
    struct {
        std::string_view text;
        std::uint32_t value;
    } const cases[] {
        { "moov", 0x6D6F6F76 },
        { "\x7F 0~", 0x7F20307E },
        { std::string_view("\0\0\0\0", 4), 0 },
        { "\xC2\xA9nam", 0xA96E616D },
        { "\xC2\x80\xC2\xBF\xC3\x80\xC3\xBF", 0x80BFC0FF },
    };
    for (auto const& [text, value] : cases) {
        EXPECT_EQ(KXFourCharacterCode::codeOfText(text), KXFourCharacterCode(value)) << text;
        EXPECT_EQ(KXFourCharacterCode(value).text(), text);
    }
}

TEST(KXFourCharacterCode, IsOfNoOtherTexts)
{
    for (std::string_view const text : { "", "moo", "moovs", "\xC4\x80oov", "\xC1\xBFoov",
             "moo\xC2", "\x80moo", "\x80\x80oov", "\xFFmoo" })
        EXPECT_EQ(KXFourCharacterCode::codeOfText(text), std::nullopt) << text;
}
