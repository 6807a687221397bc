#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"

#include "kxmd/platform/linux/ffmpeg/KXFFmpegFramePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegStreamPrivate.h"

#include <algorithm>
#include <span>

extern "C" {
#include <libavutil/display.h>
}

namespace {

// The largest frame that a file may make FFmpeg allocate (8K has 33 million).
constexpr std::int64_t mostPixels = 1ll << 26;
constexpr int mostTries = 8; // Damaged frames that are passed over before we give up.
constexpr double longestTime = 1e9; // Seconds.
constexpr double timeRounding = 1e-6; // Seconds by which a time of ours may miss the tick it means.

AVFrameRef newFrame() { return AVFrameRef(av_frame_alloc()); }

std::int32_t const* displayMatrixOf(AVStream const& stream, AVFrame const& frame)
{
    constexpr std::size_t length = 9 * sizeof(std::int32_t);
    if (auto const* const matrix = displayMatrixOf(stream))
        return matrix;
    auto const* const ofFrame = av_frame_get_side_data(&frame, AV_FRAME_DATA_DISPLAYMATRIX);
    return ofFrame && ofFrame->size >= length ? reinterpret_cast<std::int32_t const*>(ofFrame->data)
                                              : nullptr;
}

std::int64_t startOfStream(AVStream const& stream)
{
    return stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time;
}

/// Whether a picture within `maximumSize` is so much smaller than the frames that the edges between
/// their blocks vanish; smoothing them is a fifth of the work (ITU-T H.264, 8.7; H.265, 8.7.2).
bool hidesBlocks(KXSize maximumSize, AVCodecContext const& decoder)
{
    double const across = maximumSize.width * 4;
    double const down = maximumSize.height * 4;
    return across > 0 && down > 0 && (decoder.width >= across || decoder.height >= down);
}

/// Whether a packet is all there and in the clear; any other decodes to a frame of grey.
bool isReadable(AVPacket const& packet)
{
    return !(packet.flags & AV_PKT_FLAG_CORRUPT)
        && !av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, nullptr);
}

std::int64_t durationOfFrame(AVFrame const& frame)
{
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

}

std::unique_ptr<KXMovie> KXFFmpegMovie::movieWithData(KXAbstractData& data)
{
    auto movie = std::make_unique<KXFFmpegMovie>(data);
    return movie->open() ? std::move(movie) : nullptr;
}

KXFFmpegMovie::KXFFmpegMovie(KXAbstractData& data)
    : _input(data)
{
    data.setOffset(0);
}

bool KXFFmpegMovie::open()
{
    _format = _input.openedFormat();
    if (!_format || (!knowsVideoStream() && avformat_find_stream_info(_format.get(), nullptr) < 0))
        return false;
    _video = bestVideoStream();
    return true;
}

/// Whether the headers tell enough to decode; finding out by decoding costs many times as much.
bool KXFFmpegMovie::knowsVideoStream() const
{
    // Formats that tell of streams later on have none yet, or none with a size.
    for (AVStream const* const stream : streamsOf(*_format)) {
        AVCodecParameters const& parameters = *stream->codecpar;
        bool const isKnown = parameters.codec_id != AV_CODEC_ID_NONE && parameters.width > 0;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO && !isAttachedPicture(*stream) && !isKnown)
            return false;
    }
    return _format->nb_streams > 0;
}

/// The first stream that a player would show by itself; null when there is none.
AVStream* KXFFmpegMovie::bestVideoStream() const
{
    AVStream* best = nullptr;
    for (AVStream* const stream : streamsOf(*_format)) {
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO || isAttachedPicture(*stream))
            continue;
        bool const isDefault = stream->disposition & AV_DISPOSITION_DEFAULT;
        if (!best || (isDefault && !(best->disposition & AV_DISPOSITION_DEFAULT)))
            best = stream;
    }
    return best;
}

