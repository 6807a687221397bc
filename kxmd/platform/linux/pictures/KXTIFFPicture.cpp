#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <tiffio.h>
#include <vector>

namespace {

struct TIFFCloser {
    void operator()(TIFF* file) const { TIFFClose(file); }
};
using FileRef = std::unique_ptr<TIFF, TIFFCloser>;

/// The file that the library reads.
struct Input {
    KXAbstractData& data;
    std::uint64_t start;
    std::uint64_t length;
};

Input& inputOf(thandle_t input) { return *static_cast<Input*>(input); }

tmsize_t readBytes(thandle_t handle, void* bytes, tmsize_t length)
{
    Input const& input = inputOf(handle);
    std::uint64_t const position = input.data.offset() - input.start;
    std::uint64_t const left = input.length - std::min(input.length, position);
    std::uint64_t const count = std::min(static_cast<std::uint64_t>(length), left);
    return static_cast<tmsize_t>(
        input.data.readBytesToMaxLength(static_cast<std::uint8_t*>(bytes), count));
}

toff_t seek(thandle_t handle, toff_t offset, int from)
{
    Input const& input = inputOf(handle);
    std::uint64_t position = offset;
    if (from == SEEK_CUR)
        position += input.data.offset() - input.start;
    else if (from == SEEK_END)
        position += input.length;
    input.data.setOffset(input.start + position);
    return input.data.offset() - input.start;
}

tmsize_t writeNothing(thandle_t, void*, tmsize_t) { return 0; }
int closeNothing(thandle_t) { return 0; }
toff_t lengthOf(thandle_t handle) { return inputOf(handle).length; }

template <class Value> Value fieldOf(TIFF* file, std::uint32_t tag)
{
    Value value {};
    (void)TIFFGetFieldDefaulted(file, tag, &value);
    return value;
}

std::span<std::uint8_t const> profileOf(TIFF* file)
{
    std::uint32_t length = 0;
    void* bytes = nullptr;
    if (!TIFFGetField(file, TIFFTAG_ICCPROFILE, &length, &bytes))
        return {};
    return { static_cast<std::uint8_t const*>(bytes), length };
}

bool isGrey(TIFF* file)
{
    auto const meaning = fieldOf<std::uint16_t>(file, TIFFTAG_PHOTOMETRIC);
    return meaning == PHOTOMETRIC_MINISBLACK || meaning == PHOTOMETRIC_MINISWHITE;
}

/// What the first extra sample of a pixel is (TIFF 6.0, section 18); unspecified when there is
/// none.
std::uint16_t extraSample(TIFF* file)
{
    std::uint16_t count = 0;
    std::uint16_t* kinds = nullptr;
    bool const isThere = TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &count, &kinds) && count;
    return isThere ? kinds[0] : std::uint16_t { EXTRASAMPLE_UNSPECIFIED };
}

}

KXImage::Ref imageOfTIFF(KXPictureSource const& source)
{
    TIFFSetErrorHandler(nullptr); // Nobody reads what it would print.
    TIFFSetWarningHandler(nullptr);
    std::uint64_t const start = source.data.offset();
    Input input { source.data, start, std::min(source.length, source.data.remainingLength()) };
    FileRef const file(TIFFClientOpen("picture", "rm", &input, readBytes, writeNothing, seek,
        closeNothing, lengthOf, nullptr, nullptr)); // "m" for no memory mapping.
    if (!file)
        return nullptr;
    auto const width = fieldOf<std::uint32_t>(file.get(), TIFFTAG_IMAGEWIDTH);
    auto const height = fieldOf<std::uint32_t>(file.get(), TIFFTAG_IMAGELENGTH);
    auto const orientation = fieldOf<std::uint16_t>(file.get(), TIFFTAG_ORIENTATION);
    if (!width || !height || isPictureTooLarge(width, height))
        return nullptr;
    // Told that it is so already, the library leaves the turning to us, who can transpose as well.
    TIFFSetField(file.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    std::vector<std::uint32_t> pixels(std::size_t { width } * height);
    if (!TIFFReadRGBAImageOriented(
            file.get(), width, height, pixels.data(), ORIENTATION_TOPLEFT, 1))
        return nullptr;
    std::uint16_t const extra = extraSample(file.get());
    KXPictureRows rows(
        {
            .width = width,
            .height = height,
            .isGrey = isGrey(file.get()),
            .hasAlpha = extra != EXTRASAMPLE_UNSPECIFIED,
            // The library multiplies colours by alpha where that is left to be done, but not greys.
            .isPremultiplied = !isGrey(file.get()) || extra == EXTRASAMPLE_ASSOCALPHA,
            .orientation = orientation,
            .profile = profileOf(file.get()),
        },
        source.wantedSize, source.square);
    for (std::size_t y = 0; y < height; ++y) // Red is in the lowest bits.
        rows.takeRow(reinterpret_cast<std::uint8_t const*>(pixels.data() + y * width));
    return rows.image();
}
