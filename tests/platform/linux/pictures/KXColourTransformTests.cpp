// Pictures whose colours are not those of sRGB.

#include "support/Exif.h"
#include "support/PictureLoaderTest.h"
#include "support/Profiles.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <tuple>
#include <utility>

using namespace build;
using namespace pictures;
using profiles::displayP3;
using profiles::rec709;

namespace {

using GreenCurve = std::array<cmsUInt16Number, 17>;

/// A profile that differs from that of sRGB in its green curve.
Bytes profileWithGreenCurve(std::function<void(GreenCurve&)> const& change)
{
    cmsHPROFILE const profile = profiles::created(rec709);
    auto const* const sRGB
        = static_cast<cmsToneCurve const*>(cmsReadTag(profile, cmsSigGreenTRCTag));
    GreenCurve values;
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = cmsEvalToneCurve16(sRGB, static_cast<cmsUInt16Number>(i * 0xFFFF / 16));
    change(values);
    auto* const curve = cmsBuildTabulatedToneCurve16(nullptr, values.size(), values.data());
    EXPECT_TRUE(cmsWriteTag(profile, cmsSigGreenTRCTag, curve));
    cmsFreeToneCurve(curve);
    return profiles::saved(profile);
}

/// One that has a table as well, which says nothing else.
Bytes profileWithTable(cmsCIExyYTRIPLE const& primaries)
{
    cmsHPROFILE const profile = profiles::created(primaries);
    auto* const table = cmsPipelineAlloc(nullptr, 3, 3);
    EXPECT_TRUE(
        cmsPipelineInsertStage(table, cmsAT_BEGIN, cmsStageAllocToneCurves(nullptr, 3, nullptr)));
    EXPECT_TRUE(cmsWriteTag(profile, cmsSigAToB0Tag, table));
    Bytes bytes = profiles::saved(profile);
    cmsPipelineFree(table);
    return bytes;
}

/// ISO 15076-1, B.4: the profile in one segment of application data.
Bytes iccSegment(Bytes const& profile, int number = 1, int count = 1)
{
    return app(2, join(text("ICC_PROFILE"), bytes({ 0, number, count }), profile));
}

/// The bytes in a zlib stream that stores them (RFC 1950, RFC 1951, 3.2.4).
Bytes stored(Bytes const& content)
{
    std::uint32_t low = 1, high = 0;
    for (std::uint8_t const byte : content) {
        low = (low + byte) % 65521;
        high = (high + low) % 65521;
    }
    auto const littleEndian = [](std::size_t number) {
        return bytes({ static_cast<int>(number & 0xFF), static_cast<int>(number >> 8 & 0xFF) });
    };
    return join(bytes({ 0x78, 0x01, 0x01 }), littleEndian(content.size()),
        littleEndian(~content.size()), content, u32(high << 16 | low));
}

/// The PNG file with a profile after its header chunk (PNG, 11.3.3.3).
Bytes withProfile(Bytes const& png, Bytes const& profile)
{
    constexpr std::ptrdiff_t endOfHeader = 8 + 25;
    Bytes const chunk = pngChunk("iCCP", join(text("P"), zeros(2), stored(profile)));
    return join(Bytes(png.begin(), png.begin() + endOfHeader), chunk,
        Bytes(png.begin() + endOfHeader, png.end()));
}

class KXColourTransformOfPictures : public PictureLoaderTest {
protected:
    /// The first pixel of a picture in a file.
    Colour shown(Bytes file) const
    {
        auto const image = decoded(std::move(file));
        return image ? pixel(*image, 0, 0) : Colour();
    }
};

// Of Display P3, and what it is in sRGB by the matrices of both.
constexpr Colour wideOrange { 200, 120, 60, 255 }, orange { 213, 115, 42, 255 };

}

TEST_F(KXColourTransformOfPictures, PhotographsOfPhonesKeepTheirColours)
{
    Bytes const file = jpg(*solid(16, 16, wideOrange));
    expectNear(shown(file), wideOrange, 2);
    expectNear(shown(withSegment(file, iccSegment(profiles::of(displayP3)))), orange, 3);
}

TEST_F(KXColourTransformOfPictures, PNGKeepsItsColours)
{
    Bytes const file = png(*solid(16, 16, wideOrange));
    expectNear(shown(withProfile(file, profiles::of(displayP3))), orange, 1);
}

TEST_F(KXColourTransformOfPictures, AlphaStays)
{
    Colour const half { 100, 60, 30, 128 }; // The same orange, premultiplied.
    Bytes const file = png(*solid(16, 16, half));
    Colour const converted = shown(withProfile(file, profiles::of(displayP3)));
    expectNear(converted, { 106, 58, 21, 128 }, 1);
    EXPECT_EQ(converted[3], 128);
}

TEST_F(KXColourTransformOfPictures, ColoursOutOfRangeAreTheNearest)
{
    Bytes const file = png(*solid(4, 4, { 0, 255, 0, 255 }));
    expectNear(shown(withProfile(file, profiles::of(displayP3))), { 0, 255, 0, 255 }, 1);
}

TEST_F(KXColourTransformOfPictures, ProfileOfSRGBChangesNoPixel)
{
    Bytes const file = png(*gradient(64, 64));
    auto const image = decoded(withProfile(file, profiles::of(rec709)));
    ASSERT_TRUE(image);
    EXPECT_TRUE(areEqual(*image, *gradient(64, 64)));
}

