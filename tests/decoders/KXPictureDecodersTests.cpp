#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureEncodersPrivate.h"

#include "support/Exif.h"
#include "support/Files.h"
#include "support/Pictures.h"
#include "support/Profiles.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <jpeglib.h>
#include <memory>
#include <png.h>
#include <tiffio.h>
#include <webp/encode.h>
#include <webp/mux.h>

using namespace build;
using namespace pictures;

namespace {

constexpr Colour black { 0, 0, 0, 255 };

using Decoder = KXImage::Ref (*)(KXPictureSource const&);

/// The first bytes of a file.
Bytes cut(Bytes const& file, std::size_t length)
{
    return Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
}

KXImage::Ref decoded(Decoder decoder, Bytes const& file, KXSize wantedSize = {})
{
    auto const data = reader(file);
    return decoder({ *data, file.size(), wantedSize });
}

/// Of a picture of two rows of two pixels.
std::array<Colour, 4> pixelsOf(KXImage const& image)
{
    return { pixel(image, 0, 0), pixel(image, 1, 0), pixel(image, 0, 1), pixel(image, 1, 1) };
}

Bytes exifBlock(std::uint32_t orientation)
{
    using Order = build::TIFF;
    return build::tiff(
        Order::II, directory(Order::II, { build::orientation(Order::II, orientation) }));
}

// WebP.

using MuxRef = std::unique_ptr<WebPMux, decltype(&WebPMuxDelete)>;

Bytes bytesOf(WebPData file)
{
    Bytes bytes(file.bytes, file.bytes + file.size);
    WebPDataClear(&file);
    return bytes;
}

/// Without loss, so that every pixel is as it was.
Bytes webp(KXImage const& image)
{
    std::uint8_t* bytes = nullptr;
    auto const length = WebPEncodeLosslessRGBA(image.pixels().data(),
        static_cast<int>(image.pixelWidth()), static_cast<int>(image.pixelHeight()),
        static_cast<int>(image.pixelWidth() * 4), &bytes);
    Bytes file(bytes, bytes + length);
    WebPFree(bytes);
    return file;
}

Bytes withChunk(Bytes const& file, char const* kind, Bytes const& chunk)
{
    WebPData const image { file.data(), file.size() }, content { chunk.data(), chunk.size() };
    MuxRef const mux(WebPMuxCreate(&image, 1), WebPMuxDelete);
    EXPECT_EQ(WebPMuxSetChunk(mux.get(), kind, &content, 1), WEBP_MUX_OK);
    WebPData assembled {};
    EXPECT_EQ(WebPMuxAssemble(mux.get(), &assembled), WEBP_MUX_OK);
    return bytesOf(assembled);
}

/// One frame after another, all of them at the same place.
Bytes animation(std::vector<KXImage::Ref> const& frames, int left, int top, KXSize canvas)
{
    MuxRef const mux(WebPMuxNew(), WebPMuxDelete);
    for (auto const& frame : frames) {
        Bytes const file = webp(*frame);
        WebPMuxFrameInfo info {};
        info.bitstream = { file.data(), file.size() };
        info.x_offset = left;
        info.y_offset = top;
        info.duration = 100;
        info.id = WEBP_CHUNK_ANMF;
        info.dispose_method = WEBP_MUX_DISPOSE_NONE;
        info.blend_method = WEBP_MUX_BLEND;
        EXPECT_EQ(WebPMuxPushFrame(mux.get(), &info, 1), WEBP_MUX_OK);
    }
    WebPMuxAnimParams const parameters { 0xFFFFFFFF, 0 };
    EXPECT_EQ(WebPMuxSetAnimationParams(mux.get(), &parameters), WEBP_MUX_OK);
    WebPMuxSetCanvasSize(
        mux.get(), static_cast<int>(canvas.width), static_cast<int>(canvas.height));
    WebPData assembled {};
    EXPECT_EQ(WebPMuxAssemble(mux.get(), &assembled), WEBP_MUX_OK);
    return bytesOf(assembled);
}

// PNG.

/// A file of libpng's, with what `prepare` adds to its header.
Bytes pngFile(std::size_t width, std::size_t height, int type, int interlacing,
    Bytes const& samples, std::function<void(png_structp, png_infop)> const& prepare = {})
{
    Bytes file;
    auto* png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    auto* info = png_create_info_struct(png);
    png_set_write_fn(
        png, &file,
        [](png_structp writer, png_bytep bytes, std::size_t length) {
            auto& target = *static_cast<Bytes*>(png_get_io_ptr(writer));
            target.insert(target.end(), bytes, bytes + length);
        },
        nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
        type, interlacing, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (prepare)
        prepare(png, info);
    png_write_info(png, info);
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < height; ++y)
        rows.push_back(const_cast<png_bytep>(samples.data() + y * samples.size() / height));
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return file;
}

Bytes samplesOf(KXImage const& image)
{
    return Bytes(image.pixels().begin(), image.pixels().end());
}

// GIF89a, its codes never longer than a byte: none refers to what came before.

struct Frame {
    std::uint32_t left, top, width, height;
    Bytes indexes; ///< As they are stored.
    bool isInterlaced { false };
    int transparent { -1 };
};

Bytes littleEndian(std::uint32_t value) { return u16(build::TIFF::II, value); }

Bytes gifFile(std::uint32_t width, std::uint32_t height, Frame const& frame)
{
    Bytes colours = join(bytes({ 255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255 }), zeros(124 * 3));
    Bytes codes;
    for (std::size_t i = 0; i < frame.indexes.size(); ++i) {
        if (i % 100 == 0)
            codes.push_back(0x80); // Forgets what came before, so that codes keep their length.
        codes.push_back(frame.indexes[i]);
    }
    codes.push_back(0x81); // The end.
    Bytes blocks;
    for (std::size_t i = 0; i < codes.size(); i += 200) {
        auto const count = std::min<std::size_t>(200, codes.size() - i);
        blocks = join(blocks, u8(static_cast<std::uint32_t>(count)),
            Bytes(codes.begin() + static_cast<std::ptrdiff_t>(i),
                codes.begin() + static_cast<std::ptrdiff_t>(i + count)));
    }
    Bytes const control
        = frame.transparent < 0 ? Bytes() : bytes({ '!', 0xF9, 4, 1, 0, 0, frame.transparent, 0 });
    return join(text("GIF89a"), littleEndian(width), littleEndian(height), bytes({ 0x86, 0, 0 }),
        colours, control, text(","), littleEndian(frame.left), littleEndian(frame.top),
        littleEndian(frame.width), littleEndian(frame.height), u8(frame.isInterlaced ? 0x40 : 0),
        u8(7), blocks, bytes({ 0, ';' }));
}

// TIFF.

struct TIFFPicture {
    std::uint32_t width, height;
    std::uint16_t samplesPerPixel { 3 };
    Bytes samples;
    std::uint16_t orientation { ORIENTATION_TOPLEFT };
    std::uint16_t meaning { PHOTOMETRIC_RGB };
    Bytes profile {};
    std::uint16_t alpha { EXTRASAMPLE_UNASSALPHA };
};

Bytes tiffFile(TIFFPicture const& picture)
{
    TemporaryFolder const folder;
    std::string const path = folder.path() / "picture.tiff";
    auto* const file = TIFFOpen(path.c_str(), "w");
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, picture.width);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, picture.height);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, picture.samplesPerPixel);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, picture.meaning);
    TIFFSetField(file, TIFFTAG_ORIENTATION, picture.orientation);
    if (picture.samplesPerPixel % 2 == 0)
        TIFFSetField(file, TIFFTAG_EXTRASAMPLES, 1, &picture.alpha);
    if (!picture.profile.empty())
        TIFFSetField(file, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(picture.profile.size()),
            picture.profile.data());
    std::size_t const rowLength = std::size_t { picture.width } * picture.samplesPerPixel;
    for (std::uint32_t y = 0; y < picture.height; ++y)
        TIFFWriteScanline(
            file, const_cast<std::uint8_t*>(picture.samples.data() + y * rowLength), y, 0);
    TIFFClose(file);
    return bytesOfFile(path);
}

