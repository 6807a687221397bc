#pragma once

#include "kxmd/platform/KXMovieLoader.h"

/// The module's only entry: a movie that the caller owns, or null.
extern "C" KX_EXPORT KXMovie* kxmdMovieWithData(KXAbstractData& data);
