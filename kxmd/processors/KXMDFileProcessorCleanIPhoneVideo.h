#pragma once

#include "kxmd/host/KXDCFileProcessor.h"
#include "kxmd/platform/KXPlatform.h"

#include <string>

/// Cleans the videos that phones record: removes the movie's user data, and the sound description
/// that QuickTime nests within another.
///
/// The cleaned copy lies in a new temporary folder, which the host deletes when it is done with it.
class KX_EXPORT KXMDFileProcessorCleanIPhoneVideo final : public KXDCFileProcessor {
public:
    explicit KXMDFileProcessorCleanIPhoneVideo(KXPlatform::Ref platform = KXPlatform::shared());

    /// `processedFileDataForPath:` A reader over the cleaned copy of the file at `path`; over that
    /// file itself when there is nothing to remove or no copy can be made. Null when it cannot be
    /// opened.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForPath(std::string const& path) const;

    /// `processedFileDataForFileProxy:fileData:` The same for the source path of the proxy's file;
    /// `fileData` is not used.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const override;
    [[nodiscard]] std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const override;

private:
    std::string pathOfCleanedCopy(std::string const& path) const;

    KXPlatform::Ref const _platform;
};
