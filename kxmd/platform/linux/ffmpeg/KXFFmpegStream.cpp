#include "kxmd/platform/linux/ffmpeg/KXFFmpegStreamPrivate.h"

bool isAttachedPicture(AVStream const& stream)
{
    return stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS);
}

std::int32_t const* displayMatrixOf(AVStream const& stream)
{
    constexpr std::size_t length = 9 * sizeof(std::int32_t);
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 31, 0)
    auto const* const found = av_packet_side_data_get(stream.codecpar->coded_side_data,
        stream.codecpar->nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    auto const* const data = found && found->size >= length ? found->data : nullptr;
#else
    std::size_t size = 0;
    auto const* const found = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    auto const* const data = size >= length ? found : nullptr;
#endif
    return reinterpret_cast<std::int32_t const*>(data); // FFmpeg allocates for any type.
}
