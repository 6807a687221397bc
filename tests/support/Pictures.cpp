#include "support/Pictures.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace pictures {

namespace {

    std::uint8_t byte(double value)
    {
        return static_cast<std::uint8_t>(std::clamp(std::round(value), 0.0, 255.0));
    }

}

KXImage::Ref solid(std::size_t width, std::size_t height, Colour colour)
{
    return imageOf(width, height, [colour](std::size_t, std::size_t) { return colour; });
}

KXImage::Ref gradient(std::size_t width, std::size_t height)
{
    return imageOf(width, height, [](std::size_t x, std::size_t y) {
        return Colour { static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 128, 255 };
    });
}

KXImage::Ref quarters(std::size_t width, std::size_t height)
{
    return imageOf(width, height, [=](std::size_t x, std::size_t y) {
        bool const isRight = x >= width / 2;
        if (y < height / 2)
            return isRight ? green : red;
        return isRight ? white : blue;
    });
}

KXImage::Ref photograph(std::size_t width, std::size_t height)
{
    std::mt19937 random(1);
    return imageOf(width, height, [&](std::size_t column, std::size_t row) {
        double const x = static_cast<double>(column) / static_cast<double>(width);
        double const y = static_cast<double>(row) / static_cast<double>(height);
        bool const isRoof = y > 0.3 && y < 0.6 && std::abs(x - 0.5) < (y - 0.3);
        bool const isWall = y >= 0.6 && std::abs(x - 0.5) < 0.25;
        double const grain = static_cast<double>(random() % 13) - 6;
        if (isRoof)
            return Colour { byte(170 + grain), byte(60 + grain), byte(40 + grain), 255 };
        if (isWall)
            return Colour { byte(230 + grain), byte(220 + grain), byte(190 + grain), 255 };
        double const wave = 30 * std::sin(12 * x) * std::cos(9 * y);
        return Colour { byte(90 + 80 * x + wave + grain), byte(120 + 60 * y + grain),
            byte(220 - 90 * y + wave + grain), 255 };
    });
}

KXImage::Ref noise(std::size_t width, std::size_t height, std::uint32_t seed)
{
    std::mt19937 random(seed);
    return imageOf(width, height, [&](std::size_t, std::size_t) {
        Colour colour;
        std::uint32_t const alpha = random() % 256;
        for (auto& channel : colour)
            channel = static_cast<std::uint8_t>(random() % (alpha + 1));
        colour[3] = static_cast<std::uint8_t>(alpha);
        return colour;
    });
}

Colour pixel(KXImage const& image, std::size_t x, std::size_t y)
{
    auto const bytes = image.pixels().subspan(
        (y * image.pixelWidth() + x) * KXImage::bytesPerPixel, KXImage::bytesPerPixel);
    Colour colour;
    std::ranges::copy(bytes, colour.begin());
    return colour;
}

bool areEqual(KXImage const& one, KXImage const& other)
{
    return one.size() == other.size() && one.pixelWidth() == other.pixelWidth()
        && std::ranges::equal(one.pixels(), other.pixels());
}

std::size_t countOf(KXImage const& image, Colour colour)
{
    std::size_t count = 0;
    for (std::size_t y = 0; y < image.pixelHeight(); ++y) {
        for (std::size_t x = 0; x < image.pixelWidth(); ++x)
            count += pixel(image, x, y) == colour;
    }
    return count;
}

double likeness(KXImage const& one, KXImage const& other)
{
    if (one.pixelWidth() != other.pixelWidth() || one.pixelHeight() != other.pixelHeight())
        return 0;
    double squares = 0;
    for (std::size_t i = 0; i < one.pixels().size(); ++i) {
        double const difference = one.pixels()[i] - other.pixels()[i];
        squares += difference * difference;
    }
    double const mean = squares / static_cast<double>(one.pixels().size());
    return mean > 0 ? std::min(100.0, 10 * std::log10(255 * 255 / mean)) : 100;
}

}
