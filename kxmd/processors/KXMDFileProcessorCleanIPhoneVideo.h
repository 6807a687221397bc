#pragma once

#include "kxmd/host/KXDCFileProcessor.h"
#include "kxmd/platform/KXPlatform.h"

#include <optional>
#include <string>

/// Cleans the videos that phones record: removes the movie's user data, and the sound description
/// that QuickTime nests within another.
///
/// The cleaned copy lies in a new temporary folder, which the host deletes when it is done with it.
class KX_EXPORT KXMDFileProcessorCleanIPhoneVideo final : public KXDCFileProcessor {
public:
    /// `initWithPlatform:` A processor that works with the files and folders of `platform`;
    /// null stands for the process-wide platform.
    explicit KXMDFileProcessorCleanIPhoneVideo(KXPlatform::Ref platform = KXPlatform::shared());

    /// `processedFileDataForPath:` A reader over the cleaned copy of the file at `path`; over that
    /// file itself when there is nothing to remove or no copy can be made. Null when it cannot be
    /// opened.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForPath(std::string const& path) const;

    /// `processedFileDataForFileProxy:fileData:` The same for the source path of the proxy's file;
    /// `fileData` is not used.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const override;

    /// `processedFilesizeForFileProxy:filesize:` By what the file's atoms claim, so of a damaged
    /// file the answer may wrap. A file with too many atoms to remove keeps its size.
    [[nodiscard]] std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const override;

    /// `cleanData:` Removes the same from the whole file in `data`. False when not all of it could
    /// be removed.
    static bool cleanData(KXMutableData::Ref const& data);

    /// `cleanedSizeOfData:` The size in bytes of the file that `data` reads once it is cleaned, by
    /// what its atoms claim, as predicted above; its length when there is nothing to remove.
    [[nodiscard]] static std::uint64_t cleanedSizeOfData(KXAbstractData& data);

    /// `reasonAgainstCleaningData:` Why media of the file that `data` reads would be lost by that,
    /// as `KXMP4EditSafety` tells it; absent when none is, or when there is nothing to remove.
    [[nodiscard]] static std::optional<std::string> reasonAgainstCleaningData(KXAbstractData& data);

private:
    std::string pathOfCleanedCopy(std::string const& path) const;

    KXPlatform::Ref const _platform;
};
