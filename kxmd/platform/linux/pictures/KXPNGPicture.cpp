#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPNGFeedPrivate.h"
#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <csetjmp>
#include <optional>
#include <png.h>
#include <vector>

namespace {

constexpr std::uint8_t opaque = 0xFF;

/// A PNG file that libpng takes piece by piece. What the library reports by a jump ends the
/// picture, which keeps the rows that have come until then.
class PNGReader {
public:
    explicit PNGReader(KXPictureSource const& source)
        : _source(source)
        , _orientation(orientationInExif(exifInPNG(source.data, source.length)))
        , _png(png_create_read_struct(PNG_LIBPNG_VER_STRING, this, jumpBack, ignoreWarning))
        , _info(_png ? png_create_info_struct(_png) : nullptr)
    {
    }
    ~PNGReader() { png_destroy_read_struct(&_png, &_info, nullptr); }
    PNGReader(PNGReader const&) = delete;
    PNGReader& operator=(PNGReader const&) = delete;

    KXImage::Ref image();

private:
    [[noreturn]] static void jumpBack(png_structp png, png_const_charp) { png_longjmp(png, 1); }
    static void ignoreWarning(png_structp, png_const_charp) { }
    static PNGReader& self(png_structp png)
    {
        return *static_cast<PNGReader*>(png_get_progressive_ptr(png));
    }
    static void noteHeader(png_structp png, png_infop) { self(png).begin(); }
    static void noteRow(png_structp png, png_bytep row, png_uint_32 index, int)
    {
        self(png).takeRow(row, index);
    }
    static void noteEnd(png_structp png, png_infop) { self(png)._isWhole = true; }

    bool take(std::span<std::uint8_t const> bytes);
    void begin();
    void takeRow(png_bytep row, std::size_t index);
    std::span<std::uint8_t const> profile() const;
    std::size_t rowLength() const
    {
        return png_get_image_width(_png, _info) * KXImage::bytesPerPixel;
    }

    KXPictureSource const& _source;
    unsigned const _orientation;
    png_structp _png; // Owned, as `_info` is.
    png_infop _info;
    std::optional<KXPictureRows> _rows;
    std::vector<std::uint8_t> _interlaced; ///< All rows, where they come in several passes.
    bool _hasPixels { false };
    bool _isWhole { false };
};

KXImage::Ref PNGReader::image()
{
    if (!_info)
        return nullptr;
    // The chunks' own checksums hold the compressed bytes against theirs; to sum up the pixels as
    // well takes a twentieth of the time.
    png_set_option(_png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
    png_set_progressive_read_fn(_png, this, noteHeader, noteRow, noteEnd);
    (void)feedPNGTo([this](std::span<std::uint8_t const> bytes) { return take(bytes); },
        _source.data, _source.length);
    if (!_rows || !_hasPixels)
        return nullptr;
    for (std::size_t at = 0; at < _interlaced.size(); at += rowLength())
        _rows->takeRow(_interlaced.data() + at);
    return _rows->image();
}

/// False when the library has had enough.
bool PNGReader::take(std::span<std::uint8_t const> bytes)
{
    if (setjmp(png_jmpbuf(_png)) != 0)
        return false;
    png_process_data(_png, _info, const_cast<png_bytep>(bytes.data()), bytes.size());
    return !_isWhole;
}

/// Asks for eight bits each of red, green, blue and alpha.
void PNGReader::begin()
{
    KXPictureLayout layout {
        .width = png_get_image_width(_png, _info),
        .height = png_get_image_height(_png, _info),
        .isGrey = !(png_get_color_type(_png, _info) & PNG_COLOR_MASK_COLOR),
        .hasAlpha = png_get_color_type(_png, _info) & PNG_COLOR_MASK_ALPHA
            || png_get_valid(_png, _info, PNG_INFO_tRNS),
        .orientation = _orientation,
        .profile = profile(),
    };
    if (isPictureTooLarge(layout.width, layout.height))
        png_error(_png, "too large");
    png_set_expand(_png);
    png_set_scale_16(_png);
    png_set_gray_to_rgb(_png);
    png_set_add_alpha(_png, opaque, PNG_FILLER_AFTER);
    (void)png_set_interlace_handling(_png);
    png_read_update_info(_png, _info);
    _rows.emplace(layout, _source.wantedSize, _source.square);
    if (png_get_interlace_type(_png, _info) != PNG_INTERLACE_NONE) {
        std::uint8_t const missing = layout.hasAlpha ? 0 : opaque;
        _interlaced.assign(layout.width * layout.height * KXImage::bytesPerPixel, missing);
    }
}

void PNGReader::takeRow(png_bytep row, std::size_t index)
{
    if (!row)
        return; // Has no pixels in this pass.
    _hasPixels = true;
    if (_interlaced.empty())
        _rows->takeRow(row);
    else
        png_progressive_combine_row(_png, _interlaced.data() + index * rowLength(), row);
}

/// The ICC profile of the file, which the library keeps.
std::span<std::uint8_t const> PNGReader::profile() const
{
    png_charp name = nullptr;
    int compression = 0;
    png_bytep bytes = nullptr;
    png_uint_32 length = 0;
    if (!png_get_iCCP(_png, _info, &name, &compression, &bytes, &length))
        return {};
    return { bytes, length };
}

}

KXImage::Ref imageOfPNG(KXPictureSource const& source) { return PNGReader(source).image(); }
