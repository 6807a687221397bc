// Where the preview of a photograph and the poster frame of a movie are, by any bytes. Decoders of
// others are not asked: a loader of ours takes their place.

#include "AnyPicture.h"
#include "FuzzTarget.h"

#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/KXPlatform.h"
#include "kxmd/thumbnails/KXMDExifParser.h"
#include "kxmd/thumbnails/KXMDQTParser.h"

#include <algorithm>
#include <cmath>

namespace {

/// A movie that shows nothing at its poster time.
class DarkMovie final : public KXMovie {
public:
    double duration() const override { return 0; }
    KXImage::Ref imageAtTime(double seconds, KXSize) override
    {
        KXMD_REQUIRE(std::isfinite(seconds) && seconds >= 0);
        return seconds == 0 ? KXImage::imageWithSize({ 1, 1 }) : nullptr;
    }
    KXImage::Ref keyImageAtTime(double, KXSize) override { return nullptr; }
    KXData attachedPicture() const override { return {}; }
};

/// Takes whatever is not too long for a movie.
class AnyMovie final : public KXMovieLoader {
public:
    static constexpr std::uint64_t longest = 600; // Bytes.

    std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override
    {
        bool const isMovie = data.length() && data.length() <= longest;
        return isMovie ? std::make_unique<DarkMovie>() : nullptr;
    }
};

KXPlatform::Ref platform()
{
    static KXPlatform::Ref const shared = [] {
        auto own = std::make_shared<KXPlatform>();
        own->pictureLoader = std::make_shared<AnyPicture const>();
        own->movieLoader = std::make_shared<AnyMovie const>();
        return own;
    }();
    return shared;
}

void checkPreview(std::uint8_t const* bytes, std::size_t length)
{
    KXMDExifParser parser(platform()), again(platform());
    bool const isParsed = parser.parseAbstractData(*immutableReader(bytes, length));
    KXMD_REQUIRE(again.parseAbstractData(*mutableReader(bytes, length)) == isParsed);
    KXMD_REQUIRE(parser.thumbnailAddress() == again.thumbnailAddress());
    KXMD_REQUIRE(parser.thumbnailLength() == again.thumbnailLength());
    KXMD_REQUIRE(!parser.thumbnail() == !again.thumbnail());
    KXMD_REQUIRE(isParsed || !parser.thumbnail());
    if (!parser.thumbnail())
        return;
    KXMD_REQUIRE(parser.thumbnailAddress() && parser.thumbnailLength());
    KXMD_REQUIRE(parser.thumbnailAddress() + parser.thumbnailLength() <= length);
}

/// The smallest file that cameras write, with these bytes as its TIFF structure.
std::vector<std::uint8_t> photograph(std::uint8_t const* bytes, std::size_t length)
{
    std::vector<std::uint8_t> file { 0xFF, 0xD8, 0xFF, 0xE1, 0xFF, 0xFF, 'E', 'x', 'i', 'f', 0, 0 };
    file.insert(file.end(), bytes, bytes + length);
    return file;
}

void checkPoster(std::uint8_t const* bytes, std::size_t length)
{
    KXMDQTParser parser(platform());
    bool const isFound = parser.parseAbstractData(*immutableReader(bytes, length));
    KXMD_REQUIRE(isFound == (length && length <= AnyMovie::longest));
    KXMD_REQUIRE(isFound == (parser.thumbnail() != nullptr));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    checkPreview(bytes, length);
    auto const file = photograph(bytes, length);
    checkPreview(file.data(), file.size());
    checkPoster(bytes, length);
    return 0;
}
