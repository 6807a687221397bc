#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <memory>
#include <span>
#include <webp/decode.h>
#include <webp/demux.h>

namespace {

struct DemuxerDelete {
    void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};
using DemuxerRef = std::unique_ptr<WebPDemuxer, DemuxerDelete>;

struct AnimationDelete {
    void operator()(WebPAnimDecoder* decoder) const { WebPAnimDecoderDelete(decoder); }
};
using AnimationRef = std::unique_ptr<WebPAnimDecoder, AnimationDelete>;

/// The first chunk of a kind; empty when there is none. The file keeps it.
std::span<std::uint8_t const> chunkOf(WebPDemuxer const& demuxer, char const* kind)
{
    WebPChunkIterator chunk;
    if (!WebPDemuxGetChunk(&demuxer, kind, 1, &chunk))
        return {};
    std::span const bytes(chunk.chunk.bytes, chunk.chunk.size);
    WebPDemuxReleaseChunkIterator(&chunk);
    return bytes;
}

/// Exif as WebP has it: some programs leave the identifier of JPEG in front.
std::span<std::uint8_t const> withoutIdentifier(std::span<std::uint8_t const> block)
{
    constexpr std::size_t lengthOfIdentifier = 6;
    bool const hasIdentifier = block.size() > lengthOfIdentifier && block[0] == 'E';
    return hasIdentifier ? block.subspan(lengthOfIdentifier) : block;
}

KXImage::Ref imageOfPixels(
    std::uint8_t const* pixels, std::size_t rowLength, KXPictureLayout const& layout, KXSize size)
{
    KXPictureRows rows(layout, size);
    for (std::size_t y = 0; y < layout.height; ++y)
        rows.takeRow(pixels + y * rowLength);
    return rows.image();
}

/// The first frame, transparent around it.
KXImage::Ref imageOfAnimation(
    WebPData const& file, KXPictureLayout const& layout, KXSize wantedSize)
{
    AnimationRef const decoder(WebPAnimDecoderNew(&file, nullptr));
    std::uint8_t* pixels = nullptr;
    int time = 0;
    if (!decoder || !WebPAnimDecoderGetNext(decoder.get(), &pixels, &time))
        return nullptr;
    return imageOfPixels(pixels, layout.width * KXImage::bytesPerPixel, layout, wantedSize);
}

KXImage::Ref imageOfStill(WebPData const& file, KXPictureLayout layout, KXSize wantedSize)
{
    unsigned const factor = decodingFactor(layout.width, layout.height, wantedSize);
    layout.width = (layout.width + factor - 1) / factor;
    layout.height = (layout.height + factor - 1) / factor;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config))
        return nullptr;
    config.output.colorspace = MODE_RGBA;
    config.options.use_scaling = factor > 1;
    config.options.scaled_width = static_cast<int>(layout.width);
    config.options.scaled_height = static_cast<int>(layout.height);
    if (WebPDecode(file.bytes, file.size, &config) != VP8_STATUS_OK)
        return nullptr;
    auto const& pixels = config.output.u.RGBA;
    auto image
        = imageOfPixels(pixels.rgba, static_cast<std::size_t>(pixels.stride), layout, wantedSize);
    WebPFreeDecBuffer(&config.output);
    return image;
}

}

KXImage::Ref imageOfWebP(KXPictureSource const& source)
{
    auto const bytes = source.bytes();
    WebPData const file { bytes.data(), bytes.size() };
    DemuxerRef const demuxer(WebPDemux(&file));
    if (!demuxer)
        return nullptr;
    std::uint32_t const flags = WebPDemuxGetI(demuxer.get(), WEBP_FF_FORMAT_FLAGS);
    KXPictureLayout const layout {
        .width = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH),
        .height = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT),
        .hasAlpha = (flags & (ALPHA_FLAG | ANIMATION_FLAG)) != 0,
        .orientation = orientationInExif(withoutIdentifier(chunkOf(*demuxer, "EXIF"))),
        .profile = chunkOf(*demuxer, "ICCP"),
    };
    bool const isAnimated = (flags & ANIMATION_FLAG) != 0;
    unsigned const factor
        = isAnimated ? 1 : decodingFactor(layout.width, layout.height, source.wantedSize);
    if (isPictureTooLarge(layout.width, layout.height, factor))
        return nullptr;
    return isAnimated ? imageOfAnimation(file, layout, source.wantedSize)
                      : imageOfStill(file, layout, source.wantedSize);
}
