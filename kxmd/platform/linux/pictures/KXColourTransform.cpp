#include "kxmd/platform/linux/pictures/KXColourTransformPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <lcms2.h>
#include <utility>

namespace {

struct ProfileClose {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using ProfileRef = std::unique_ptr<void, ProfileClose>;

struct TransformDelete {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using TransformRef = std::unique_ptr<void, TransformDelete>;

/// Whether a profile has primaries and curves, and no tables, which would be used before these:
/// they are for printers and scanners, and a large target for hostile files.
bool isOfThreePrimaries(cmsHPROFILE profile)
{
    constexpr cmsTagSignature tables[] { cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigDToB0Tag,
        cmsSigDToB1Tag };
    return cmsGetColorSpace(profile) == cmsSigRgbData && cmsIsMatrixShaper(profile)
        && std::ranges::none_of(
            tables, [profile](cmsTagSignature table) { return cmsIsTag(profile, table); });
}

bool areEqual(cmsCIEXYZ const& one, cmsCIEXYZ const& other)
{
    constexpr double rounding = 0.002; // Of other programs, and of the adaptation to another white.
    return std::abs(one.X - other.X) < rounding && std::abs(one.Y - other.Y) < rounding
        && std::abs(one.Z - other.Z) < rounding;
}

bool areEqual(cmsToneCurve const& one, cmsToneCurve const& other)
{
    constexpr float rounding = 1.0F / 256;
    for (int i = 0; i <= 16; ++i) {
        auto const value = static_cast<float>(i) / 16;
        if (std::abs(cmsEvalToneCurveFloat(&one, value) - cmsEvalToneCurveFloat(&other, value))
            > rounding)
            return false;
    }
    return true;
}

/// Whether a profile is of pictures without colours, and has a curve for these.
bool isOfGrey(cmsHPROFILE profile)
{
    return cmsGetColorSpace(profile) == cmsSigGrayData && cmsIsTag(profile, cmsSigGrayTRCTag);
}

/// Whether two profiles have an equal value for a tag.
template <class Value> bool areEqualIn(cmsTagSignature tag, cmsHPROFILE one, cmsHPROFILE other)
{
    auto const* const ofOne = static_cast<Value const*>(cmsReadTag(one, tag));
    auto const* const ofOther = static_cast<Value const*>(cmsReadTag(other, tag));
    return ofOne && ofOther && areEqual(*ofOne, *ofOther);
}

/// Whether two profiles stand for the same colours. Most stand for sRGB, and preparing a transform
/// takes longer than decoding a small picture.
bool areEqual(cmsHPROFILE one, cmsHPROFILE other)
{
    auto const isEqualPrimary
        = [&](cmsTagSignature tag) { return areEqualIn<cmsCIEXYZ>(tag, one, other); };
    auto const isEqualCurve
        = [&](cmsTagSignature tag) { return areEqualIn<cmsToneCurve>(tag, one, other); };
    return isEqualPrimary(cmsSigRedColorantTag) && isEqualPrimary(cmsSigGreenColorantTag)
        && isEqualPrimary(cmsSigBlueColorantTag) && isEqualCurve(cmsSigRedTRCTag)
        && isEqualCurve(cmsSigGreenTRCTag) && isEqualCurve(cmsSigBlueTRCTag);
}

TransformRef newTransform(cmsHPROFILE from, cmsUInt32Number layout, cmsHPROFILE sRGB)
{
    return TransformRef(cmsCreateTransform(from, layout, sRGB, TYPE_RGBA_8,
        INTENT_RELATIVE_COLORIMETRIC, layout == TYPE_RGBA_8 ? cmsFLAGS_COPY_ALPHA : 0));
}

class TransformOfColours final : public KXColourTransform {
public:
    explicit TransformOfColours(TransformRef transform)
        : _transform(std::move(transform))
    {
    }

    void convertPixels(std::uint8_t* pixels, std::size_t count) const override
    {
        cmsDoTransform(_transform.get(), pixels, pixels, static_cast<cmsUInt32Number>(count));
    }

private:
    TransformRef const _transform;
};

/// For pixels whose red, green and blue are equal.
class TransformOfGrey final : public KXColourTransform {
public:
    explicit TransformOfGrey(TransformRef const& transform)
    {
        std::array<std::uint8_t, 256> greys;
        for (std::size_t i = 0; i < greys.size(); ++i)
            greys[i] = static_cast<std::uint8_t>(i);
        cmsDoTransform(transform.get(), greys.data(), _colours.data(), greys.size());
    }

    void convertPixels(std::uint8_t* pixels, std::size_t count) const override
    {
        for (std::size_t i = 0; i < count; ++i, pixels += length)
            std::copy_n(_colours.data() + pixels[0] * length, 3, pixels);
    }

private:
    static constexpr std::size_t length = 4;
    std::array<std::uint8_t, 256 * length> _colours {};
};

}

std::unique_ptr<KXColourTransform const> KXColourTransform::transformToSRGB(
    std::span<std::uint8_t const> profile, bool isGrey)
{
    constexpr std::size_t longestProfile = 1 << 20; // Real ones take a few kilobytes.
    if (profile.empty() || profile.size() > longestProfile)
        return nullptr;
    auto const size = static_cast<cmsUInt32Number>(profile.size());
    ProfileRef const parsed(cmsOpenProfileFromMem(profile.data(), size));
    ProfileRef const sRGB(parsed ? cmsCreate_sRGBProfile() : nullptr);
    if (!sRGB)
        return nullptr;
    if (isGrey && isOfGrey(parsed.get())) {
        auto const transform = newTransform(parsed.get(), TYPE_GRAY_8, sRGB.get());
        return transform ? std::make_unique<TransformOfGrey const>(transform) : nullptr;
    }
    if (!isOfThreePrimaries(parsed.get()) || areEqual(parsed.get(), sRGB.get()))
        return nullptr;
    auto transform = newTransform(parsed.get(), TYPE_RGBA_8, sRGB.get());
    return transform ? std::make_unique<TransformOfColours const>(std::move(transform)) : nullptr;
}
