#include "kxmd/platform/linux/ffmpeg/KXFFmpegProbePrivate.h"

#include "kxmd/base/KXData.h"
#include "kxmd/image/KXPictureSizePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegStreamPrivate.h"
#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace {

constexpr std::size_t longestTag = 4096; // Bytes.
constexpr std::size_t longestLanguage = 64;

/// What FFmpeg says of the type of an attached picture (ID3v2.4, 4.14), and a word for it.
constexpr std::pair<std::string_view, std::string_view> pictureKinds[] {
    { "Cover (front)", "front" },
    { "Cover (back)", "back" },
    { "32x32 pixels 'file icon'", "icon" },
    { "Other file icon", "icon" },
    { "Leaflet page", "leaflet" },
    { "Media (e.g. label side of CD)", "media" },
    { "Lead artist/lead performer/soloist", "artist" },
    { "Artist/performer", "artist" },
    { "Conductor", "conductor" },
    { "Band/Orchestra", "band" },
    { "Composer", "composer" },
    { "Lyricist/text writer", "lyricist" },
    { "Recording Location", "location" },
    { "During recording", "recording" },
    { "During performance", "performance" },
    { "Movie/video screen capture", "screen" },
    { "A bright coloured fish", "fish" },
    { "Illustration", "illustration" },
    { "Band/artist logotype", "logo" },
    { "Publisher/Studio logotype", "logo" },
};

std::string_view textOf(char const* text) { return text ? text : ""; }

std::string_view valueIn(AVDictionary const* tags, char const* name)
{
    auto const* const entry = av_dict_get(tags, name, nullptr, 0);
    return entry ? textOf(entry->value) : "";
}

bool isNamed(AVFormatContext const& format, std::string_view name)
{
    return textOf(format.iformat->name).starts_with(name);
}

std::string containerOf(AVFormatContext const& format)
{
    if (isNamed(format, "mov,mp4")) { // QuickTime files are older than brands.
        std::string_view const brand = valueIn(format.metadata, "major_brand");
        return brand.empty() || brand.starts_with("qt") ? "mov" : "mp4";
    }
    std::string_view const names = textOf(format.iformat->name);
    return std::string(names.substr(0, names.find(',')));
}

/// `value`, or as many whole characters of it as `most` bytes hold.
std::string_view shortened(std::string_view value, std::size_t most)
{
    std::size_t length = std::min(value.size(), most);
    while (length > 0 && length < value.size()
        && (static_cast<unsigned char>(value[length]) & 0xC0) == 0x80)
        --length; // Within a character of UTF-8.
    return value.substr(0, length);
}

/// Ogg has the tags of the file on its streams.
void addTags(KXMediaProbe& probe, AVDictionary const* tags)
{
    for (std::string_view const name : mediaProbeTags) {
        if (std::string_view const value = valueIn(tags, name.data()); !value.empty())
            probe.tags.try_emplace(std::string(name), shortened(value, longestTag));
    }
}

std::uint32_t number(int value) { return static_cast<std::uint32_t>(std::max(value, 0)); }

KXMediaStream::Kind kindOf(AVMediaType type)
{
    switch (type) {
    case AVMEDIA_TYPE_VIDEO:
        return KXMediaStream::Kind::video;
    case AVMEDIA_TYPE_AUDIO:
        return KXMediaStream::Kind::audio;
    case AVMEDIA_TYPE_SUBTITLE:
        return KXMediaStream::Kind::subtitle;
    default:
        return KXMediaStream::Kind::other;
    }
}

/// Bits of a sample: as its format tells, or as its codec always has them; 0 for lossy sound.
std::uint32_t bitsOfSample(AVCodecParameters const& parameters)
{
    if (parameters.bits_per_raw_sample > 0)
        return number(parameters.bits_per_raw_sample);
    return number(av_get_exact_bits_per_sample(parameters.codec_id));
}

std::uint32_t bitsOfComponent(AVCodecParameters const& parameters)
{
    auto const* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
    return format ? number(format->comp[0].depth) : 0;
}

double frameRateOf(AVStream const& stream)
{
    AVRational const rate
        = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    return rate.den > 0 ? av_q2d(rate) : 0;
}

