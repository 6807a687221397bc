#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"

#include <cerrno>
#include <cstdio>

namespace {

// Containers of movies and music. What is left out reads other files (playlists, concatenations,
// numbered pictures) or shows what is not a movie (texts, terminal recordings, single pictures).
constexpr char const* formats
    = "mov,matroska,avi,flv,live_flv,mpeg,mpegts,mpegvideo,m4v,h264,hevc,ivf,yuv4mpegpipe,asf,ogg,"
      "rm,mxf,nut,gxf,dv,nsv,roq,smk,bink,4xm,vc1,mp3,flac,wav,w64,aiff,caf,au,ape,wv,tta,mpc,mpc8,"
      "dsf,tak,aac,ac3,eac3,dts,amr";
// Single pictures that are told by their first bytes.
constexpr char const* pictureFormats
    = "bmp_pipe,dds_pipe,exr_pipe,ico,j2k_pipe,jpegxl_pipe,pbm_pipe,pgm_pipe,"
      "ppm_pipe,psd_pipe,qoi_pipe";
constexpr int mostStreams = 256; // That a file may make FFmpeg allocate.
constexpr int bufferLength = 32 * 1024;

KXFFmpegInput const& inputAt(void* input) { return *static_cast<KXFFmpegInput const*>(input); }

/// A movie that names other files and addresses gets none of them.
int openNothing(AVFormatContext*, AVIOContext**, char const*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

}

KXFFmpegInput::~KXFFmpegInput()
{
    if (_context)
        av_freep(&_context->buffer); // It may have grown: not always the one that we allocated.
    avio_context_free(&_context);
}

AVFormatRef KXFFmpegInput::openedFormat() { return openedFormatAmong(formats); }

AVFormatRef KXFFmpegInput::openedPicture() { return openedFormatAmong(pictureFormats); }

AVFormatRef KXFFmpegInput::openedFormatAmong(char const* allowed)
{
    AVFormatContext* format = avformat_alloc_context();
    if (!format || !attachToFormat(*format)) {
        avformat_free_context(format);
        return nullptr;
    }
    format->max_streams = mostStreams;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", allowed, 0);
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    int const opened = avformat_open_input(&format, nullptr, nullptr, &options);
    av_dict_free(&options);
    return AVFormatRef(opened < 0 ? nullptr : format); // Freed already where it was not opened.
}

bool KXFFmpegInput::attachToFormat(AVFormatContext& format)
{
    AVMemoryRef buffer(av_malloc(bufferLength));
    if (!buffer)
        return false;
    _context = avio_alloc_context(
        static_cast<std::uint8_t*>(buffer.get()), bufferLength, 0, this, readPacket, nullptr, seek);
    if (!_context)
        return false;
    (void)buffer.release(); // The context has it.
    format.pb = _context;
    format.io_open = openNothing;
    return true;
}

int KXFFmpegInput::readPacket(void* input, std::uint8_t* bytes, int length)
{
    KXAbstractData& data = inputAt(input)._data;
    auto const count = data.readBytesToMaxLength(bytes, static_cast<std::uint64_t>(length));
    if (!count && data.readError())
        return AVERROR(EIO); // Which is no end of the file.
    return count ? static_cast<int>(count) : AVERROR_EOF;
}

std::int64_t KXFFmpegInput::seek(void* input, std::int64_t offset, int whence)
{
    KXAbstractData& data = inputAt(input)._data;
    if (whence == AVSEEK_SIZE)
        return static_cast<std::int64_t>(data.length());
    // FFmpeg makes every other request one from the start of the file, and none before it.
    data.setOffset(static_cast<std::uint64_t>(offset)); // Past the end as well: reads end there.
    return offset;
}
