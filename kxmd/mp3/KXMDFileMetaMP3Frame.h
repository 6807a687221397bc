#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// Major versions of ID3v2 tags, as in the high byte of a version word.
enum KXID3Version : std::uint16_t {
    KXID3Version2 = 0x0200, ///< ID3v2.2: identifiers and sizes of three bytes.
    KXID3Version3 = 0x0300, ///< ID3v2.3: plain sizes of four bytes.
    KXID3Version4 = 0x0400, ///< ID3v2.4: sync-safe sizes of four bytes.
};

/// One frame of an ID3v2 tag: its place in the file and, of the frames that matter here, its value.
/// Goes stale when the file's bytes are edited.
class KX_EXPORT KXMDFileMetaMP3Frame {
public:
    /// A shared frame; null where there is none.
    using Ref = std::shared_ptr<KXMDFileMetaMP3Frame>;
    /// Frames in file order.
    using List = std::vector<Ref>;

    /// `frameWithData:version:` Reads the frame at the read position and moves to the frame's end.
    ///
    /// `version` is the tag's whole version word. Null at padding, at the end of the data, when the
    /// version is unknown or the identifier cannot be read.
    [[nodiscard]] static Ref frameWithData(KXAbstractData& data, std::uint16_t version);

    /// `syncSafeSizeToSize:` Decodes a sync-safe integer (ID3v2.4.0 structure, 6.2: seven bits per
    /// byte).
    ///
    /// Takes its four bytes as they lie in the file, loaded without a swap. The top bits are
    /// ignored.
    [[nodiscard]] static std::uint32_t syncSafeSizeToSize(std::uint32_t syncSafeSize);

    /// `sizeToSyncSafeSize:` The sync-safe integer of `size`, ready to be stored without a swap.
    /// Bits above the lowest 28 are cut off.
    [[nodiscard]] static std::uint32_t sizeToSyncSafeSize(std::uint32_t size);

    /// `headerSize` Bytes of the frame's header: 6 or 10 by `id3Version`, 0 without one.
    [[nodiscard]] std::uint32_t headerSize() const;

    /// `offset` Position in the file of the frame's first byte.
    [[nodiscard]] std::uint64_t offset() const { return _offset; }
    /// `setOffset:` Sets the position.
    void setOffset(std::uint64_t offset) { _offset = offset; }

    /// `size` Bytes of the whole frame, header included.
    [[nodiscard]] std::uint64_t size() const { return _size; }
    /// `setSize:` Sets the size.
    void setSize(std::uint64_t size) { _size = size; }

    /// `dataSize` Bytes that follow the header, as the header claims.
    [[nodiscard]] std::uint64_t dataSize() const { return _dataSize; }
    /// `setDataSize:` Sets the number of bytes that follow the header.
    void setDataSize(std::uint64_t dataSize) { _dataSize = dataSize; }

    /// `tag` The frame identifier, such as "TIT2".
    [[nodiscard]] std::string const& tag() const { return _tag; }
    /// `setTag:` Replaces the identifier.
    void setTag(std::string tag) { _tag = std::move(tag); }

    /// `content` The text of a title, artist, album or album artist frame; absent for other frames
    /// and when it could not be decoded.
    [[nodiscard]] std::optional<std::string> const& content() const { return _content; }
    /// `setContent:` Replaces the text.
    void setContent(std::optional<std::string> content) { _content = std::move(content); }

    /// `flags` The frame's flags; 0 in ID3v2.2. Kept, never acted on.
    [[nodiscard]] std::uint16_t flags() const { return _flags; }
    /// `setFlags:` Sets the flags.
    void setFlags(std::uint16_t flags) { _flags = flags; }

    /// `id3Version` The tag's version word, revision included.
    [[nodiscard]] std::uint32_t id3Version() const { return _id3Version; }
    /// `setId3Version:` Sets the version word.
    void setId3Version(std::uint32_t id3Version) { _id3Version = id3Version; }

    /// `albumCoverSize` Size in pixels of a picture frame's picture; 0 by 0 for other frames and
    /// when it cannot be decoded.
    [[nodiscard]] KXSize albumCoverSize() const { return _albumCoverSize; }
    /// `setAlbumCoverSize:` Sets the size of the picture, in pixels.
    void setAlbumCoverSize(KXSize size) { _albumCoverSize = size; }

    // Edits, in a buffer with the whole file. The frames then describe how it was: parse the buffer
    // again before the next edit.

    /// `removeSelfFromMutableData:` Removes the frame and takes its size off the tag's.
    ///
    /// False, with nothing changed, when the frame is not all there; false as well for a file of
    /// less than a tag's header, which has then lost the frame.
    bool removeSelfFromMutableData(KXMutableData& data) const;

    /// `insertBeforeSelfInMutableData:frameData:` Inserts the bytes of a whole frame before
    /// this one and adds their number to the tag's size.
    ///
    /// False, with nothing changed, when this frame does not begin within the buffer; otherwise as
    /// above.
    bool insertBeforeSelfInMutableData(
        KXMutableData& data, std::span<std::uint8_t const> frameData) const;

    /// `adjustSizeInMutableData:difference:` Adds `difference` to the size in the tag's header.
    /// False when the buffer is shorter than that header.
    bool adjustSizeInMutableData(KXMutableData& data, std::int64_t difference) const;

private:
    bool readHeader(KXAbstractData& data, std::uint16_t version);
    void readPicture(KXAbstractData& data);
    void readText(KXAbstractData& data);
    KXID3Version majorVersion() const { return static_cast<KXID3Version>(_id3Version & 0xFF00); }

    std::uint64_t _offset { 0 };
    std::uint64_t _size { 0 };
    std::uint64_t _dataSize { 0 };
    std::string _tag;
    std::optional<std::string> _content;
    std::uint16_t _flags { 0 };
    std::uint32_t _id3Version { 0 };
    KXSize _albumCoverSize;
};
