#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/platform/KXMediaProbe.h"

#include <optional>

/// What FFmpeg finds in `data`, from its start; absent when it does not know it.
std::optional<KXMediaProbe> mediaProbeByFFmpeg(KXAbstractData& data);
