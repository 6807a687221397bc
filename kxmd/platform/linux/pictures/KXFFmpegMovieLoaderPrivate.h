#pragma once

#include "kxmd/platform/KXMovieLoader.h"

/// Movies by the FFmpeg libraries.
///
/// They live in a module of their own that is opened at the first movie: loaded with the library,
/// they would cost every host about 130 shared objects. Without the module there are no movies, and
/// one log line says so.
class KXFFmpegMovieLoader final : public KXMovieLoader {
public:
    [[nodiscard]] std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override;
};