TEST_F(KXColourTransformOfPictures, ProfileThatDiffersFromSRGBInOneCurveChangesColours)
{
    Bytes const file = png(*solid(4, 4, wideOrange));
    auto* const curve = cmsBuildGamma(nullptr, 1.8);
    for (cmsTagSignature const tag : { cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag }) {
        cmsHPROFILE const profile = profiles::created(rec709);
        ASSERT_TRUE(cmsWriteTag(profile, tag, curve));
        EXPECT_NE(shown(withProfile(file, profiles::saved(profile))), wideOrange);
    }
    cmsFreeToneCurve(curve);
}

TEST_F(KXColourTransformOfPictures, CurvesMayDifferAtTheirEndsOnly)
{
    for (auto const& [place, value, colour] :
        { std::tuple(0u, cmsUInt16Number { 0x2000 }, Colour { 0, 0, 0, 255 }),
            { 16u, cmsUInt16Number { 0xF000 }, white } }) {
        Bytes const profile
            = profileWithGreenCurve([place, value](GreenCurve& curve) { curve[place] = value; });
        EXPECT_NE(shown(withProfile(png(*solid(4, 4, colour)), profile)), colour) << place;
    }
}

TEST_F(KXColourTransformOfPictures, CurvesMayDifferByARounding)
{
    constexpr Colour grey { 128, 128, 128, 255 };
    auto const shownWithDifference = [&](double difference) { // In steps of 8 bits.
        Bytes const profile = profileWithGreenCurve([=](GreenCurve& curve) {
            curve[8] = static_cast<cmsUInt16Number>(curve[8] + std::lround(difference * 256));
        });
        return shown(withProfile(png(*solid(4, 4, grey)), profile));
    };
    EXPECT_EQ(shownWithDifference(0.95), grey);
    EXPECT_NE(shownWithDifference(1.05), grey);
}

TEST_F(KXColourTransformOfPictures, ProfileThatDiffersFromSRGBInOnePrimaryChangesColours)
{
    Bytes const file = png(*solid(4, 4, wideOrange));
    for (cmsTagSignature const tag :
        { cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag }) {
        for (double cmsCIEXYZ::*const coordinate :
            { &cmsCIEXYZ::X, &cmsCIEXYZ::Y, &cmsCIEXYZ::Z }) {
            cmsHPROFILE const profile = profiles::created(rec709);
            auto primary = *static_cast<cmsCIEXYZ const*>(cmsReadTag(profile, tag));
            primary.*coordinate += 0.1;
            ASSERT_TRUE(cmsWriteTag(profile, tag, &primary));
            EXPECT_NE(shown(withProfile(file, profiles::saved(profile))), wideOrange);
        }
    }
}

TEST_F(KXColourTransformOfPictures, OtherKindsOfProfilesChangeNothing)
{
    Bytes const file = png(*solid(16, 16, wideOrange));
    auto* const curve = cmsBuildGamma(nullptr, 1.8);
    Bytes const grey = profiles::saved(cmsCreateGrayProfile(&profiles::whiteD65, curve));
    cmsFreeToneCurve(curve);
    Bytes const lab = profiles::saved(cmsCreateLab4Profile(nullptr));
    for (Bytes const& profile :
        { grey, lab, profileWithTable(displayP3), Bytes(), Bytes(300, 0x55) })
        EXPECT_EQ(shown(withProfile(file, profile)), wideOrange);
}

TEST_F(KXColourTransformOfPictures, ProfileHasUpToAMebibyte)
{
    Bytes const file = jpg(*solid(16, 16, wideOrange));
    for (std::size_t const length : { 1u << 20, (1u << 20) + 1 }) {
        Bytes profile = profiles::of(displayP3);
        profile.resize(length);
        constexpr std::ptrdiff_t most = 65'519; // All that a segment holds.
        int const count = static_cast<int>(length / most) + 1;
        Bytes segments;
        for (int i = count; i > 0; --i) {
            auto const part = std::span(profile).subspan(static_cast<std::size_t>((i - 1) * most));
            auto const piece = part.first(std::min<std::size_t>(part.size(), most));
            segments = join(iccSegment(Bytes(piece.begin(), piece.end()), i, count), segments);
        }
        expectNear(shown(withSegment(file, segments)), length == 1u << 20 ? orange : wideOrange, 3);
    }
}

TEST_F(KXColourTransformOfPictures, EveryTruncationOfAProfileShowsThePicture)
{
    Bytes const file = png(*solid(4, 4, wideOrange));
    Bytes const profile = profiles::of(displayP3);
    for (std::size_t length = 0; length < profile.size(); ++length) {
        Bytes const part(profile.begin(), profile.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(shown(withProfile(file, part))[3], 255) << length;
    }
}

TEST_F(KXColourTransformOfPictures, DamagedProfilesDoNoHarm)
{
    Bytes const file = png(*solid(4, 4, wideOrange));
    Bytes const profile = profiles::of(displayP3);
    std::srand(1);
    for (int i = 0; i < 500; ++i) {
        Bytes damaged = profile;
        for (int damages = 1 + i % 4; damages; --damages)
            damaged[static_cast<std::size_t>(std::rand()) % damaged.size()]
                = static_cast<std::uint8_t>(std::rand());
        EXPECT_EQ(shown(withProfile(file, damaged))[3], 255);
    }
}
