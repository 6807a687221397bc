#pragma once

#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

struct FreeFifo {
    void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};

using CodecRef = AVDecoderRef;
using ResamplerRef = std::unique_ptr<SwrContext, FFmpegFree<swr_free>>;
using FifoRef = std::unique_ptr<AVAudioFifo, FreeFifo>;

/// Why a conversion cannot go on, in words for a person.
class ConversionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What FFmpeg calls the error `code`.
std::string textOfError(int code);

/// `code`, unless it is an error: then what cannot be done, and why.
int checked(int code, char const* what);

/// `pointer`, unless there was no memory for it.
template <class Pointer> Pointer allocated(Pointer pointer)
{
    if (!pointer)
        throw ConversionError("there is not enough memory");
    return pointer;
}
