#include "AudioFile.h"

#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int bufferLength = 64 * 1024;

/// A place in the file, of which there may be several.
struct Place {
    int descriptor;
    std::int64_t offset { 0 };
};

Place& placeAt(void* place) { return *static_cast<Place*>(place); }

int readBytes(void* opaque, std::uint8_t* bytes, int length)
{
    Place& place = placeAt(opaque);
    ssize_t count;
    do {
        count = ::pread(place.descriptor, bytes, static_cast<std::size_t>(length), place.offset);
    } while (count < 0 && errno == EINTR);
    if (count <= 0)
        return count < 0 ? AVERROR(errno) : AVERROR_EOF;
    place.offset += count;
    return static_cast<int>(count);
}

int writeBytes(void* opaque, std::uint8_t* bytes, int length)
{
    Place& place = placeAt(opaque);
    for (int written = 0; written < length;) {
        ssize_t const count = ::pwrite(place.descriptor, bytes + written,
            static_cast<std::size_t>(length - written), place.offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return AVERROR(count < 0 ? errno : EIO);
        place.offset += count;
        written += static_cast<int>(count);
    }
    return length;
}

std::int64_t seek(void* opaque, std::int64_t offset, int whence)
{
    Place& place = placeAt(opaque);
    struct stat status { };
    bool const isFromEnd = whence == AVSEEK_SIZE || whence == SEEK_END;
    if (isFromEnd && ::fstat(place.descriptor, &status) != 0)
        return AVERROR(errno);
    if (whence == AVSEEK_SIZE)
        return status.st_size;
    if (whence == SEEK_CUR)
        offset += place.offset;
    else if (isFromEnd)
        offset += status.st_size;
    place.offset = offset;
    return offset;
}

AVIOContext* newIO(int descriptor, bool isWritten)
{
    auto place = std::make_unique<Place>(Place { descriptor });
    AVMemoryRef buffer(allocated(av_malloc(bufferLength)));
    AVIOContext* const io = allocated(avio_alloc_context(static_cast<std::uint8_t*>(buffer.get()),
        bufferLength, isWritten, place.get(), readBytes, isWritten ? writeBytes : nullptr, seek));
    (void)buffer.release(); // The context has both.
    (void)place.release();
    return io;
}

void freeIO(AVIOContext* io)
{
    if (!io)
        return;
    avio_flush(io);
    delete static_cast<Place*>(io->opaque);
    av_freep(&io->buffer);
    avio_context_free(&io);
}

}

void OutputFree::operator()(AVFormatContext* output) const
{
    freeIO(output->pb);
    avformat_free_context(output);
}

OutputRef AudioFile::newFormat(char const* name)
{
    AVFormatContext* format = nullptr;
    checked(avformat_alloc_output_context2(&format, nullptr, name, nullptr), "cannot be written");
    OutputRef output(format);
    output->pb = newIO(_descriptor, true);
    // The header comes first: to make room, the format reads what it wrote.
    output->opaque = this;
    output->io_open = openAgain;
    output->io_close2 = close;
    return output;
}

int AudioFile::openAgain(
    AVFormatContext* format, AVIOContext** io, char const*, int flags, AVDictionary**)
{
    if (flags & AVIO_FLAG_WRITE)
        return AVERROR(EPERM);
    *io = newIO(static_cast<AudioFile*>(format->opaque)->_descriptor, false);
    return 0;
}

int AudioFile::close(AVFormatContext*, AVIOContext* io)
{
    freeIO(io);
    return 0;
}
