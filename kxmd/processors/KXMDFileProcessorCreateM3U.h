#pragma once

#include "kxmd/host/KXDCFileProcessor.h"

/// Writes the playlist file of a playlist: its members by their paths on the phone, relative to the
/// playlist's folder, in the form `.\Music\01.mp3`.
///
/// The text is UTF-8 without a byte-order mark; its lines are separated by a carriage return and a
/// line feed, with none after the last. Members that are rights-protected, or not below the
/// playlist's folder, are left out.
class KX_EXPORT KXMDFileProcessorCreateM3U final : public KXDCFileProcessor {
public:
    /// `createPlaylistDataForFileProxy:` A reader over the playlist's text; null when the file is
    /// no playlist or no member can be listed.
    [[nodiscard]] KXAbstractData::Ref createPlaylistDataForFileProxy(
        KXDCFileProxy const& fileProxy) const;

    /// `processedFileDataForFileProxy:fileData:` The same; `fileData` is not used.
    [[nodiscard]] KXAbstractData::Ref processedFileDataForFileProxy(
        KXDCFileProxy const& fileProxy, KXAbstractData::Ref fileData) const override;
    /// `processedFilesizeForFileProxy:filesize:` The length of that text in bytes; 0 without one.
    [[nodiscard]] std::uint64_t processedFilesizeForFileProxy(
        KXDCFileProxy const& fileProxy, std::uint64_t filesize) const override;
};
