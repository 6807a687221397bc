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

    /// `openedFormat` The movie or music, opened once; it must not outlive this object. Null when
    /// it is neither, or cannot be opened.
    [[nodiscard]] AVFormatRef openedFormat();
    /// `openedPicture` The same for a picture.
    [[nodiscard]] AVFormatRef openedPicture();
    /// `openedFormatAmong:` The same for a file of certain formats, by their names in FFmpeg.
    [[nodiscard]] AVFormatRef openedFormatAmong(char const* allowed);

private:
    bool attachToFormat(AVFormatContext& format);
    static int readPacket(void* input, std::uint8_t* bytes, int length);
    static std::int64_t seek(void* input, std::int64_t offset, int whence);

    KXAbstractData& _data;
    AVIOContext* _context { nullptr }; // Owned.
};
