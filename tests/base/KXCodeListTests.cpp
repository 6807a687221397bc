#include "kxmd/base/KXCodeListPrivate.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace {

constexpr std::string_view text = "h264,H264,avc1";
constexpr KXCodeList codes { "h264,H264,avc1" };

}

TEST(KXCodeList, ContainsItsCodes)
{
    for (std::string_view const code : { "h264", "H264", "avc1" })
        EXPECT_TRUE(codes.contains(code)) << code;
}

TEST(KXCodeList, DoesNotContainOthers)
{
    for (std::string_view const code : { "h265", "AVC1", "4,h2", "h264,avc1", "x", "h1" })
        EXPECT_FALSE(codes.contains(code)) << code;
}

TEST(KXCodeList, ContainsPartsOfCodesAndWhatStraddlesAComma)
{
    for (std::string_view const code : { "264,", ",H26", "4,av", "64,H", "H26", "," })
        EXPECT_TRUE(codes.contains(code)) << code;
}

TEST(KXCodeList, IsASearchInItsText)
{
    for (std::size_t length = 1; length <= text.size(); ++length) {
        for (std::size_t start = 0; start + length <= text.size(); ++start)
            EXPECT_TRUE(codes.contains(text.substr(start, length)));
    }
    EXPECT_FALSE(codes.contains("h264,H264,avc1,"));
    EXPECT_FALSE(codes.contains(""));
}

TEST(KXCodeList, CodesMayHoldZeros)
{
    using namespace std::string_view_literals;
    EXPECT_FALSE(codes.contains("h264\0"sv));
    EXPECT_FALSE(codes.contains("\0\0\0\0"sv));
    EXPECT_FALSE(codes.contains("avc\0"sv));
    static constexpr KXCodeList withZero { "a\0b"sv };
    EXPECT_TRUE(withZero.contains("\0b"sv));
    EXPECT_FALSE(withZero.contains("a\0c"sv));
}