void expectNearPixel(KXImage const& image, Colour expected, int tolerance)
{
    Colour const actual = pixel(image, 0, 0);
    for (std::size_t channel = 0; channel < 4; ++channel)
        EXPECT_NEAR(actual[channel], expected[channel], tolerance) << channel;
}

}

// WebP.

TEST(KXWebPPicture, EveryPixelIsShown)
{
    auto const image = photograph(33, 21);
    auto const again = decoded(imageOfWebP, webp(*image));
    ASSERT_TRUE(again);
    EXPECT_TRUE(areEqual(*again, *image));
}

TEST(KXWebPPicture, LargePictureIsShrunkWhileItIsDecoded)
{
    auto const image = decoded(imageOfWebP, webp(*quarters(801, 640)), { 80, 60 });
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 101, 80 }));
    EXPECT_EQ(pixel(*image, 10, 10), pixel(*quarters(8, 8), 0, 0));
}

TEST(KXWebPPicture, ComesUpright)
{
    Bytes const file = webp(*quarters(40, 20));
    for (Bytes const& block : { exifBlock(6), join(text("Exif"), zeros(2), exifBlock(6)) }) {
        auto const image = decoded(imageOfWebP, withChunk(file, "EXIF", block));
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), (KXSize { 20, 40 }));
        EXPECT_EQ(pixel(*image, 0, 0), pixel(*quarters(40, 20), 0, 19)); // Was below.
        EXPECT_EQ(pixel(*image, 19, 0), pixel(*quarters(40, 20), 0, 0));
    }
}

