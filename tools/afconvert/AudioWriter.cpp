#include "AudioWriter.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

/// The rate of the encoder's that is nearest to `rate`, higher ones first among equals.
int nearestRate(AVCodec const& encoder, int rate)
{
    int best = 0;
    for (int const* supported = encoder.supported_samplerates; supported && *supported;
         ++supported) {
        if (!best || std::abs(*supported - rate) < std::abs(best - rate))
            best = *supported;
    }
    return best ? best : rate;
}

constexpr int mostChannels = 8; // Of AAC, as its encoder has it.

/// Which channels are encoded. WAV files may leave open which they have; and phones expect those
/// that have a number of their own (ISO/IEC 14496-3, 1.6.3.5), with loudspeakers behind and not
/// beside.
AVChannelLayout encodedLayout(AVChannelLayout const& source)
{
    bool const isNative = source.order == AV_CHANNEL_ORDER_NATIVE;
    bool const isBeside = isNative
        && (source.u.mask == AV_CH_LAYOUT_5POINT0 || source.u.mask == AV_CH_LAYOUT_5POINT1);
    AVChannelLayout layout {};
    if (!isNative || isBeside || source.nb_channels > mostChannels)
        av_channel_layout_default(&layout, std::min(source.nb_channels, mostChannels));
    else
        checked(av_channel_layout_copy(&layout, &source), "has unknown channels");
    return layout;
}

}

AudioWriter::AudioWriter(int file, AVCodecContext const& source, std::int64_t bitRate)
    : _file(file)
    , _output(_file.newFormat("ipod"))
    , _resampled(allocated(av_frame_alloc()))
    , _frame(allocated(av_frame_alloc()))
    , _packet(allocated(av_packet_alloc()))
{
    openEncoder(source, bitRate);
    openResampler(source);
    _audio = allocated(avformat_new_stream(_output.get(), nullptr));
    checked(avcodec_parameters_from_context(_audio->codecpar, _encoder.get()), "cannot be encoded");
    _audio->time_base = _encoder->time_base;
}

void AudioWriter::openEncoder(AVCodecContext const& source, std::int64_t bitRate)
{
    AVCodec const* const codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!codec)
        throw ConversionError("cannot be encoded: there is no encoder of AAC");
    _encoder.reset(allocated(avcodec_alloc_context3(codec)));
    _encoder->sample_fmt = codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
    _encoder->sample_rate = nearestRate(*codec, source.sample_rate);
    _encoder->ch_layout = encodedLayout(source.ch_layout);
    _encoder->bit_rate = bitRate;
    _encoder->time_base = { 1, _encoder->sample_rate };
    _encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // The format wants the configuration apart.
    checked(avcodec_open2(_encoder.get(), codec, nullptr), "cannot be encoded");
    _samples.reset(allocated(av_audio_fifo_alloc(
        _encoder->sample_fmt, _encoder->ch_layout.nb_channels, _encoder->frame_size)));
}

void AudioWriter::openResampler(AVCodecContext const& source)
{
    AVChannelLayout sourceLayout {};
    if (source.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&sourceLayout, source.ch_layout.nb_channels);
    else
        checked(av_channel_layout_copy(&sourceLayout, &source.ch_layout), "has unknown channels");
    SwrContext* resampler = nullptr;
    int const status = swr_alloc_set_opts2(&resampler, &_encoder->ch_layout, _encoder->sample_fmt,
        _encoder->sample_rate, &sourceLayout, source.sample_fmt, source.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&sourceLayout);
    _resampler.reset(resampler);
    checked(status, "cannot be resampled");
    checked(swr_init(resampler), "cannot be resampled");
}

void AudioWriter::addTags(AVDictionary const* tags)
{
    av_dict_copy(&_output->metadata, tags, AV_DICT_DONT_OVERWRITE);
}

