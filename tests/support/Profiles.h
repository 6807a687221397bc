#pragma once

#include "support/Builders.h"

#include <gtest/gtest.h>

#include <array>
#include <lcms2.h>

// Colour profiles (ISO 15076-1).

namespace profiles {

inline constexpr cmsCIExyY whiteD65 { 0.3127, 0.3290, 1 };
inline constexpr cmsCIExyYTRIPLE displayP3 { { 0.680, 0.320, 1 }, { 0.265, 0.690, 1 },
    { 0.150, 0.060, 1 } }; // SMPTE RP 431-2, as phones take photographs.
inline constexpr cmsCIExyYTRIPLE rec709 { { 0.640, 0.330, 1 }, { 0.300, 0.600, 1 },
    { 0.150, 0.060, 1 } };

/// The bytes of a profile, which is closed.
inline build::Bytes saved(cmsHPROFILE profile)
{
    cmsUInt32Number size = 0;
    EXPECT_TRUE(cmsSaveProfileToMem(profile, nullptr, &size));
    build::Bytes bytes(size);
    EXPECT_TRUE(cmsSaveProfileToMem(profile, bytes.data(), &size));
    cmsCloseProfile(profile);
    return bytes;
}

/// A profile of these primaries, with the curve of sRGB (IEC 61966-2-1).
inline cmsHPROFILE created(cmsCIExyYTRIPLE const& primaries)
{
    std::array<double, 5> const parameters { 2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045 };
    cmsToneCurve* curves[3]; // One for all would be changed for all.
    for (auto*& curve : curves)
        curve = cmsBuildParametricToneCurve(nullptr, 4, parameters.data());
    cmsHPROFILE const profile = cmsCreateRGBProfile(&whiteD65, &primaries, curves);
    cmsFreeToneCurveTriple(curves);
    return profile;
}

inline build::Bytes of(cmsCIExyYTRIPLE const& primaries) { return saved(created(primaries)); }

/// A profile of grey with a gamma.
inline build::Bytes ofGrey(double gamma)
{
    auto* const curve = cmsBuildGamma(nullptr, gamma);
    auto bytes = saved(cmsCreateGrayProfile(&whiteD65, curve));
    cmsFreeToneCurve(curve);
    return bytes;
}

}
