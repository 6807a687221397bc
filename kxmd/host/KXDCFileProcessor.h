#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/host/KXDCFileProxy.h"

#include <cstdint>

/// Prepares a file on its way to a phone. Stateless: the host calls the two operations
/// independently of each other, for different files on several threads at once.
class KX_EXPORT KXDCFileProcessor {
public:
    virtual ~KXDCFileProcessor();

    /// `processedFileDataForFileProxy:fileData:` The bytes to transfer instead of `fileData`.
    ///
    /// `fileData` itself when nothing changes; null when the file cannot be produced. A mutable
    /// `fileData` may have its buffer edited in place.
    [[nodiscard]] virtual KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const = 0;

    /// `processedFilesizeForFileProxy:filesize:` The size in bytes that the processed file will
    /// have, told from its present `filesize` without producing it.
    [[nodiscard]] virtual std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const = 0;
};
