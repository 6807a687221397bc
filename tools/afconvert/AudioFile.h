#pragma once

#include "FFmpegRefs.h"

#include <cstdint>
#include <memory>

/// Frees a format that is written, with its way to the file.
struct OutputFree {
    void operator()(AVFormatContext* output) const;
};
using OutputRef = std::unique_ptr<AVFormatContext, OutputFree>;

/// Lets FFmpeg write into a file that is open, and read there what it has written: by its number,
/// since its name is out of reach.
class AudioFile {
public:
    explicit AudioFile(int descriptor)
        : _descriptor(descriptor)
    {
    }

    /// A new format that is written into the file; it must not outlive this object. Throws
    /// `ConversionError` when there is none of that name, or no memory.
    OutputRef newFormat(char const* name);

private:
    static int openAgain(AVFormatContext* format, AVIOContext** io, char const* address, int flags,
        AVDictionary** options);
    static int close(AVFormatContext* format, AVIOContext* io);

    int const _descriptor;
};
