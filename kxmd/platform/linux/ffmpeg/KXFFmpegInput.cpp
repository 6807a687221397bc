#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"

#include <cstdio>

namespace {

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
    auto const count
        = inputAt(input)._data.readBytesToMaxLength(bytes, static_cast<std::uint64_t>(length));
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