bool KXFFmpegMovie::openDecoder()
{
    if (_decoder || !_video)
        return _decoder != nullptr;
    AVCodec const* const codec = avcodec_find_decoder(_video->codecpar->codec_id);
    AVDecoderRef decoder(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!decoder || avcodec_parameters_to_context(decoder.get(), _video->codecpar) < 0)
        return false;
    decoder->pkt_timebase = _video->time_base;
    decoder->max_pixels = mostPixels;
    // It decodes on this thread alone, unless told otherwise: for one frame, threads cost more than
    // they save, and callers have their own.
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0)
        return false;
    for (AVStream* const stream : streamsOf(*_format))
        stream->discard = stream == _video ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    _decoder = std::move(decoder);
    return true;
}

double KXFFmpegMovie::duration() const
{
    return static_cast<double>(std::max<std::int64_t>(_format->duration, 0)) / AV_TIME_BASE;
}

KXData KXFFmpegMovie::attachedPicture() const
{
    for (AVStream const* const stream : streamsOf(*_format)) {
        AVPacket const& picture = stream->attached_pic;
        if (isAttachedPicture(*stream) && picture.data && picture.size > 0)
            return KXData({ picture.data, picture.data + picture.size });
    }
    return {};
}

/// Makes the next packets those of the last key frame up to `seconds`.
bool KXFFmpegMovie::startAtTime(double seconds)
{
    if (!openDecoder() || !(seconds < longestTime))
        return false;
    avcodec_flush_buffers(_decoder.get());
    bool const isIndexed = avformat_index_get_entries_count(_video) > 0
        && !(_format->iformat->flags & AVFMT_TS_DISCONT);
    if (!isIndexed && startWithoutIndex(seconds))
        return true;
    // A movie whose index starts later than the time is played from its first frame.
    return seekToTime(seconds, AVSEEK_FLAG_BACKWARD) || seekToTime(seconds, 0) || !(seconds > 0);
}

bool KXFFmpegMovie::seekToTime(double seconds, int flags)
{
    double const ticks = (std::max(seconds, 0.0) + timeRounding) / av_q2d(_video->time_base);
    std::int64_t target;
    return !__builtin_add_overflow(
               startOfStream(*_video), static_cast<std::int64_t>(ticks), &target)
        && av_seek_frame(_format.get(), _video->index, target, flags) >= 0;
}

/// The same in a stream that does not tell where its key frames are: a jump to a time leads
/// anywhere between two of them. Goes back until a key frame comes before the time, at last to the
/// start. False where jumps are impossible.
bool KXFFmpegMovie::startWithoutIndex(double seconds)
{
    constexpr double furthest = 32; // Seconds; further apart no broadcaster has them.
    AVPacketRef const packet(av_packet_alloc());
    if (!packet)
        return false;
    for (double back = 0; back <= furthest && seconds - back > 0; back = back > 0 ? 2 * back : 1) {
        if (!seekToTime(seconds - back, AVSEEK_FLAG_BACKWARD))
            return false;
        while (readPacket(*packet) && !(packet->flags & AV_PKT_FLAG_KEY)) { }
        bool const isKey = packet->data && packet->flags & AV_PKT_FLAG_KEY;
        if (isKey && packet->pts != AV_NOPTS_VALUE
            && secondsAt(packet->pts) <= seconds + timeRounding)
            return seekToTime(seconds - back, AVSEEK_FLAG_BACKWARD);
    }
    return av_seek_frame(_format.get(), -1, 0, AVSEEK_FLAG_BYTE) >= 0;
}

/// The next readable packet of the video; false at the end of what can be read.
bool KXFFmpegMovie::readPacket(AVPacket& packet)
{
    do {
        av_packet_unref(&packet);
        if (av_read_frame(_format.get(), &packet) < 0)
            return false;
    } while (packet.stream_index != _video->index || !isReadable(packet));
    return true;
}

