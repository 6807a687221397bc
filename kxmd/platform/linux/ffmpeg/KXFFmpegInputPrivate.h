#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

#include <cstdint>

/// Lets FFmpeg read from one of our readers and from nothing else.
class KXFFmpegInput {
public:
    explicit KXFFmpegInput(KXAbstractData& data)
        : _data(data)
    {
    }
    ~KXFFmpegInput();
    KXFFmpegInput(KXFFmpegInput const&) = delete;
    KXFFmpegInput& operator=(KXFFmpegInput const&) = delete;

    /// `attachToFormat:` Makes this the input of `format`, which must not outlive it; false when
    /// there is no memory.
    [[nodiscard]] bool attachToFormat(AVFormatContext& format);

private:
    static int readPacket(void* input, std::uint8_t* bytes, int length);
    static std::int64_t seek(void* input, std::int64_t offset, int whence);

    KXAbstractData& _data;
    AVIOContext* _context { nullptr }; // Owned.
};
