#include "AudioReader.h"

#include <span>

namespace {

// Containers of audio. What is left out reads other files (playlists, concatenations).
constexpr char const* formats
    = "mov,mp3,flac,wav,w64,aiff,caf,au,ogg,ape,wv,tta,mpc,mpc8,dsf,tak,asf,matroska,aac,ac3,amr";

AVFormatRef opened(KXFFmpegInput& file)
{
    auto input = file.openedFormatAmong(formats);
    if (!input)
        throw ConversionError("is no audio of a known format");
    return input;
}

}

AudioReader::AudioReader(KXAbstractData& data)
    : _file(data)
    , _input(opened(_file))
    , _packet(allocated(av_packet_alloc()))
    , _frame(allocated(av_frame_alloc()))
{
    checked(avformat_find_stream_info(_input.get(), nullptr), "cannot be read");
    AVCodec const* codec = nullptr;
    int const best = av_find_best_stream(_input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (best == AVERROR_DECODER_NOT_FOUND)
        throw ConversionError("has audio that cannot be decoded");
    if (best < 0)
        throw ConversionError("has no audio");
    for (AVStream* const stream : std::span(_input->streams, _input->nb_streams))
        stream->discard = AVDISCARD_ALL;
    _audio = _input->streams[best];
    _audio->discard = AVDISCARD_DEFAULT;

    _decoder.reset(allocated(avcodec_alloc_context3(codec)));
    checked(avcodec_parameters_to_context(_decoder.get(), _audio->codecpar), "cannot be decoded");
    _decoder->pkt_timebase = _audio->time_base;
    _decoder->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    checked(avcodec_open2(_decoder.get(), codec, nullptr), "cannot be decoded");
    if (_decoder->sample_rate <= 0 || _decoder->ch_layout.nb_channels <= 0)
        throw ConversionError("has audio of no rate or no channels");
}

std::optional<CoverPicture> AudioReader::cover() const
{
    for (AVStream const* const stream : std::span(_input->streams, _input->nb_streams)) {
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC && stream->attached_pic.size > 0) {
            auto const& codec = *stream->codecpar;
            return CoverPicture { codec.codec_id, codec.width, codec.height,
                AVPacketRef(allocated(av_packet_clone(&stream->attached_pic))) };
        }
    }
    return std::nullopt;
}

AVFrame const* AudioReader::nextFrame()
{
    for (;;) {
        int const status = avcodec_receive_frame(_decoder.get(), _frame.get());
        if (status == AVERROR_EOF) {
            checkLength();
            return nullptr;
        }
        if (status != AVERROR(EAGAIN)) {
            checked(status, "is damaged");
            _samples += _frame->nb_samples;
            if (_frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) // As in short headers of WAV.
                av_channel_layout_default(&_frame->ch_layout, _frame->ch_layout.nb_channels);
            return _frame.get();
        }
        if (!sendNextPacket())
            checked(avcodec_send_packet(_decoder.get(), nullptr), "is damaged");
    }
}

/// False at the end of the file.
bool AudioReader::sendNextPacket()
{
    for (;;) {
        av_packet_unref(_packet.get());
        int const status = av_read_frame(_input.get(), _packet.get());
        if (status == AVERROR_EOF)
            return false;
        checked(status, "cannot be read to its end");
        if (_packet->stream_index != _audio->index)
            continue;
        if (_packet->flags & AV_PKT_FLAG_CORRUPT)
            throw ConversionError("is cut off");
        checked(avcodec_send_packet(_decoder.get(), _packet.get()), "is damaged");
        return true;
    }
}

double AudioReader::secondsDecoded() const
{
    return static_cast<double>(_samples) / _decoder->sample_rate;
}

/// Holds what was decoded against the length that the file gives itself, where it knows it.
void AudioReader::checkLength() const
{
    if (!_samples)
        throw ConversionError("has no audio in it");
    if (_input->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
        return;
    bool const isOfStream = _audio->duration > 0;
    // Some containers have a length of their own alone.
    double const promised = isOfStream
        ? static_cast<double>(_audio->duration) * av_q2d(_audio->time_base)
        : static_cast<double>(_input->duration) / AV_TIME_BASE;
    // Lossy encoders round to whole packets at both ends, and headers of theirs are estimates; of
    // lossless audio no packet may be missing.
    auto const* const description = avcodec_descriptor_get(_decoder->codec_id);
    bool const isLossless = description && description->props & AV_CODEC_PROP_LOSSLESS
        && !(description->props & AV_CODEC_PROP_LOSSY);
    double const tolerance = isLossless && isOfStream ? 0.05 : 1; // Seconds.
    if (secondsDecoded() < promised - tolerance)
        throw ConversionError("is cut off");
}
