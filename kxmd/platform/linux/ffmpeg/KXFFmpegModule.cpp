#include "kxmd/platform/linux/ffmpeg/KXFFmpegModulePrivate.h"

#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

/// FFmpeg tells standard error whatever it dislikes about a file. A host that uses it as well has
/// chosen its level already; only the default one is changed.
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
