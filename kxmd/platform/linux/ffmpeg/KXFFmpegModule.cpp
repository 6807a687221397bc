#include "kxmd/platform/linux/ffmpeg/KXFFmpegModulePrivate.h"

#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

/// FFmpeg writes whatever it dislikes about a file to standard error. A host that uses FFmpeg
/// itself may have set a log level; only the default level is changed.
void keepQuiet()
{
    if (av_log_get_level() == AV_LOG_INFO)
        av_log_set_level(AV_LOG_QUIET);
}

}

KXMovie* kxmdMovieWithData(KXAbstractData& data)
{
    static bool const isQuiet = (keepQuiet(), true);
    (void)isQuiet;
    return KXFFmpegMovie::movieWithData(data).release();
}
