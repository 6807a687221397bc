#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <jerror.h>
#include <jpeglib.h>
#include <optional>
#include <string_view>

namespace {

constexpr int markerOfExif = JPEG_APP0 + 1, markerOfProfile = JPEG_APP0 + 2;
constexpr unsigned longestSegment = 0xFFFF;

/// A JPEG file that is read by libjpeg. What the library reports by a jump makes its call fail.
class JPEGReader {
public:
    explicit JPEGReader(KXPictureSource const& source)
        : _source(source)
        , _file(source)
    {
        _jpeg.err = jpeg_std_error(&_errors);
        _errors.error_exit = jumpBack;
        _errors.emit_message = noteMessage;
        _errors.output_message = [](j_common_ptr) {};
        _jpeg.client_data = this;
        _input.init_source = [](j_decompress_ptr) {};
        _input.term_source = [](j_decompress_ptr) {};
        _input.fill_input_buffer = readMore;
        _input.skip_input_data = skip;
        _input.resync_to_restart = jpeg_resync_to_restart;
    }
    ~JPEGReader() { jpeg_destroy_decompress(&_jpeg); }
    JPEGReader(JPEGReader const&) = delete;
    JPEGReader& operator=(JPEGReader const&) = delete;

    KXImage::Ref image();

private:
    /// Calls the library; false when it jumps back. The call leaves nothing behind that would have
    /// to be destroyed.
    template <class Call> bool succeeds(Call const& call)
    {
        if (setjmp(_before) != 0)
            return false;
        call();
        return true;
    }

    static JPEGReader& self(j_common_ptr jpeg)
    {
        return *static_cast<JPEGReader*>(jpeg->client_data);
    }
    static JPEGReader& self(j_decompress_ptr jpeg)
    {
        return *static_cast<JPEGReader*>(jpeg->client_data);
    }

    [[noreturn]] static void jumpBack(j_common_ptr jpeg) { std::longjmp(self(jpeg)._before, 1); }

    static void noteMessage(j_common_ptr jpeg, int level)
    {
        JPEGReader& reader = self(jpeg);
        if (level < 0 && reader._isAtEnd && jpeg->err->msg_code == JWRN_HIT_MARKER)
            reader.noteEnd();
    }

    /// From here on the rows of this pass are made up.
    void noteEnd()
    {
        bool const isFirstPass = _jpeg.input_scan_number <= 1;
        if (isFirstPass && !_blocksThere)
            _blocksThere = _jpeg.input_iMCU_row;
    }

    static boolean readMore(j_decompress_ptr jpeg)
    {
        JPEGReader& reader = self(jpeg);
        std::size_t const count = reader._file.read(reader._buffer.data(), reader._buffer.size());
        reader._input.next_input_byte = reader._buffer.data();
        reader._input.bytes_in_buffer = count;
        if (!count) { // With an end the library makes a picture of what there was.
            static constexpr JOCTET endOfImage[] { 0xFF, JPEG_EOI };
            reader._isAtEnd = true;
            if (jpeg->arith_code) // Whose decoder does not tell that it makes up what is missing.
                reader.noteEnd();
            reader._input.next_input_byte = endOfImage;
            reader._input.bytes_in_buffer = sizeof endOfImage;
        }
        return TRUE;
    }

    static void skip(j_decompress_ptr jpeg, long count)
    {
        JPEGReader& reader = self(jpeg);
        auto const length = static_cast<std::size_t>(std::max(count, 0L));
        std::size_t const inBuffer = std::min(length, reader._input.bytes_in_buffer);
        reader._input.next_input_byte += inBuffer;
        reader._input.bytes_in_buffer -= inBuffer;
        reader._file.skip(length - inBuffer);
    }

    void readHeader();
    unsigned orientation() const;
    std::size_t rowsThere() const;
    void readRows(KXPictureRows& rows);
    void readRow(std::uint8_t* row);

