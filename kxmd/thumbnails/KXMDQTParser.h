#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXByteLock.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/KXPlatform.h"

#include <utility>

/// Makes a thumbnail of a movie from its poster frame (QuickTime File Format, "Movie Header
/// Atoms"), or from its first frame when it has none. Parses on one thread; the picture may be
/// asked for on any.
class KX_EXPORT KXMDQTParser {
public:
    /// `initWithPlatform:` A parser that opens movies by the platform's movie library;
    /// null stands for the process-wide platform.
    explicit KXMDQTParser(KXPlatform::Ref platform = KXPlatform::shared());

    /// `parseAbstractData:` Makes the picture from the start of the file: the movie library is
    /// offered the first 512 KiB, then 1 MiB, then 1.5 MiB, until one gives a picture. Nothing
    /// after that is read.
    ///
    /// True when there is a picture; otherwise `thumbnail` is left as it was. Once the library
    /// refuses a start of the file as no movie there is none, though the larger ones are still
    /// tried.
    [[nodiscard]] bool parseAbstractData(KXAbstractData& data);

    /// `thumbnail` The picture made last, as large as the movie; null when there was none yet.
    [[nodiscard]] KXImage::Ref thumbnail() const { return _thumbnail.load(); }
    /// `setThumbnail:` Replaces the picture.
    void setThumbnail(KXImage::Ref thumbnail) { _thumbnail.store(std::move(thumbnail)); }

private:
    KXPlatform::Ref const _platform;
    KXGuarded<KXImage::Ref, KXByteLock> _thumbnail;
};
