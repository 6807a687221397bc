#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXByteLock.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/KXPlatform.h"

#include <cstdint>
#include <utility>

/// Takes the small preview picture that cameras embed in the EXIF block of a JPEG file (JEITA
/// CP-3451, 4.5), without decoding the photograph. Parses on one thread; the picture may be asked
/// for on any.
class KX_EXPORT KXMDExifParser {
public:
    /// `initWithPlatform:` A parser that decodes the preview by the platform's picture library;
    /// null stands for the process-wide platform.
    explicit KXMDExifParser(KXPlatform::Ref platform = KXPlatform::shared());

    /// `parseAbstractData:` Looks for the preview. True when the file has an EXIF block in the
    /// place where cameras put it, also when that holds no preview.
    ///
    /// Only a preview that is found replaces `thumbnail`: a parser that is used again keeps that of
    /// the file before when a later file has none.
    [[nodiscard]] bool parseAbstractData(KXAbstractData& data);

    /// `readExifData:length:` Reads an EXIF block from its identifier on; its `length` is not used.
    [[nodiscard]] bool readExifData(KXAbstractData& data, std::uint16_t length);

    /// `readTagsFromData:locationOffset:swap:` Walks the chain of image file directories that
    /// begins at the read position. `locationOffset` is where the file's TIFF header begins, `swap`
    /// its byte order. True when the preview was found and read.
    ///
    /// A directory is walked once; in one file at most 1,048,576 directories are, and as many
    /// entries.
    [[nodiscard]] bool readTagsFromData(
        KXAbstractData& data, std::uint64_t locationOffset, KXSwap swap);

    /// `thumbnail` The preview found last; null when there was none yet or it cannot be decoded.
    [[nodiscard]] KXImage::Ref thumbnail() const { return _thumbnail.load(); }
    /// `setThumbnail:` Replaces the preview.
    void setThumbnail(KXImage::Ref thumbnail) { _thumbnail.store(std::move(thumbnail)); }

    /// `thumbnailAddress` Position in the file of the preview's first byte; 0 until found.
    [[nodiscard]] std::uint64_t thumbnailAddress() const { return _thumbnailAddress; }
    /// `thumbnailLength` The preview's length in bytes; 0 until found.
    [[nodiscard]] std::uint64_t thumbnailLength() const { return _thumbnailLength; }

private:
    bool readEntries(KXAbstractData& data, std::uint16_t count, std::uint64_t base, KXSwap swap);
    bool readEntry(KXAbstractData& data, std::uint64_t base, KXSwap swap);
    bool readThumbnail(KXAbstractData& data);
    bool isFound() const { return _thumbnailAddress && _thumbnailLength; }

    KXPlatform::Ref const _platform;
    std::uint64_t _thumbnailAddress { 0 };
    std::uint64_t _thumbnailLength { 0 };
    KXGuarded<KXImage::Ref, KXByteLock> _thumbnail;
    std::uint32_t _entriesLeft { 0 };
};