std::uint32_t rotationOf(AVStream const& stream)
{
    auto const* const matrix = displayMatrixOf(stream);
    double const counterclockwise = matrix ? av_display_rotation_get(matrix) : 0;
    if (!std::isfinite(counterclockwise)) // The matrix cannot be undone.
        return 0;
    int const clockwise = static_cast<int>(std::lround(-counterclockwise)); // At most half a turn.
    return number(clockwise < 0 ? clockwise + 360 : clockwise);
}

KXMediaStream probeOf(AVStream const& stream)
{
    AVCodecParameters const& parameters = *stream.codecpar;
    KXMediaStream found;
    found.kind = kindOf(parameters.codec_type);
    if (parameters.codec_id != AV_CODEC_ID_NONE)
        found.codec = avcodec_get_name(parameters.codec_id);
    found.profile = textOf(avcodec_profile_name(parameters.codec_id, parameters.profile));
    found.language = shortened(valueIn(stream.metadata, "language"), longestLanguage);
    found.bitRate = static_cast<std::uint64_t>(std::max<std::int64_t>(parameters.bit_rate, 0));
    if (found.kind == KXMediaStream::Kind::audio) {
        found.sampleRate = number(parameters.sample_rate);
        found.channels = number(parameters.ch_layout.nb_channels);
        found.bits = bitsOfSample(parameters);
    } else if (found.kind == KXMediaStream::Kind::video) {
        found.width = number(parameters.width);
        found.height = number(parameters.height);
        found.bits = bitsOfComponent(parameters);
        found.frameRate = frameRateOf(stream);
        found.rotation = rotationOf(stream);
    }
    return found;
}

std::string kindOfPicture(AVStream const& stream, AVFormatContext const& format)
{
    std::string_view const told = valueIn(stream.metadata, "comment");
    auto const* const known = std::ranges::find(
        pictureKinds, told, &std::pair<std::string_view, std::string_view>::first);
    if (known != std::end(pictureKinds))
        return std::string(known->second);
    std::string_view const file = valueIn(stream.metadata, "filename");
    bool const isFront = isNamed(format, "mov,mp4") // The one of the album ("covr").
        || (isNamed(format, "matroska") // By its name (RFC 9559, 21.1).
            && (file == "cover.jpg" || file == "cover.png"));
    return isFront ? "front" : "other";
}

std::string mediaTypeOf(AVCodecID codec)
{
    switch (codec) {
    case AV_CODEC_ID_MJPEG:
        return "image/jpeg";
    case AV_CODEC_ID_PNG:
        return "image/png";
    case AV_CODEC_ID_GIF:
        return "image/gif";
    case AV_CODEC_ID_BMP:
        return "image/bmp";
    case AV_CODEC_ID_TIFF:
        return "image/tiff";
    case AV_CODEC_ID_WEBP:
        return "image/webp";
    default:
        return "";
    }
}

KXMediaPicture pictureOf(AVStream const& stream, AVFormatContext const& format)
{
    AVPacket const& packet = stream.attached_pic;
    KXMediaPicture picture { .kind = kindOfPicture(stream, format),
        .type = mediaTypeOf(stream.codecpar->codec_id) };
    picture.bytes = number(packet.size);
    auto const data = KXAbstractData::abstractDataWithData(
        KXData({ packet.data, packet.data + picture.bytes }));
    if (auto const size = sizeOfEncodedPictureInData(*data, picture.bytes)) {
        picture.width = static_cast<std::uint32_t>(size->width);
        picture.height = static_cast<std::uint32_t>(size->height);
    }
    return picture;
}

}

std::optional<KXMediaProbe> mediaProbeByFFmpeg(KXAbstractData& data)
{
    data.setOffset(0);
    KXFFmpegInput input(data);
    AVFormatRef const format = input.openedFormat();
    if (!format || avformat_find_stream_info(format.get(), nullptr) < 0)
        return std::nullopt;
    KXMediaProbe probe;
    probe.container = containerOf(*format);
    probe.duration
        = static_cast<double>(std::max<std::int64_t>(format->duration, 0)) / AV_TIME_BASE;
    addTags(probe, format->metadata);
    for (AVStream const* const stream : streamsOf(*format)) {
        if (isAttachedPicture(*stream)) {
            probe.pictures.push_back(pictureOf(*stream, *format));
            continue;
        }
        probe.streams.push_back(probeOf(*stream));
        if (isNamed(*format, "ogg"))
            addTags(probe, stream->metadata);
    }
    return probe;
}
