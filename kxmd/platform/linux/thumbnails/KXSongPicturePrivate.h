#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"

/// Whether `data` is a song of MPEG audio that surely holds no picture, so that the movie decoder,
/// a process for each file, need not look. False says nothing.
KX_EXPORT_FOR_TESTS bool isSongWithoutPicture(KXAbstractData& data);
