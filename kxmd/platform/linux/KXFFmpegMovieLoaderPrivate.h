#pragma once

#include "kxmd/platform/KXMovieLoader.h"

/// Movies by the FFmpeg libraries, which are opened at the first movie.
// FIXME: the module with these libraries is not built yet, so there is no movie.
class KXFFmpegMovieLoader final : public KXMovieLoader {
public:
    [[nodiscard]] std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override;
};