TEST(KXWebPPicture, KeepsItsColours)
{
    Bytes const file = webp(*solid(4, 4, { 200, 120, 60, 255 }));
    auto const image
        = decoded(imageOfWebP, withChunk(file, "ICCP", profiles::of(profiles::displayP3)));
    ASSERT_TRUE(image);
    expectNearPixel(*image, { 213, 115, 42, 255 }, 1);
}

TEST(KXWebPPicture, AnimationShowsItsFirstFrameWhereItLies)
{
    Bytes const file = animation({ solid(4, 4, red), solid(4, 4, blue) }, 2, 4, { 10, 12 });
    auto const image = decoded(imageOfWebP, file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 10, 12 }));
    EXPECT_EQ(pixel(*image, 2, 4), red);
    EXPECT_EQ(pixel(*image, 5, 7), red);
    EXPECT_EQ(pixel(*image, 1, 4), transparent);
    EXPECT_EQ(pixel(*image, 6, 8), transparent);
}

TEST(KXWebPPicture, TruncatedPictureIsNull)
{
    Bytes const file = webp(*photograph(30, 20));
    for (std::size_t length = 0; length < file.size(); ++length)
        EXPECT_FALSE(decoded(imageOfWebP, cut(file, length)));
}

// PNG.

TEST(KXPNGPicture, ComesUpright)
{
    auto const stored = quarters(4, 2);
    Bytes const file
        = pngFile(4, 2, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, samplesOf(*stored));
    Bytes const chunk = pngChunk("eXIf", exifBlock(8));
    constexpr std::size_t endOfHeader = 8 + 25, lengthOfEnd = 12;
    for (std::size_t const place : { endOfHeader, file.size() - lengthOfEnd }) {
        Bytes const tail(file.begin() + static_cast<std::ptrdiff_t>(place), file.end());
        auto const image = decoded(imageOfPNG, join(cut(file, place), chunk, tail));
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), (KXSize { 2, 4 }));
        EXPECT_EQ(pixel(*image, 0, 0), pixel(*stored, 3, 0)); // Was on the right.
        EXPECT_EQ(pixel(*image, 1, 3), pixel(*stored, 0, 1));
    }
}

