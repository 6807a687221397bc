#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/image/KXImage.h"

#include <optional>
#include <string>

/// Decodes pictures in a process of its own: those whose decoders can be kept busy for minutes or
/// made to take gigabytes by a small file.
class KX_EXPORT_FOR_TESTS KXPictureProcess {
public:
    /// With the path of our program `kxmd-render`.
    explicit KXPictureProcess(std::string program);

    /// The picture file at `path`, within `maximumSize` in whole pixels. Null when decoding it took
    /// too long or too much memory, so that nobody else should be asked. Absent when it is in no
    /// format that we know.
    std::optional<KXImage::Ref> imageForPath(std::string const& path, KXSize maximumSize) const;

    /// Where our program lies, seen from the library that this code is in.
    static std::string installedProgram();

private:
    std::string const _program;
};
