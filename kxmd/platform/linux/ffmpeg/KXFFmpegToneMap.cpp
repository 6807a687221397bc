#include "kxmd/platform/linux/ffmpeg/KXFFmpegToneMapPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr float referenceWhite = 203; // In cd/m2: ITU-R BT.2408, 2.1.
constexpr float hlgPeak = 1000; // In cd/m2: the display that HLG is judged on.

/// SMPTE ST 2084: light in units of white by code value from 0 to 1.
float lightOfPQ(float code)
{
    constexpr float m1 = 2610.f / 16384, m2 = 2523.f / 4096 * 128;
    constexpr float c1 = 3424.f / 4096, c2 = 2413.f / 4096 * 32, c3 = 2392.f / 4096 * 32;
    float const power = std::pow(code, 1 / m2);
    return std::pow(std::max(power - c1, 0.f) / (c2 - c3 * power), 1 / m1) * 10000 / referenceWhite;
}

/// ITU-R BT.2100, table 5: the scene's light, from 0 to 1.
float lightOfHLG(float code)
{
    constexpr float a = 0.17883277f, b = 0.28466892f, c = 0.55991073f;
    return code <= 0.5f ? code * code / 3 : (std::exp((code - c) / a) + b) / 12;
}

float encodedForSRGB(float light)
{
    return light <= 0.0031308f ? light * 12.92f : 1.055f * std::pow(light, 1 / 2.4f) - 0.055f;
}

/// A function of 0 to 1 at so many places that 8 bits see no steps.
class Table {
public:
    template <class Function> explicit Table(Function function)
    {
        for (std::size_t i = 0; i < _values.size(); ++i)
            _values[i] = function(static_cast<float>(i) / last);
    }

    float at(float place) const
    {
        return _values[static_cast<std::size_t>(std::clamp(place, 0.f, 1.f) * last + 0.5f)];
    }

private:
    static constexpr float last = 4095;
    std::array<float, 4096> _values;
};

struct Light {
    float red;
    float green;
    float blue;

    Light operator*(float factor) const { return { red * factor, green * factor, blue * factor }; }
};

/// From the primaries of BT.2020 to those of BT.709 (ITU-R BT.2407, 2.2).
Light narrowed(Light wide)
{
    return {
        1.6605f * wide.red - 0.5876f * wide.green - 0.0728f * wide.blue,
        -0.1246f * wide.red + 1.1329f * wide.green - 0.0083f * wide.blue,
        -0.0182f * wide.red - 0.1006f * wide.green + 1.1187f * wide.blue,
    };
}

/// The display's light of a scene (ITU-R BT.2100, table 5, OOTF), in units of white.
Light displayed(Light scene)
{
    float const luminance = 0.2627f * scene.red + 0.6780f * scene.green + 0.0593f * scene.blue;
    constexpr float gamma = 1.2f;
    return scene * (std::pow(std::max(luminance, 1e-6f), gamma - 1) * hlgPeak / referenceWhite);
}

/// Compresses what is brighter than `knee` into the range up to white, scaling by the brightest
/// channel so that the hue stays.
Light pressed(Light light)
{
    constexpr float knee = 0.5f;
    float const brightest = std::max({ light.red, light.green, light.blue });
    if (brightest <= knee)
        return light;
    float const mapped = 1 - (1 - knee) * std::exp((knee - brightest) / (1 - knee));
    return light * (mapped / brightest);
}

std::uint8_t byteOf(float fraction) { return static_cast<std::uint8_t>(fraction * 255 + 0.5f); }

}

bool isHighDynamicRange(AVColorTransferCharacteristic transfer)
{
    return transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
}

AVFrameRef toneMappedFrame(AVFrame const& frame, AVColorTransferCharacteristic transfer)
{
    AVFrameRef mapped(av_frame_alloc());
    if (!mapped)
        return nullptr;
    mapped->format = AV_PIX_FMT_RGBA;
    mapped->width = frame.width;
    mapped->height = frame.height;
    if (av_frame_get_buffer(mapped.get(), 0) < 0)
        return nullptr;

    bool const isPQ = transfer == AVCOL_TRC_SMPTE2084;
    Table const lights(isPQ ? lightOfPQ : lightOfHLG);
    Table const codes(encodedForSRGB);
    for (std::ptrdiff_t y = 0; y < frame.height; ++y) {
        std::uint8_t const* from = frame.data[0] + y * frame.linesize[0];
        std::uint8_t* to = mapped->data[0] + y * mapped->linesize[0];
        for (int x = 0; x < frame.width; ++x, to += 4) {
            std::uint16_t pixel[4];
            std::memcpy(pixel, from, sizeof pixel);
            from += sizeof pixel;
            Light light { lights.at(pixel[0] / 65535.f), lights.at(pixel[1] / 65535.f),
                lights.at(pixel[2] / 65535.f) };
            light = pressed(narrowed(isPQ ? light : displayed(light)));
            to[0] = byteOf(codes.at(light.red));
            to[1] = byteOf(codes.at(light.green));
            to[2] = byteOf(codes.at(light.blue));
            to[3] = static_cast<std::uint8_t>(pixel[3] >> 8);
        }
    }
    return mapped;
}
