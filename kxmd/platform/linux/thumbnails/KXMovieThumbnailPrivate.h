#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/KXPictureLoader.h"

/// What stands for a movie: a frame of it, or the cover of what has none. Within `maximumSize` or
/// larger; null when it has neither.
KX_EXPORT_FOR_TESTS KXImage::Ref thumbnailOfMovie(
    KXMovie& movie, KXPictureLoader const& pictureLoader, KXSize maximumSize);