void AudioWriter::addCover(CoverPicture cover)
{
    bool const isFormatOfCovers = cover.format == AV_CODEC_ID_MJPEG
        || cover.format == AV_CODEC_ID_PNG || cover.format == AV_CODEC_ID_BMP;
    bool const isMeasured = cover.width > 0 && cover.height > 0;
    if (!isFormatOfCovers || !isMeasured) // A damaged picture must not cost the music.
        return;
    _coverStream = allocated(avformat_new_stream(_output.get(), nullptr));
    _coverStream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    _coverStream->codecpar->codec_id = cover.format;
    _coverStream->codecpar->width = cover.width;
    _coverStream->codecpar->height = cover.height;
    _coverStream->disposition = AV_DISPOSITION_ATTACHED_PIC;
    _cover = std::move(cover);
}

void AudioWriter::begin()
{
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    int const status = avformat_write_header(_output.get(), &options);
    av_dict_free(&options);
    checked(status, "cannot be written");
    if (!_cover)
        return;
    checked(av_packet_ref(_packet.get(), _cover->content.get()), "cannot be written");
    _packet->stream_index = _coverStream->index;
    checked(av_interleaved_write_frame(_output.get(), _packet.get()), "cannot be written");
}

void AudioWriter::write(AVFrame const& frame)
{
    resample(&frame);
    encodeWholeFrames(false);
}

void AudioWriter::finish()
{
    resample(nullptr);
    encodeWholeFrames(true);
    encode(nullptr);
    checked(av_write_trailer(_output.get()), "cannot be written");
    avio_flush(_output->pb);
    checked(_output->pb->error, "cannot be written");
}

/// Null takes out what the resampler holds back.
void AudioWriter::resample(AVFrame const* frame)
{
    for (AVFrame const* input = frame;; input = nullptr) {
        av_frame_unref(_resampled.get());
        _resampled->format = _encoder->sample_fmt;
        _resampled->sample_rate = _encoder->sample_rate;
        checked(av_channel_layout_copy(&_resampled->ch_layout, &_encoder->ch_layout),
            "cannot be resampled");
        // A frame whose rate or channels changed half-way is an error here, not noise.
        checked(swr_convert_frame(_resampler.get(), _resampled.get(), input), "changes half-way");
        if (!_resampled->nb_samples)
            return;
        checked(av_audio_fifo_write(_samples.get(),
                    reinterpret_cast<void**>(_resampled->extended_data), _resampled->nb_samples),
            "cannot be encoded");
        if (frame)
            return;
    }
}

void AudioWriter::encodeWholeFrames(bool isLast)
{
    int const whole = _encoder->frame_size;
    for (int size = av_audio_fifo_size(_samples.get()); size >= whole || (isLast && size > 0);
         size = av_audio_fifo_size(_samples.get())) {
        av_frame_unref(_frame.get());
        _frame->format = _encoder->sample_fmt;
        _frame->sample_rate = _encoder->sample_rate;
        _frame->nb_samples = std::min(size, whole);
        checked(
            av_channel_layout_copy(&_frame->ch_layout, &_encoder->ch_layout), "cannot be encoded");
        checked(av_frame_get_buffer(_frame.get(), 0), "cannot be encoded");
        checked(av_audio_fifo_read(_samples.get(), reinterpret_cast<void**>(_frame->extended_data),
                    _frame->nb_samples),
            "cannot be encoded");
        _frame->pts = _nextSample;
        _nextSample += _frame->nb_samples;
        encode(_frame.get());
    }
}

/// Null takes out what the encoder holds back.
void AudioWriter::encode(AVFrame const* frame)
{
    checked(avcodec_send_frame(_encoder.get(), frame), "cannot be encoded");
    for (;;) {
        int const status = avcodec_receive_packet(_encoder.get(), _packet.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF)
            return;
        checked(status, "cannot be encoded");
        av_packet_rescale_ts(_packet.get(), _encoder->time_base, _audio->time_base);
        _packet->stream_index = _audio->index;
        checked(av_interleaved_write_frame(_output.get(), _packet.get()), "cannot be written");
    }
}
