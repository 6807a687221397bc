#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <algorithm>
#include <array>
#include <gif_lib.h>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace {

struct GIFCloser {
    void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
};
using FileRef = std::unique_ptr<GifFileType, GIFCloser>;

int readBytes(GifFileType* file, GifByteType* bytes, int length)
{
    auto& input = *static_cast<KXPictureInput*>(file->UserData);
    return static_cast<int>(input.read(bytes, static_cast<std::size_t>(length)));
}

/// Reads an extension; what it says of the frame is the transparent colour.
bool readExtension(GifFileType& file, std::optional<int>& transparent)
{
    int code = 0;
    GifByteType* block = nullptr;
    bool isRead = DGifGetExtension(&file, &code, &block) == GIF_OK;
    while (isRead && block) {
        GraphicsControlBlock control;
        if (code == GRAPHICS_EXT_FUNC_CODE
            && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK
            && control.TransparentColor != NO_TRANSPARENT_COLOR)
            transparent = control.TransparentColor;
        isRead = DGifGetExtensionNext(&file, &block) == GIF_OK;
    }
    return isRead;
}

/// Moves to the first frame; false when there is none.
bool findFrame(GifFileType& file, std::optional<int>& transparent)
{
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    while (DGifGetRecordType(&file, &type) == GIF_OK && type == EXTENSION_RECORD_TYPE) {
        if (!readExtension(file, transparent))
            return false;
    }
    return type == IMAGE_DESC_RECORD_TYPE && DGifGetImageDesc(&file) == GIF_OK;
}

/// The rows of the frame in the order in which they are stored.
std::vector<int> orderOfRows(GifImageDesc const& frame)
{
    std::vector<int> order;
    auto const add = [&](int first, int step) {
        for (int row = first; row < frame.Height; row += step)
            order.push_back(row);
    };
    if (frame.Interlace) {
        for (auto const& [first, step] : { std::pair(0, 8), { 4, 8 }, { 2, 4 }, { 1, 2 } })
            add(first, step);
    } else {
        add(0, 1);
    }
    return order;
}

using Colour = std::array<std::uint8_t, KXImage::bytesPerPixel>;

/// The colours of the frame by their index; the rest is black.
std::array<Colour, 256> coloursOf(GifFileType const& file, std::optional<int> transparent)
{
    std::array<Colour, 256> colours;
    colours.fill({ 0, 0, 0, 255 });
    ColorMapObject const* const table = file.Image.ColorMap ? file.Image.ColorMap : file.SColorMap;
    for (int i = 0; table && i < std::min(table->ColorCount, 256); ++i) {
        auto const& colour = table->Colors[i];
        colours[static_cast<std::size_t>(i)] = { colour.Red, colour.Green, colour.Blue, 255 };
    }
    if (transparent)
        colours[static_cast<std::size_t>(*transparent) % colours.size()] = {};
    return colours;
}

/// The indexes of a frame's pixels, row by row; empty ones for rows that the file does not have.
using Rows = std::vector<std::vector<GifPixelType>>;

/// Reads rows up to the first that is not all there. False when the first of all is damaged.
bool readRows(GifFileType& file, Rows& rows)
{
    auto const width = static_cast<std::size_t>(file.Image.Width);
    rows.resize(static_cast<std::size_t>(file.Image.Height));
    std::size_t taken = 0;
    for (int const index : orderOfRows(file.Image)) {
        std::vector<GifPixelType> row(width);
        if (DGifGetLine(&file, row.data(), file.Image.Width) != GIF_OK)
            return taken || file.Error != D_GIF_ERR_IMAGE_DEFECT;
        rows[static_cast<std::size_t>(index)] = std::move(row);
        ++taken;
    }
    return true;
}

/// The frame where it lies on the screen, which is transparent around it.
KXImage::Ref imageOfFrame(
    GifFileType const& file, Rows const& frame, std::optional<int> transparent, KXSize wantedSize)
{
    KXPictureLayout const screen {
        .width = static_cast<std::size_t>(file.SWidth),
        .height = static_cast<std::size_t>(file.SHeight),
        .hasAlpha = true,
    };
    auto const left = std::min(static_cast<std::size_t>(file.Image.Left), screen.width);
    auto const top = static_cast<std::size_t>(file.Image.Top);
    auto const colours = coloursOf(file, transparent);
    KXPictureRows rows(screen, wantedSize);
    for (std::size_t y = 0; y < screen.height; ++y) {
        std::uint8_t* pixel = rows.nextRow();
        std::fill_n(pixel, screen.width * KXImage::bytesPerPixel, std::uint8_t { 0 });
        pixel += left * KXImage::bytesPerPixel;
        if (y >= top && y - top < frame.size()) {
            for (GifPixelType const index :
                std::span(frame[y - top])
                    .first(std::min(frame[y - top].size(), screen.width - left)))
                pixel = std::ranges::copy(colours[index], pixel).out;
        }
        rows.takeRow();
    }
    return rows.image();
}

bool hasPossibleSize(GifFileType const& file)
{
    auto const isPossible = [](int width, int height) {
        return width > 0 && height > 0
            && !isPictureTooLarge(
                static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height));
    };
    return isPossible(file.SWidth, file.SHeight) && isPossible(file.Image.Width, file.Image.Height)
        && file.Image.Left >= 0 && file.Image.Top >= 0;
}

}

KXImage::Ref imageOfGIF(KXPictureSource const& source)
{
    KXPictureInput input(source);
    FileRef const file(DGifOpen(&input, readBytes, nullptr));
    std::optional<int> transparent;
    if (!file || !findFrame(*file, transparent))
        return nullptr;
    if (!file->SWidth && !file->SHeight) { // Some programs leave the size of the screen open.
        file->SWidth = file->Image.Left + file->Image.Width;
        file->SHeight = file->Image.Top + file->Image.Height;
    }
    if (!hasPossibleSize(*file))
        return nullptr;
    Rows rows;
    if (!readRows(*file, rows))
        return nullptr;
    bool const hasRows = std::ranges::any_of(rows, [](auto const& row) { return !row.empty(); });
    // Encoders may leave out what is transparent at the end.
    if (!hasRows && input.isExhausted())
        return nullptr;
    return imageOfFrame(*file, rows, transparent, source.wantedSize);
}