KXImage::Ref KXFFmpegMovie::keyImageAtTime(double seconds, KXSize maximumSize)
{
    AVPacketRef const packet(av_packet_alloc());
    auto const frame = newFrame();
    if (!packet || !frame || !startAtTime(seconds))
        return nullptr;
    _decoder->skip_loop_filter
        = hidesBlocks(maximumSize, *_decoder) ? AVDISCARD_ALL : AVDISCARD_DEFAULT;
    for (int tries = 0; tries < mostTries && readPacket(*packet);) {
        if (!(packet->flags & AV_PKT_FLAG_KEY))
            continue;
        // Told that nothing follows, the decoder does not hold the frame back to sort it.
        bool const isDecoded = avcodec_send_packet(_decoder.get(), packet.get()) >= 0
            && avcodec_send_packet(_decoder.get(), nullptr) >= 0
            && avcodec_receive_frame(_decoder.get(), frame.get()) >= 0;
        if (isDecoded && !frame->decode_error_flags)
            return imageOfShownFrame(*frame, maximumSize);
        avcodec_flush_buffers(_decoder.get());
        ++tries;
    }
    // Key frames that an edit list cuts away lead to others that are shown.
    return imageAtTime(seconds, maximumSize);
}

/// The next frame in the order of showing; false at the end.
bool KXFFmpegMovie::decodeFrame(AVFrame& frame)
{
    AVPacketRef const packet(av_packet_alloc());
    while (packet) {
        int const received = avcodec_receive_frame(_decoder.get(), &frame);
        if (received >= 0)
            return true;
        if (received != AVERROR(EAGAIN))
            return false;
        // A packet that cannot be decoded costs its frame, not those after it.
        avcodec_send_packet(_decoder.get(), readPacket(*packet) ? packet.get() : nullptr);
    }
    return false;
}

/// A time stamp of the video, in seconds from its start.
double KXFFmpegMovie::secondsAt(std::int64_t timeStamp) const
{
    double const ticks
        = static_cast<double>(timeStamp) - static_cast<double>(startOfStream(*_video));
    return ticks * av_q2d(_video->time_base);
}

double KXFFmpegMovie::timeOfFrame(AVFrame const& frame) const
{
    bool const isKnown = frame.best_effort_timestamp != AV_NOPTS_VALUE;
    return isKnown ? secondsAt(frame.best_effort_timestamp) : 0;
}

KXImage::Ref KXFFmpegMovie::imageAtTime(double seconds, KXSize maximumSize)
{
    auto shown = newFrame();
    auto next = newFrame();
    if (!shown || !next || !startAtTime(seconds))
        return nullptr;
    _decoder->skip_loop_filter = AVDISCARD_DEFAULT; // Each frame is made of those before.
    bool hasShown = false;
    for (int tries = 0; tries < mostTries && decodeFrame(*next);) {
        if (next->decode_error_flags) {
            ++tries;
            continue;
        }
        if (timeOfFrame(*next) > seconds + timeRounding)
            return imageOfShownFrame(hasShown ? *shown : *next, maximumSize);
        std::swap(shown, next);
        hasShown = true;
    }
    if (!hasShown)
        return nullptr;
    double const end = timeOfFrame(*shown)
        + static_cast<double>(durationOfFrame(*shown)) * av_q2d(_video->time_base);
    // Cut-off movies end earlier than their index tells.
    return seconds <= end + timeRounding ? imageOfShownFrame(*shown, maximumSize) : nullptr;
}

KXImage::Ref KXFFmpegMovie::imageOfShownFrame(AVFrame& frame, KXSize maximumSize) const
{
    KXFFmpegPresentation const presentation {
        .pixelAspect = av_guess_sample_aspect_ratio(_format.get(), _video, &frame),
        .displayMatrix = displayMatrixOf(*_video, frame),
    };
    return imageOfFrame(frame, presentation, maximumSize);
}
