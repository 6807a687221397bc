#include "kxmd/platform/linux/pictures/KXColourProfilePrivate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <lcms2.h>
#include <memory>

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

}

void convertToSRGB(GdkPixbuf& pixbuf, std::span<guchar const> profile)
{
    constexpr std::size_t longestProfile = 1 << 20; // Real ones take a few kilobytes.
    if (profile.size() > longestProfile)
        return;
    auto const size = static_cast<cmsUInt32Number>(profile.size());
    ProfileRef const parsed(cmsOpenProfileFromMem(profile.data(), size));
    if (!parsed || !isOfThreePrimaries(parsed.get()))
        return;
    ProfileRef const sRGB(cmsCreate_sRGBProfile());
    if (!sRGB || areEqual(parsed.get(), sRGB.get()))
        return;
    cmsUInt32Number const layout
        = gdk_pixbuf_get_has_alpha(&pixbuf) ? cmsUInt32Number { TYPE_RGBA_8 } : TYPE_RGB_8;
    TransformRef const transform(cmsCreateTransform(parsed.get(), layout, sRGB.get(), layout,
        INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_COPY_ALPHA));
    if (!transform)
        return;
    guchar* const pixels = gdk_pixbuf_get_pixels(&pixbuf);
    auto const rowLength = static_cast<cmsUInt32Number>(gdk_pixbuf_get_rowstride(&pixbuf));
    cmsDoTransformLineStride(transform.get(), pixels, pixels,
        static_cast<cmsUInt32Number>(gdk_pixbuf_get_width(&pixbuf)),
        static_cast<cmsUInt32Number>(gdk_pixbuf_get_height(&pixbuf)), rowLength, rowLength, 0, 0);
}
