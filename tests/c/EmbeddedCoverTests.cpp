// Which of a file's pictures is its cover for the C interface.

#include "kxmd/kxmd_c.h"
#include "support/Builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

using namespace build;

namespace {

/// A picture frame, version 2.3, with a picture of that type (ID3v2.3.0, 4.15): 3 is the front.
Bytes pictureOfType(std::uint32_t type, Bytes const& picture)
{
    return frame(
        ID3::v23, "APIC", join(u8(0), text("image/jpeg"), u8(0), u8(type), u8(0), picture));
}

Bytes song(Bytes const& pictures) { return tag(ID3::v23, pictures); }

Bytes movieWithTags(Bytes const& tags)
{
    return join(ftyp(), atom("moov", userDataWithTags(tags)));
}

/// Empty, after a check of the error, without a cover.
Bytes coverOf(Bytes const& bytes)
{
    kxmd_file* const file = kxmd_file_open_bytes(bytes.data(), bytes.size(), nullptr);
    kxmd_error* error = nullptr;
    kxmd_bytes* const cover = kxmd_file_extract_cover(file, &error);
    EXPECT_EQ(kxmd_error_get_code(error), cover ? KXMD_ERROR_NONE : KXMD_ERROR_NOT_FOUND);
    auto const* const first = static_cast<std::uint8_t const*>(kxmd_bytes_get_data(cover));
    Bytes found(first, first + kxmd_bytes_get_length(cover));
    kxmd_error_free(error);
    kxmd_bytes_free(cover);
    kxmd_file_free(file);
    return found;
}

Bytes const one = jpeg(8, 8, 100), other = jpeg(9, 9, 120), drawing = png(7, 7);
Bytes const noPicture = text("no picture, but long enough for one");

}

TEST(CEmbeddedCover, FrontOfMP3ComesFirst)
{
    EXPECT_EQ(coverOf(song(join(pictureOfType(0, one), pictureOfType(3, other)))), other);
    EXPECT_EQ(coverOf(song(join(pictureOfType(3, other), pictureOfType(3, one)))), other);
    EXPECT_EQ(coverOf(song(join(pictureOfType(4, drawing), pictureOfType(0, other)))), drawing);
}

TEST(CEmbeddedCover, WhatIsNoPictureDoesNotCount)
{
    EXPECT_EQ(coverOf(song(join(pictureOfType(3, noPicture), pictureOfType(0, one)))), one);
    EXPECT_EQ(coverOf(song(join(pictureOfType(0, noPicture), pictureOfType(4, one)))), one);
    EXPECT_TRUE(coverOf(song(pictureOfType(3, noPicture))).empty());
    EXPECT_TRUE(coverOf(song(textFrame(ID3::v23, "TIT2", "Blue"))).empty());
}

TEST(CEmbeddedCover, FirstOfMP4Counts)
{
    EXPECT_EQ(coverOf(movieWithTags(join(covr(13, one), covr(14, drawing)))), one);
    EXPECT_EQ(coverOf(movieWithTags(join(covr(0, noPicture), covr(14, drawing)))), drawing);
    EXPECT_TRUE(coverOf(movieWithTags(covr(13, noPicture))).empty());
    EXPECT_TRUE(coverOf(movieWithTags(tagAtom("\xA9nam", "Blue"))).empty());
}

TEST(CEmbeddedCover, TruncatedFilesGiveNoneOrThePictureThatIsThere)
{
    for (Bytes const& file : { song(pictureOfType(3, one)), movieWithTags(covr(13, one)) }) {
        for (std::size_t length = 0; length < file.size(); ++length) {
            Bytes const cover
                = coverOf(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_TRUE(cover.empty() || std::equal(cover.begin(), cover.end(), one.begin()))
                << length;
        }
    }
}