TEST(KXPNGPicture, InterlacedPictureIsTheSame)
{
    auto const image = photograph(37, 29);
    Bytes const file
        = pngFile(37, 29, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_ADAM7, samplesOf(*image));
    auto const again = decoded(imageOfPNG, file);
    ASSERT_TRUE(again);
    EXPECT_TRUE(areEqual(*again, *image));
    auto const part = decoded(imageOfPNG, cut(file, file.size() / 4));
    ASSERT_TRUE(part);
    EXPECT_EQ(part->size(), image->size());
    EXPECT_GE(likeness(*part, *image), 15); // Each pass fills in for those after it.
    EXPECT_LE(likeness(*part, *image), 40);
}

TEST(KXPNGPicture, GreyHasTheColoursOfItsProfile)
{
    Bytes profile = profiles::ofGrey(1);
    auto const addProfile = [&profile](png_structp png, png_infop info) {
        png_set_iCCP(png, info, "grey", PNG_COMPRESSION_TYPE_BASE, profile.data(),
            static_cast<png_uint_32>(profile.size()));
    };
    auto const image = decoded(imageOfPNG,
        pngFile(2, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, bytes({ 128, 0 }), addProfile));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), (Colour { 188, 188, 188, 255 }));
    EXPECT_EQ(pixel(*image, 1, 0), black);
}

TEST(KXPNGPicture, ColourThatIsTransparentIsSo)
{
    png_color_16 key {};
    key.gray = 7;
    auto const image = decoded(imageOfPNG,
        pngFile(2, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, bytes({ 7, 255 }),
            [&key](
                png_structp png, png_infop info) { png_set_tRNS(png, info, nullptr, 0, &key); }));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), transparent);
    EXPECT_EQ(pixel(*image, 1, 0), white);
}

// GIF.

TEST(KXGIFPicture, FrameLiesWhereItSays)
{
    auto const image
        = decoded(imageOfGIF, gifFile(5, 4, { 1, 2, 2, 2, bytes({ 0, 1, 2, 3 }), false, 2 }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 5, 4 }));
    EXPECT_EQ(pixel(*image, 0, 0), transparent);
    EXPECT_EQ(pixel(*image, 1, 2), red);
    EXPECT_EQ(pixel(*image, 2, 2), (Colour { 0, 255, 0, 255 }));
    EXPECT_EQ(pixel(*image, 1, 3), transparent); // By its index.
    EXPECT_EQ(pixel(*image, 2, 3), white);
    EXPECT_EQ(pixel(*image, 3, 3), transparent); // Beside the frame.
}

TEST(KXGIFPicture, FrameThatSticksOutIsCutOff)
{
    auto const image = decoded(imageOfGIF, gifFile(2, 2, { 1, 1, 2, 2, bytes({ 0, 1, 2, 3 }) }));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixelsOf(*image), (std::array { transparent, transparent, transparent, red }));
    auto const outside = decoded(imageOfGIF, gifFile(2, 2, { 9, 9, 1, 1, bytes({ 0 }) }));
    ASSERT_TRUE(outside);
    EXPECT_EQ(pixel(*outside, 1, 1), transparent);
}

TEST(KXGIFPicture, ScreenWithoutASizeIsThatOfTheFrame)
{
    auto const image = decoded(imageOfGIF, gifFile(0, 0, { 0, 0, 2, 1, bytes({ 0, 2 }) }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 2, 1 }));
    EXPECT_EQ(pixel(*image, 1, 0), blue);
}

TEST(KXGIFPicture, DamagedFrameIsNull)
{
    Bytes file = gifFile(4, 1, { 0, 0, 4, 1, bytes({ 0, 1, 2, 3 }) });
    Bytes const blocks = bytes({ 7, 6, 0x80, 0, 1, 2, 3, 0x81 });
    auto const place = std::ranges::search(file, blocks).begin();
    ASSERT_NE(place, file.end());
    place[3] = 0xC0; // A code that nothing stands for yet.
    EXPECT_FALSE(decoded(imageOfGIF, file));
}

TEST(KXGIFPicture, InterlacedRowsAreSorted)
{
    // GIF89a, appendix E: every eighth row, those in the middle between, and so on.
    auto const image = decoded(
        imageOfGIF, gifFile(1, 9, { 0, 0, 1, 9, bytes({ 0, 0, 1, 2, 2, 3, 3, 3, 3 }), true }));
    ASSERT_TRUE(image);
    Colour const green { 0, 255, 0, 255 };
    for (auto const& [y, colour] : { std::pair(0u, red), { 8u, red }, { 4u, green }, { 2u, blue },
             { 6u, blue }, { 1u, white }, { 7u, white } })
        EXPECT_EQ(pixel(*image, 0, y), colour) << y;
}

