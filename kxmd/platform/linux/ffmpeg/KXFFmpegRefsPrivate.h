#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

/// Frees what FFmpeg allocated, by the function that takes the address of a pointer to it.
template <auto freeThrough> struct FFmpegFree {
    template <class Type> void operator()(Type* allocated) const { freeThrough(&allocated); }
};

struct FFmpegFreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

struct FFmpegFreeMemory {
    void operator()(void* memory) const { av_free(memory); }
};

using AVFormatRef = std::unique_ptr<AVFormatContext, FFmpegFree<avformat_close_input>>;
using AVDecoderRef = std::unique_ptr<AVCodecContext, FFmpegFree<avcodec_free_context>>;
using AVMemoryRef = std::unique_ptr<void, FFmpegFreeMemory>;
using AVPacketRef = std::unique_ptr<AVPacket, FFmpegFree<av_packet_free>>;
using AVFrameRef = std::unique_ptr<AVFrame, FFmpegFree<av_frame_free>>;
using AVScalerRef = std::unique_ptr<SwsContext, FFmpegFreeScaler>;
