#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXData.h"

/// Whether `data` reads an MP3 file that begins with its audio: several frames of MPEG audio, layer
/// III, one after another and alike. Where there are only two, the audio ends with them. No file
/// with an APE tag is one.
[[nodiscard]] bool isBareMP3(KXAbstractData& data);

/// The smallest ID3v2.3 tag that takes a cover: it has one frame, for the cover to be inserted
/// before, and what an ID3v1 tag at the end of `data` says, since readers overlook that one then.
/// By ID3v2.3.0, 3.1 and 3.3, a tag has a frame, and a frame a byte, at least.
[[nodiscard]] KXData tagForMP3Cover(KXAbstractData& data);
