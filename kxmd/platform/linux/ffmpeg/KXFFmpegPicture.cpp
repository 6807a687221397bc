#include "kxmd/platform/linux/ffmpeg/KXFFmpegPicturePrivate.h"

#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegFramePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegStreamPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXWindowsIconPrivate.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

namespace {

constexpr std::int64_t mostPixels = 1ll << 26;

bool isIcon(std::span<std::uint8_t const> bytes)
{
    return formatOfPictureWithHead({ reinterpret_cast<char const*>(bytes.data()), bytes.size() })
        == KXPictureFormat::icon;
}

std::size_t indexOf(AVStream const& stream) { return static_cast<std::size_t>(stream.index); }

/// The largest picture of an icon, which has a stream for each of its sizes; the first where `icon`
/// is empty.
AVStream* largestPicture(AVFormatContext const& format, std::span<std::uint8_t const> icon)
{
    auto const pixelsOf
        = [icon](AVStream const& stream) { return pixelsOfIconEntry(icon, indexOf(stream)); };
    AVStream* largest = nullptr;
    for (AVStream* const stream : streamsOf(format)) {
        bool const isPicture = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        if (isPicture && (!largest || pixelsOf(*stream) > pixelsOf(*largest)))
            largest = stream;
    }
    return largest;
}

AVDecoderRef openedDecoder(AVStream const& stream)
{
    AVCodec const* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    AVDecoderRef decoder(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!decoder || avcodec_parameters_to_context(decoder.get(), stream.codecpar) < 0)
        return nullptr;
    decoder->max_pixels = mostPixels;
    AVDictionary* options = nullptr;
    // OpenEXR holds light; what other codecs do not know of, they leave.
    av_dict_set(&options, "apply_trc", "iec61966_2_1", 0);
    bool const isOpen = avcodec_open2(decoder.get(), codec, &options) >= 0;
    av_dict_free(&options);
    return isOpen ? std::move(decoder) : nullptr;
}

AVFrameRef decodedFrame(AVFormatContext& format, AVStream const& stream, AVCodecContext& decoder)
{
    AVPacketRef const packet(av_packet_alloc());
    AVFrameRef frame(av_frame_alloc());
    if (!packet || !frame)
        return nullptr;
    for (bool isMore = true; isMore;) {
        av_packet_unref(packet.get());
        isMore = av_read_frame(&format, packet.get()) >= 0;
        if (isMore && packet->stream_index != stream.index)
            continue;
        avcodec_send_packet(&decoder, isMore ? packet.get() : nullptr);
        if (avcodec_receive_frame(&decoder, frame.get()) >= 0)
            return frame;
    }
    return nullptr;
}

/// FFmpeg knows a portable map by the line end after its first two characters only, where other
/// white space may stand.
void endFirstLineOfPortableMap(std::vector<std::uint8_t>& bytes)
{
    if (!isPortableMap({ reinterpret_cast<char const*>(bytes.data()), bytes.size() }))
        return;
    std::size_t end = 2;
    while (bytes[end] <= ' ')
        bytes[end++] = '\r';
    bytes[end - 1] = '\n';
}

/// Twice what is wanted at least, which the resampler makes the better picture of; empty for all.
KXSize decodedSize(AVFrame const& frame, KXSize wantedSize)
{
    double const wanted = 2 * std::max(wantedSize.width, wantedSize.height);
    double const scale = wanted / std::min(frame.width, frame.height);
    return scale > 0 && scale < 1 ? KXSize { frame.width * scale, frame.height * scale }
                                  : KXSize {};
}

}

KXImage::Ref pictureByFFmpeg(KXAbstractData& data, std::uint64_t length, KXSize wantedSize)
{
    auto bytes = bytesOfPicture(data, length);
    if (bytes.empty())
        return nullptr;
    endFirstLineOfPortableMap(bytes);
    auto const icon = isIcon(bytes) ? std::span(bytes) : std::span<std::uint8_t>();
    forgetColourCountsOfIcon(icon);
    KXMemoryData memory(bytes);
    KXFFmpegInput input(memory);
    auto const format = input.openedPicture();
    AVStream const* const stream = format ? largestPicture(*format, icon) : nullptr;
    auto const decoder = stream ? openedDecoder(*stream) : nullptr;
    auto const frame = decoder ? decodedFrame(*format, *stream, *decoder) : nullptr;
    if (!frame)
        return nullptr;
    if (icon.empty())
        return imageOfFrame(*frame, {}, decodedSize(*frame, wantedSize));
    auto image = imageOfFrame(*frame, {}, {}); // As large as its mask.
    return image ? pictureOfIconWithMask(icon, indexOf(*stream), std::move(image)) : nullptr;
}

std::vector<std::string> formatsOfPicturesByFFmpeg()
{
    constexpr std::pair<AVCodecID, char const*> formats[] { { AV_CODEC_ID_BMP, "bmp" },
        { AV_CODEC_ID_DDS, "dds" }, { AV_CODEC_ID_EXR, "exr" }, { AV_CODEC_ID_BMP, "ico" },
        { AV_CODEC_ID_JPEG2000, "jpeg2000" }, { AV_CODEC_ID_JPEGXL, "jpegxl" },
        { AV_CODEC_ID_PPM, "pnm" }, { AV_CODEC_ID_PSD, "psd" }, { AV_CODEC_ID_QOI, "qoi" } };
    std::vector<std::string> names;
    for (auto const& [codec, name] : formats) {
        if (avcodec_find_decoder(codec))
            names.emplace_back(name);
    }
    return names;
}