TEST(KXGIFPicture, UpperPartOfACutPictureIsShown)
{
    Bytes const file = gifFile(50, 50, { 0, 0, 50, 50, Bytes(2'500, 1) });
    auto const part = decoded(imageOfGIF, cut(file, file.size() - 1'000));
    ASSERT_TRUE(part);
    EXPECT_EQ(pixel(*part, 49, 20), (Colour { 0, 255, 0, 255 }));
    EXPECT_EQ(pixel(*part, 0, 49), transparent);
    EXPECT_FALSE(decoded(imageOfGIF, cut(file, file.size() - 2'500)));
    for (std::size_t length = 0; length < file.size(); ++length)
        (void)decoded(imageOfGIF, cut(file, length));
}

// TIFF.

TEST(KXTIFFPicture, EveryOrientationIsTurnedUpright)
{
    Bytes const samples = bytes({ 255, 0, 0, 0, 0, 255 }); // Red beside blue.
    for (std::uint16_t orientation = 1; orientation <= 8; ++orientation) {
        auto const image = decoded(imageOfTIFF, tiffFile({ 2, 1, 3, samples, orientation }));
        ASSERT_TRUE(image);
        bool const isTransposed = orientation >= 5;
        EXPECT_EQ(image->size(), isTransposed ? (KXSize { 1, 2 }) : (KXSize { 2, 1 }));
        bool const isRedFirst
            = orientation == 1 || orientation == 4 || orientation == 5 || orientation == 6;
        EXPECT_EQ(pixel(*image, 0, 0), isRedFirst ? red : blue) << orientation;
    }
}

TEST(KXTIFFPicture, AlphaOfBothKindsIsMultipliedOnce)
{
    for (auto const& [kind, samples] :
        { std::pair(std::uint16_t { EXTRASAMPLE_UNASSALPHA }, bytes({ 200, 100, 0, 128 })),
            { std::uint16_t { EXTRASAMPLE_ASSOCALPHA }, bytes({ 100, 50, 0, 128 }) } }) {
        TIFFPicture picture { 1, 1, 4, samples };
        picture.alpha = kind;
        auto const image = decoded(imageOfTIFF, tiffFile(picture));
        ASSERT_TRUE(image);
        expectNearPixel(*image, { 100, 50, 0, 128 }, 1);
    }
}

TEST(KXTIFFPicture, AlphaOfGreyIsMultipliedOnce)
{
    for (auto const& [kind, expected] :
        { std::pair(std::uint16_t { EXTRASAMPLE_UNASSALPHA }, Colour { 100, 100, 100, 128 }),
            { std::uint16_t { EXTRASAMPLE_ASSOCALPHA }, { 128, 128, 128, 128 } },
            { std::uint16_t { EXTRASAMPLE_UNSPECIFIED }, { 200, 200, 200, 255 } } }) {
        TIFFPicture picture { 1, 1, 2, bytes({ 200, 128 }) };
        picture.meaning = PHOTOMETRIC_MINISBLACK;
        picture.alpha = kind;
        auto const image = decoded(imageOfTIFF, tiffFile(picture));
        ASSERT_TRUE(image);
        expectNearPixel(*image, expected, 1);
    }
}

TEST(KXTIFFPicture, KeepsItsColours)
{
    TIFFPicture picture { 1, 1, 3, bytes({ 200, 120, 60 }) };
    picture.profile = profiles::of(profiles::displayP3);
    auto const image = decoded(imageOfTIFF, tiffFile(picture));
    ASSERT_TRUE(image);
    expectNearPixel(*image, { 213, 115, 42, 255 }, 1);
    TIFFPicture grey { 1, 1, 1, bytes({ 128 }) };
    grey.meaning = PHOTOMETRIC_MINISBLACK;
    grey.profile = profiles::ofGrey(1);
    auto const greyImage = decoded(imageOfTIFF, tiffFile(grey));
    ASSERT_TRUE(greyImage);
    EXPECT_EQ(pixel(*greyImage, 0, 0), (Colour { 188, 188, 188, 255 }));
}

TEST(KXTIFFPicture, PictureMayStandBetweenOtherBytes)
{
    Bytes const file = tiffFile({ 2, 1, 3, bytes({ 255, 0, 0, 0, 0, 255 }) });
    auto const data = reader(join(text("before"), file, text("behind")));
    data->setOffset(6);
    auto const image = imageOfTIFF({ *data, file.size(), {} });
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 1, 0), blue);
    for (std::size_t length = 0; length < file.size(); ++length)
        (void)decoded(imageOfTIFF, cut(file, length));
}

// SVG.

namespace {

KXImage::Ref drawn(std::string const& attributes, KXSize wantedSize,
    KXDrawingSize drawingSize = KXDrawingSize::ownAtMost)
{
    Bytes const file = text("<svg xmlns='http://www.w3.org/2000/svg' " + attributes
        + "><rect width='30' height='10' fill='red' fill-opacity='0.5'/></svg>");
    auto const data = reader(file);
    return imageOfDrawing({ *data, file.size(), wantedSize }, drawingSize);
}

}

TEST(KXSVGDrawing, SizeIsItsOwnOrThatOfItsViewBoxOrOfWhatIsDrawn)
{
    for (char const* attributes : { "width='30' height='10'", "viewBox='0 0 30 10'", "" }) {
        auto const image = drawn(attributes, {});
        ASSERT_TRUE(image) << attributes;
        EXPECT_EQ(image->size(), (KXSize { 30, 10 })) << attributes;
        EXPECT_EQ(pixel(*image, 29, 9), (Colour { 128, 0, 0, 128 })) << attributes;
    }
    EXPECT_FALSE(drawn("width='0' height='0'", {}));
}

TEST(KXSVGDrawing, WhatIsDrawnIsShownWhereverItLies)
{
    Bytes const file = text("<svg xmlns='http://www.w3.org/2000/svg'>"
                            "<rect x='100' y='100' width='50' height='50' fill='red'/></svg>");
    auto const data = reader(file);
    auto const image = imageOfDrawing({ *data, file.size(), { 200, 200 } }, KXDrawingSize::fitting);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (KXSize { 200, 200 }));
    EXPECT_EQ(pixel(*image, 2, 2), red);
    EXPECT_EQ(pixel(*image, 197, 197), red);
}

TEST(KXSVGDrawing, IsMadeAsLargeAsWanted)
{
    char const* const size = "viewBox='0 0 30 10' width='30' height='10'";
    EXPECT_EQ(drawn(size, { 60, 60 })->size(), (KXSize { 30, 10 }));
    EXPECT_EQ(drawn(size, { 15, 1 })->size(), (KXSize { 15, 5 }));
    EXPECT_EQ(drawn(size, { 60, 60 }, KXDrawingSize::fitting)->size(), (KXSize { 60, 20 }));
    EXPECT_EQ(drawn(size, { 60, 10 }, KXDrawingSize::fitting)->size(), (KXSize { 30, 10 }));
}

TEST(KXSVGDrawing, SidesHaveAnEnd)
{
    EXPECT_TRUE(drawn("viewBox='0 0 32767 1' width='32767' height='1'", {}));
    EXPECT_FALSE(drawn("viewBox='0 0 32768 1' width='32768' height='1'", {}));
}

// JPEG.

namespace {

/// A file of libjpeg's, filled with a colour.
Bytes jpegFile(std::size_t width, std::size_t height, J_COLOR_SPACE space, Bytes const& colour,
    bool isProgressive, bool hasApp14)
{
    jpeg_compress_struct jpeg {};
    jpeg_error_mgr errors {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* bytes = nullptr;
    unsigned long length = 0;
    jpeg_mem_dest(&jpeg, &bytes, &length);
    jpeg.image_width = static_cast<JDIMENSION>(width);
    jpeg.image_height = static_cast<JDIMENSION>(height);
    jpeg.input_components = static_cast<int>(colour.size());
    jpeg.in_color_space = space;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, 100, TRUE);
    if (isProgressive)
        jpeg_simple_progression(&jpeg);
    jpeg.write_Adobe_marker = hasApp14;
    jpeg_start_compress(&jpeg, TRUE);
    Bytes row;
    for (std::size_t x = 0; x < width; ++x)
        row.insert(row.end(), colour.begin(), colour.end());
    JSAMPROW rows[] { row.data() };
    while (jpeg.next_scanline < jpeg.image_height)
        jpeg_write_scanlines(&jpeg, rows, 1);
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    Bytes file(bytes, bytes + length);
    std::free(bytes);
    return file;
}

}

TEST(KXJPEGPicture, InksBecomeColours)
{
    // Cyan, magenta, yellow and black, of which the usual program stores the light that is left.
    Bytes const inks = bytes({ 0, 255, 255, 0 });
    auto const plain = decoded(imageOfJPEG, jpegFile(8, 8, JCS_CMYK, inks, false, false));
    ASSERT_TRUE(plain);
    expectNearPixel(*plain, red, 2);
    Bytes const light = bytes({ 255, 0, 0, 255 });
    auto const inverted = decoded(imageOfJPEG, jpegFile(8, 8, JCS_CMYK, light, false, true));
    ASSERT_TRUE(inverted);
    expectNearPixel(*inverted, red, 2);
}

TEST(KXJPEGPicture, GreyIsShown)
{
    auto const image
        = decoded(imageOfJPEG, jpegFile(9, 9, JCS_GRAYSCALE, bytes({ 77 }), false, false));
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 8, 8), (Colour { 77, 77, 77, 255 }));
}

TEST(KXJPEGPicture, ProgressivePictureThatIsCutOffIsShownCoarsely)
{
    Bytes const file = jpegFile(300, 300, JCS_RGB, bytes({ 200, 50, 50 }), true, false);
    auto const part = decoded(imageOfJPEG, cut(file, file.size() * 3 / 4));
    ASSERT_TRUE(part);
    expectNearPixel(*part, { 200, 50, 50, 255 }, 6);
    for (std::size_t length = 0; length < file.size(); length += 7)
        (void)decoded(imageOfJPEG, cut(file, length));
}

TEST(KXJPEGPicture, WhatACutPictureLeavesOutIsWhite)
{
    auto const encoded = jpegOfImage(*photograph(320, 320));
    Bytes const file(encoded.bytes().begin(), encoded.bytes().end());
    auto const whole = decoded(imageOfJPEG, file);
    auto const part = decoded(imageOfJPEG, cut(file, file.size() / 2));
    ASSERT_TRUE(whole);
    ASSERT_TRUE(part);
    for (std::size_t const x : { 0u, 160u, 319u }) {
        EXPECT_EQ(pixel(*part, x, 50), pixel(*whole, x, 50)) << x;
        for (std::size_t y = 260; y < 320; ++y)
            ASSERT_EQ(pixel(*part, x, y), white) << x << " " << y;
    }
}

TEST(KXJPEGPicture, EverythingButTheEndMarkerIsEverything)
{
    Bytes const file = jpegFile(40, 40, JCS_RGB, bytes({ 200, 50, 50 }), false, false);
    auto const whole = decoded(imageOfJPEG, file);
    auto const part = decoded(imageOfJPEG, cut(file, file.size() - 2));
    ASSERT_TRUE(whole);
    ASSERT_TRUE(part);
    EXPECT_TRUE(areEqual(*part, *whole));
}

TEST(KXJPEGPicture, PictureLongerThanJPEGHasIsNotEncoded)
{
    EXPECT_GT(jpegOfImage(*solid(65'500, 1, red)).length(), 0u);
    EXPECT_EQ(jpegOfImage(*solid(65'501, 1, red)).length(), 0u);
    EXPECT_EQ(jpegOfImage(*solid(1, 65'501, red)).length(), 0u);
}
