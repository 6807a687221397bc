#include "DecodeFloors.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <jpeglib.h>
#include <libheif/heif.h>
#include <memory>
#include <png.h>
#include <string_view>
#include <vector>
#include <webp/decode.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return { std::istreambuf_iterator<char>(file), {} };
}

bool decodeJPEG(Bytes const& bytes, int side)
{
    jpeg_decompress_struct decoder;
    jpeg_error_mgr errors;
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, bytes.data(), bytes.size());
    jpeg_read_header(&decoder, TRUE);
    decoder.scale_num = 1;
    decoder.scale_denom = 1;
    auto const shorter = static_cast<int>(std::min(decoder.image_width, decoder.image_height));
    for (unsigned const factor : { 8u, 4u, 2u }) {
        if (shorter / static_cast<int>(factor) >= side) {
            decoder.scale_denom = factor;
            break;
        }
    }
    jpeg_start_decompress(&decoder);
    Bytes row(std::size_t { decoder.output_width } * 3);
    JSAMPROW rows[] { row.data() };
    while (decoder.output_scanline < decoder.output_height)
        jpeg_read_scanlines(&decoder, rows, 1);
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    return true;
}

bool decodePNG(Bytes const& bytes)
{
    png_image image {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        return false;
    image.format = PNG_FORMAT_RGB;
    Bytes pixels(PNG_IMAGE_SIZE(image));
    return png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr);
}

bool decodeWebP(Bytes const& bytes)
{
    int width, height;
    std::unique_ptr<std::uint8_t, decltype(&WebPFree)> const pixels(
        WebPDecodeRGB(bytes.data(), bytes.size(), &width, &height), WebPFree);
    return pixels != nullptr;
}

bool decodeHEIF(Bytes const& bytes)
{
    std::unique_ptr<heif_context, decltype(&heif_context_free)> const context(
        heif_context_alloc(), heif_context_free);
    heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(), nullptr);
    heif_image_handle* handle = nullptr;
    heif_context_get_primary_image_handle(context.get(), &handle);
    heif_image* image = nullptr;
    heif_decode_image(handle, &image, heif_colorspace_RGB, heif_chroma_interleaved_RGB, nullptr);
    bool const isDecoded = image;
    heif_image_release(image);
    heif_image_handle_release(handle);
    return isDecoded;
}

bool decodeFirstFrame(std::string const& path)
{
    AVFormatContext* movie = nullptr;
    if (avformat_open_input(&movie, path.c_str(), nullptr, nullptr) < 0)
        return false;
    AVCodec const* codec = nullptr;
    int const video = av_find_best_stream(movie, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    AVCodecContext* decoder = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(decoder, movie->streams[video]->codecpar);
    decoder->thread_count = 1;
    avcodec_open2(decoder, codec, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    while (av_read_frame(movie, packet) >= 0 && packet->stream_index != video)
        av_packet_unref(packet);
    avcodec_send_packet(decoder, packet);
    avcodec_send_packet(decoder, nullptr);
    bool const isDecoded = avcodec_receive_frame(decoder, frame) >= 0;
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&movie);
    return isDecoded;
}

}

bool decodeByCodec(std::string const& path, int side)
{
    std::string_view const extension = std::string_view(path).substr(path.rfind('.') + 1);
    if (extension == "jpg")
        return decodeJPEG(bytesOf(path), side);
    if (extension == "png")
        return decodePNG(bytesOf(path));
    if (extension == "webp")
        return decodeWebP(bytesOf(path));
    if (extension == "heic")
        return decodeHEIF(bytesOf(path));
    return extension == "mp4" && decodeFirstFrame(path);
}
