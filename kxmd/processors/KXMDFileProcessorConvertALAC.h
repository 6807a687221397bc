#pragma once

#include "kxmd/host/KXDCFileProcessor.h"
#include "kxmd/platform/KXPlatform.h"

#include <string>

/// Converts a file, usually lossless audio, to AAC of 256000 bit/s in an MPEG-4 audio file, by the
/// program "/usr/bin/afconvert".
///
/// The result stays in the application's temporary folder under a name made from the source path,
/// so two conversions of one path at once write one file.
class KX_EXPORT KXMDFileProcessorConvertALAC final : public KXDCFileProcessor {
public:
    /// `initWithPlatform:` A processor that works with the files and programs of `platform`;
    /// null stands for the process-wide platform.
    explicit KXMDFileProcessorConvertALAC(KXPlatform::Ref platform = KXPlatform::shared());

    /// `pathToCacheForFile:` Where the converted file is kept; empty without a source path. Makes
    /// the folder.
    [[nodiscard]] std::string pathToCacheForFile(KXDCFile const& file) const;

    /// `processedFileDataForFileProxy:fileData:` Converts the proxy's file, waiting as long as it
    /// takes; `fileData` is not used. Null when the program cannot be run or fails.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const override;

    /// `processedFilesizeForFileProxy:filesize:` The size of the converted file once there is one;
    /// never converts.
    [[nodiscard]] std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const override;

private:
    KXPlatform::Ref const _platform;
};
