// The sizes of pictures, and what files are, by any bytes.

#include "FuzzTarget.h"

#include "kxmd/image/KXPictureSizePrivate.h"
#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace {

/// The size of the same picture between other bytes.
std::optional<KXSize> sizeWithin(
    std::uint8_t const* bytes, std::size_t length, std::uint8_t around, std::size_t before)
{
    std::vector<std::uint8_t> file(before, around);
    file.insert(file.end(), bytes, bytes + length);
    file.insert(file.end(), 100, around);
    auto const data = immutableReader(file.data(), file.size());
    data->setOffset(before);
    return sizeOfEncodedPictureInData(*data, length);
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    auto const size = sizeOfEncodedPictureInData(*immutableReader(bytes, length), length);
    KXMD_REQUIRE(size == sizeOfEncodedPictureInData(*mutableReader(bytes, length), length));
    // What lies before and after a picture does not change it.
    KXMD_REQUIRE(size == sizeWithin(bytes, length, 0, 0));
    KXMD_REQUIRE(size == sizeWithin(bytes, length, 0xFF, 7));
    KXMD_REQUIRE(!sizeOfEncodedPictureInData(*immutableReader(bytes, length), length + 1));
    KXMD_REQUIRE(!size || (size->width >= 0 && std::trunc(size->width) == size->width));
    KXMD_REQUIRE(!size || (size->height >= 0 && std::trunc(size->height) == size->height));

    std::span const head(bytes, std::min(length, longestContentHead));
    KXFileContent const content = contentOfFileWithHead(head);
    std::vector<std::uint8_t> const copy(head.begin(), head.end());
    KXMD_REQUIRE(content == contentOfFileWithHead(copy));
    return 0;
}
