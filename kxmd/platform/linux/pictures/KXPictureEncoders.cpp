#include "kxmd/platform/linux/pictures/KXPictureEncodersPrivate.h"

#include "kxmd/image/KXPremultipliedPrivate.h"

#include <array>
#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
#include <png.h>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t pixelLength = KXImage::bytesPerPixel;
constexpr std::uint32_t opaque = 255;

std::uint8_t const* rowOf(KXImage const& image, std::size_t y)
{
    return image.pixels().data() + y * image.pixelWidth() * pixelLength;
}

/// Encodes rows by libjpeg. What the library reports by a jump ends it.
class JPEGWriter {
public:
    explicit JPEGWriter(KXImage const& image)
        : _image(image)
        , _row(image.pixelWidth() * 3)
    {
        _jpeg.err = jpeg_std_error(&_errors);
        _jpeg.client_data = this;
        _errors.error_exit = [](j_common_ptr jpeg) {
            std::longjmp(static_cast<JPEGWriter*>(jpeg->client_data)->_before, 1);
        };
        _output.init_destination = [](j_compress_ptr jpeg) { self(jpeg).beginBuffer(); };
        _output.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
            self(jpeg).takeBuffer(self(jpeg)._buffer.size());
            return TRUE;
        };
        _output.term_destination = [](j_compress_ptr jpeg) {
            self(jpeg).takeBuffer(self(jpeg)._buffer.size() - self(jpeg)._output.free_in_buffer);
        };
    }
    ~JPEGWriter() { jpeg_destroy_compress(&_jpeg); }
    JPEGWriter(JPEGWriter const&) = delete;
    JPEGWriter& operator=(JPEGWriter const&) = delete;

    KXData encoded()
    {
        if (setjmp(_before) != 0)
            return {};
        encode();
        return KXData(std::move(_bytes));
    }

private:
    void encode()
    {
        constexpr int quality = 90;
        jpeg_create_compress(&_jpeg);
        _jpeg.dest = &_output;
        _jpeg.image_width = static_cast<JDIMENSION>(_image.pixelWidth());
        _jpeg.image_height = static_cast<JDIMENSION>(_image.pixelHeight());
        _jpeg.input_components = 3;
        _jpeg.in_color_space = JCS_RGB;
        jpeg_set_defaults(&_jpeg);
        jpeg_set_quality(&_jpeg, quality, TRUE);
        jpeg_start_compress(&_jpeg, TRUE);
        while (_jpeg.next_scanline < _jpeg.image_height) {
            putOnWhite(rowOf(_image, _jpeg.next_scanline));
            JSAMPROW row = _row.data();
            jpeg_write_scanlines(&_jpeg, &row, 1);
        }
        jpeg_finish_compress(&_jpeg);
    }

    static JPEGWriter& self(j_compress_ptr jpeg)
    {
        return *static_cast<JPEGWriter*>(jpeg->client_data);
    }

    void beginBuffer()
    {
        _output.next_output_byte = _buffer.data();
        _output.free_in_buffer = _buffer.size();
    }

    void takeBuffer(std::size_t length)
    {
        _bytes.insert(_bytes.end(), _buffer.data(), _buffer.data() + length);
        beginBuffer();
    }

    void putOnWhite(std::uint8_t const* from)
    {
        for (auto to = _row.begin(); to != _row.end(); from += pixelLength) {
            for (std::size_t channel = 0; channel < 3; ++channel)
                *to++ = static_cast<std::uint8_t>(from[channel] + opaque - from[3]);
        }
    }

    KXImage const& _image;
    std::vector<std::uint8_t> _row;
    std::jmp_buf _before;
    jpeg_compress_struct _jpeg {};
    jpeg_error_mgr _errors {};
    jpeg_destination_mgr _output {};
    std::array<JOCTET, 16 * 1024> _buffer;
    std::vector<std::uint8_t> _bytes;
};

/// Encodes rows by libpng, which reports by a jump as well.
class PNGWriter {
public:
    explicit PNGWriter(KXImage const& image)
        : _image(image)
        , _row(image.pixelWidth() * pixelLength)
        , _png(png_create_write_struct(
              PNG_LIBPNG_VER_STRING, nullptr, nullptr, [](png_structp, png_const_charp) {}))
        , _info(_png ? png_create_info_struct(_png) : nullptr)
    {
    }
    ~PNGWriter() { png_destroy_write_struct(&_png, &_info); }
    PNGWriter(PNGWriter const&) = delete;
    PNGWriter& operator=(PNGWriter const&) = delete;

    KXData encoded()
    {
        if (!_info)
            return {};
        if (setjmp(png_jmpbuf(_png)) != 0)
            return {};
        encode();
        return KXData(std::move(_bytes));
    }

private:
    void encode()
    {
        // Beyond this level files shrink by a few percent and encoding takes several times as long.
        constexpr int compressionLevel = 2;
        png_set_write_fn(_png, this, appendBytes, nullptr);
        png_set_compression_level(_png, compressionLevel);
        png_set_IHDR(_png, _info, static_cast<png_uint_32>(_image.pixelWidth()),
            static_cast<png_uint_32>(_image.pixelHeight()), 8, PNG_COLOR_TYPE_RGB_ALPHA,
            PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(_png, _info);
        for (std::size_t y = 0; y < _image.pixelHeight(); ++y) {
            divideByAlpha(rowOf(_image, y));
            png_write_row(_png, _row.data());
        }
        png_write_end(_png, nullptr);
    }

    void divideByAlpha(std::uint8_t const* from)
    {
        for (auto to = _row.begin(); to != _row.end(); from += pixelLength) {
            for (std::size_t channel = 0; channel < 3; ++channel)
                *to++ = dividedByAlpha(from[channel], from[3]);
            *to++ = from[3];
        }
    }

    static void appendBytes(png_structp png, png_bytep bytes, std::size_t length)
    {
        auto& writer = *static_cast<PNGWriter*>(png_get_io_ptr(png));
        writer._bytes.insert(writer._bytes.end(), bytes, bytes + length);
    }

    KXImage const& _image;
    std::vector<std::uint8_t> _row;
    png_structp _png; // Owned, as `_info` is.
    png_infop _info;
    std::vector<std::uint8_t> _bytes;
};

}

KXData jpegOfImage(KXImage const& image) { return JPEGWriter(image).encoded(); }

KXData pngOfImage(KXImage const& image) { return PNGWriter(image).encoded(); }
