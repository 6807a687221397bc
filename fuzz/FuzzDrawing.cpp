// Drawing any part of a picture into any part of another, and shrinking one to fit.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/image/KXImage.h"
#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/image/KXRect.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

/// A number of points: mostly near a small picture, sometimes anything that a double can be.
double coordinate(Choices& choices)
{
    if (choices.next<std::uint8_t>() % 8 == 0)
        return choices.next<double>();
    return choices.next<std::int16_t>() / 256.0;
}

KXRect rect(Choices& choices)
{
    double const x = coordinate(choices), y = coordinate(choices);
    double const width = coordinate(choices), height = coordinate(choices);
    return { x, y, { width, height } };
}

/// A picture of one colour, up to 64 pixels a side.
std::shared_ptr<KXImage> picture(Choices& choices, std::array<std::uint8_t, 4> colour)
{
    std::size_t const width = 1 + choices.next<std::uint8_t>() % 64;
    std::size_t const height = 1 + choices.next<std::uint8_t>() % 64;
    std::vector<std::uint8_t> pixels;
    for (std::size_t i = 0; i < width * height; ++i)
        pixels.insert(pixels.end(), colour.begin(), colour.end());
    return KXImage::imageWithPixels(std::move(pixels), width, height);
}

bool isNear(std::uint8_t value, std::uint8_t expected, int tolerance)
{
    return std::abs(int { value } - int { expected }) <= tolerance;
}

/// A picture that is shrunk fits, keeps its proportions as far as whole points go, and its colour.
void checkFitting(Choices choices)
{
    std::array<std::uint8_t, 4> const colour { 10, 100, 250, 255 };
    KXImage::Ref const image = picture(choices, colour);
    KXSize const whole = image->size(), room { coordinate(choices), coordinate(choices) };
    auto const shrunk = shrinkImageToSize(image, room);
    bool const isRoom = room.width > 0 && room.height > 0;
    KXMD_REQUIRE((shrunk != nullptr) == isRoom);
    if (!shrunk)
        return;
    bool const fits = whole.width <= room.width && whole.height <= room.height;
    KXMD_REQUIRE((shrunk == image) == fits);
    if (fits)
        return;
    KXSize const size = shrunk->size();
    KXMD_REQUIRE(size.width <= std::max(1.0, room.width));
    KXMD_REQUIRE(size.height <= std::max(1.0, room.height));
    KXMD_REQUIRE(std::trunc(size.width) == size.width && std::trunc(size.height) == size.height);
    double const width
        = whole.width * std::min(room.width / whole.width, room.height / whole.height);
    KXMD_REQUIRE(std::abs(size.width - std::max(1.0, width)) <= 1);
    auto const pixels = shrunk->pixels();
    for (std::size_t i = 0; i < pixels.size(); ++i)
        KXMD_REQUIRE(isNear(pixels[i], colour[i % KXImage::bytesPerPixel], 1));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    Choices choices(bytes, length);
    checkFitting(choices);
    std::array<std::uint8_t, 4> const colour { 200, 90, 0, 255 }, empty {};
    auto const source = picture(choices, colour);
    auto const target = picture(choices, empty);
    int drawings = 0;
    for (; choices.areLeft(); ++drawings) {
        KXRect const from = rect(choices), into = rect(choices);
        target->drawImageFromRectInRect(*source, from, into);
    }
    // Of one opaque colour comes that colour, more or less covered, and nothing else. Each drawing
    // rounds the colour and its alpha.
    auto const pixels = target->pixels();
    for (std::size_t i = 0; i < pixels.size(); i += KXImage::bytesPerPixel) {
        std::uint8_t const alpha = pixels[i + 3];
        for (std::size_t channel = 0; channel < 3; ++channel) {
            auto const expected
                = static_cast<std::uint8_t>(std::lround(colour[channel] * alpha / 255.0));
            KXMD_REQUIRE(isNear(pixels[i + channel], expected, 1 + drawings));
            KXMD_REQUIRE(pixels[i + channel] <= alpha);
        }
    }
    // A drawing over all of it, from all of it, covers all of it.
    target->drawImageFromRectInRect(*source, { 0, 0, source->size() }, { 0, 0, target->size() });
    for (std::size_t i = 0; i < pixels.size(); ++i)
        KXMD_REQUIRE(isNear(pixels[i], colour[i % KXImage::bytesPerPixel], 1));
    return 0;
}
