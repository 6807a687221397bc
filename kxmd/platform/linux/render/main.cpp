#include "kxmd/image/KXImageFittingPrivate.h"
#include "kxmd/platform/KXPlatform.h"

#include <cstdio>
#include <cstdlib>

// Decodes one picture for the library, which bounds the time and the memory of this process:
//
//     kxmd-render WIDTH HEIGHT PATH
//
// Writes a width and a height, 32 bits each, most significant byte first, and then the pixels;
// nothing for what is not a picture that it knows.

namespace {

void writeNumber(std::size_t number)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        std::putchar(static_cast<int>(number >> shift & 0xFF));
}

bool writeImage(KXImage const& image)
{
    writeNumber(image.pixelWidth());
    writeNumber(image.pixelHeight());
    auto const pixels = image.pixels();
    return std::fwrite(pixels.data(), 1, pixels.size(), stdout) == pixels.size()
        && std::fflush(stdout) == 0;
}

}

int main(int count, char** arguments)
{
    if (count != 4) {
        std::fputs("usage: kxmd-render WIDTH HEIGHT PATH\n", stderr);
        return 2;
    }
    KXSize const size { std::strtod(arguments[1], nullptr), std::strtod(arguments[2], nullptr) };
    auto const data = KXAbstractData::abstractDataWithPath(arguments[3]);
    if (!data || !(size.width >= 1) || !(size.height >= 1))
        return 1;
    auto const platform = KXPlatform::platformOfThisMachine();
    auto const image = platform->pictureLoader->imageInData(*data, data->length(), size);
    auto const fitting = image ? shrinkImageToSize(image, size) : nullptr;
    return !fitting || writeImage(*fitting) ? 0 : 1;
}