    KXPictureSource const& _source;
    KXPictureInput _file;
    bool _isAtEnd { false };
    std::optional<unsigned> _blocksThere; ///< Rows of them that were there before the file's end.
    std::jmp_buf _before;
    jpeg_decompress_struct _jpeg {};
    jpeg_error_mgr _errors {};
    jpeg_source_mgr _input {};
    std::array<JOCTET, 64 * 1024> _buffer;
};

void JPEGReader::readHeader()
{
    jpeg_create_decompress(&_jpeg);
    _jpeg.src = &_input;
    jpeg_save_markers(&_jpeg, markerOfExif, longestSegment);
    jpeg_save_markers(&_jpeg, markerOfProfile, longestSegment);
    jpeg_read_header(&_jpeg, TRUE);
}

/// The orientation that the first block of Exif tells.
unsigned JPEGReader::orientation() const
{
    constexpr std::string_view identifier("Exif\0\0", 6);
    for (auto const* marker = _jpeg.marker_list; marker; marker = marker->next) {
        std::string_view const content(
            reinterpret_cast<char const*>(marker->data), marker->data_length);
        if (marker->marker == markerOfExif && content.starts_with(identifier))
            return orientationInExif(
                { marker->data + identifier.size(), marker->data_length - identifier.size() });
    }
    return 1;
}

/// How many rows of the picture are not made up.
std::size_t JPEGReader::rowsThere() const
{
    if (!_blocksThere)
        return _jpeg.output_height;
    std::size_t const rowsOfBlock
        = static_cast<std::size_t>(_jpeg.max_v_samp_factor) * DCTSIZE / _jpeg.scale_denom;
    return std::min<std::size_t>(*_blocksThere * rowsOfBlock, _jpeg.output_height);
}

/// Four inks for a pixel, as the rare JPEG for printers has them, become red, green and blue.
void convertInks(std::uint8_t* row, std::size_t width, bool isInverted)
{
    for (std::uint8_t* pixel = row; pixel != row + width * 4; pixel += 4) {
        auto const light = [isInverted](unsigned ink) { return isInverted ? ink : 255 - ink; };
        unsigned const black = light(pixel[3]);
        for (std::size_t channel = 0; channel < 3; ++channel)
            pixel[channel] = static_cast<std::uint8_t>((light(pixel[channel]) * black + 127) / 255);
        pixel[3] = 255;
    }
}

/// Decodes a row; a jump leaves the picture as it is until then.
void JPEGReader::readRow(std::uint8_t* row) { jpeg_read_scanlines(&_jpeg, &row, 1); }

void JPEGReader::readRows(KXPictureRows& rows)
{
    while (_jpeg.output_scanline < _jpeg.output_height) {
        std::uint8_t* const row = rows.nextRow();
        std::size_t const index = _jpeg.output_scanline;
        if (!succeeds([this, row] { readRow(row); }) || index >= rowsThere())
            return;
        if (_jpeg.out_color_space == JCS_CMYK) // Programs that write an APP14 segment invert them.
            convertInks(row, _jpeg.output_width, _jpeg.saw_Adobe_marker);
        rows.takeRow();
    }
}

KXImage::Ref JPEGReader::image()
{
    if (!succeeds([this] { readHeader(); }))
        return nullptr;
    unsigned const factor
        = decodingFactor(_jpeg.image_width, _jpeg.image_height, _source.wantedSize);
    if (isPictureTooLarge(_jpeg.image_width, _jpeg.image_height, factor))
        return nullptr;
    _jpeg.scale_num = 1;
    _jpeg.scale_denom = factor;
    bool const hasInks = _jpeg.jpeg_color_space == JCS_CMYK || _jpeg.jpeg_color_space == JCS_YCCK;
    _jpeg.out_color_space = hasInks ? JCS_CMYK : JCS_EXT_RGBA;
    JOCTET* profile = nullptr;
    unsigned profileLength = 0;
    bool const isStarted = succeeds([&] {
        if (!hasInks) // A profile would be one of inks.
            jpeg_read_icc_profile(&_jpeg, &profile, &profileLength);
        jpeg_start_decompress(&_jpeg);
    });
    if (!isStarted)
        return nullptr;
    KXPictureRows rows(
        {
            .width = _jpeg.output_width,
            .height = _jpeg.output_height,
            .isGrey = _jpeg.jpeg_color_space == JCS_GRAYSCALE,
            .orientation = orientation(),
            .profile = { profile, profileLength },
        },
        _source.wantedSize, _source.square);
    std::free(profile);
    readRows(rows);
    return rows.image();
}

}

KXImage::Ref imageOfJPEG(KXPictureSource const& source) { return JPEGReader(source).image(); }
