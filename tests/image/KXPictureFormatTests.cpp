#include "kxmd/image/KXPictureFormatPrivate.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;
using Format = KXPictureFormat;

namespace {

KXPictureFormat formatOf(Bytes const& head)
{
    return formatOfPictureWithHead({ reinterpret_cast<char const*>(head.data()), head.size() });
}

struct Case {
    Bytes head;
    KXPictureFormat format;
};

std::vector<Case> cases()
{
    return {
        { bytes({ 0xFF, 0xD8 }), Format::jpeg },
        { bytes({ 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' }), Format::png },
        { text("GIF8"), Format::gif },
        { bytes({ 'I', 'I', '*', 0 }), Format::tiff },
        { bytes({ 'M', 'M', 0, '*' }), Format::tiff },
        { bytes({ 0, 0, 1, 0 }), Format::icon },
        { text("RIFF....WEBP"), Format::webp },
        { text("....ftypmif1"), Format::heif },
        { text("....ftyphei"), Format::heif },
        { text("....ftypavi"), Format::heif },
        { text("....ftypmsf1"), Format::heifSequence },
        { text("....ftyphev"), Format::heifSequence },
        { text("BM"), Format::bmp },
    };
}

}

TEST(KXPictureFormat, IsToldByTheFirstBytes)
{
    for (auto const& [head, format] : cases()) {
        EXPECT_EQ(formatOf(head), format);
        EXPECT_EQ(formatOf(join(head, zeros(100))), format);
        EXPECT_LE(head.size(), lengthOfPictureHead);
    }
}

TEST(KXPictureFormat, NeedsEveryByteOfASignature)
{
    for (auto const& [head, format] : cases()) {
        EXPECT_EQ(formatOf({ head.begin(), head.end() - 1 }), Format::unknown);
        Bytes changed = head;
        changed.back() ^= 0x80;
        EXPECT_EQ(formatOf(changed), Format::unknown);
        EXPECT_EQ(formatOf(join(u8('x'), head)), Format::unknown);
    }
    EXPECT_EQ(formatOf({}), Format::unknown);
    EXPECT_EQ(formatOf(text("....ftypisom")), Format::unknown);
}

TEST(KXPictureFormat, LettersOfABitmapAreTheWeakestSignature)
{
    EXPECT_EQ(formatOf(text("BM......WEBP")), Format::webp);
    EXPECT_EQ(formatOf(text("BM..ftypmif1")), Format::heif);
}

TEST(KXPictureFormat, KnowsTheVersionsOfGIF)
{
    EXPECT_TRUE(isVersionOfGIF("GIF87a"));
    EXPECT_TRUE(isVersionOfGIF("GIF89a..."));
    for (char const* head : { "GIF8", "GIF87", "GIF88a", "GIF89b", "gif89a", "" })
        EXPECT_FALSE(isVersionOfGIF(head)) << head;
}
