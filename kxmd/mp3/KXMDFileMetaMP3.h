#pragma once

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp3/KXMDFileMetaMP3Frame.h"

#include <memory>
#include <string>
#include <string_view>

/// The metadata of a file that begins with an ID3v2 tag, version 2.2, 2.3 or 2.4. Tags elsewhere in
/// the file and the audio itself are not looked at.
class KX_EXPORT KXMDFileMetaMP3 final : public KXMDFileMeta {
public:
    /// A list of frames that never changes, shared by its readers.
    using FrameList = std::shared_ptr<KXMDFileMetaMP3Frame::List const>;

    /// `init` An object without frames and tags, until it parses a file.
    KXMDFileMetaMP3();

    /// `parseAbstractData:` Reads the tag at the start of the file. False, with the object as it
    /// was, when there is none, or one that is unsynchronised, compressed or of another version.
    bool parseAbstractData(KXAbstractData& data) override;

    /// `id3Version` The tag's version: major version in the high byte, revision in the low one.
    [[nodiscard]] std::uint16_t id3Version() const { return _id3Version; }
    /// `majorVersion` The version without its revision.
    [[nodiscard]] KXID3Version majorVersion() const
    {
        return static_cast<KXID3Version>(_id3Version & 0xFF00);
    }
    /// `id3Flags` The flags of the tag's header.
    [[nodiscard]] std::uint8_t id3Flags() const { return _id3Flags; }
    /// `headerSize` Bytes of the tag after its 10-byte header.
    [[nodiscard]] std::uint32_t headerSize() const { return _headerSize; }

    /// `frames` The frames in file order, as they are now; never null.
    [[nodiscard]] FrameList frames() const { return _id3Frames.load(); }

    /// `allFramesWithTag:` The frames with exactly this identifier, in file order; absent for an
    /// empty one.
    [[nodiscard]] std::optional<KXMDFileMetaMP3Frame::List> allFramesWithTag(
        std::string_view tag) const;

    // Identifiers by the version of the tag; empty where the version has none, or is unknown.

    /// `titleTag` Identifier of the title's frame.
    [[nodiscard]] std::string_view titleTag() const;
    /// `albumTag` Identifier of the album's frame.
    [[nodiscard]] std::string_view albumTag() const;
    /// `albumArtistTag` Identifier of the album artist's frame.
    [[nodiscard]] std::string_view albumArtistTag() const;
    /// `artistTag` Identifier of the artist's frame.
    [[nodiscard]] std::string_view artistTag() const;
    /// `albumCoverTag` Identifier of picture frames.
    [[nodiscard]] std::string_view albumCoverTag() const;
    /// `mimeJPEG` How a picture frame names the JPEG format.
    [[nodiscard]] std::string_view mimeJPEG() const;

    [[nodiscard]] KXMDCodecInfo::List audioCodecsInfo() const override;

    /// `hasValidAlbumCover` Whether the widest embedded cover is at least 200 pixels wide and the
    /// tallest at least 200 high; the two may be different covers.
    [[nodiscard]] bool hasValidAlbumCover() const override;

    /// `canInsertAlbumCover` Whether the tag has a frame to insert one before.
    [[nodiscard]] bool canInsertAlbumCover() const override;

    /// `albumCoverFromData:` The embedded picture of the file that `data` reads and this object was
    /// parsed from: the first front cover that decodes, else the first other picture that does.
    ///
    /// Pictures are found as the standards say, including some that `hasValidAlbumCover` misses,
    /// since it uses a simpler rule.
    [[nodiscard]] ImageRef albumCoverFromData(KXAbstractData& data) const override;

    /// `removeAlbumCoverFromData:` Removes all picture frames.
    ///
    /// The object is then parsed from the edited bytes, as after `addAlbumCover:toData:`.
    bool removeAlbumCoverFromData(KXMutableData::Ref const& data) override;

    /// `addAlbumCover:toData:` Inserts a picture frame before the tag's last frame, so a tag
    /// without frames cannot take one. Padding stays as it is.
    bool addAlbumCoverToData(ImageRef const& image, KXMutableData::Ref const& data) override;
    bool addEncodedAlbumCoverToData(KXData const& picture, KXMutableData::Ref const& data) override;

    /// `albumCoverFrameDataForImage:` A whole picture frame of the tag's version with `image` as
    /// JPEG; empty without an image and for an unknown version.
    [[nodiscard]] KXData albumCoverFrameDataForImage(ImageRef const& image) const;

    [[nodiscard]] std::uint64_t albumCoverSizeForImage(ImageRef const& image) const override;
    [[nodiscard]] std::uint64_t albumCoverSizeForEncodedImage(KXData const& picture) const override;
    [[nodiscard]] std::uint64_t albumCoverSizeForEmbeddedTags() const override;

private:
    bool parseMutableData(KXMutableData::Ref const& data);
    KXData albumCoverFrameWithJPEG(KXData const& picture) const;
    KXData albumCoverFrameHead(std::uint64_t pictureLength) const;
    KXMDFileMetaMP3Frame::List albumCoverFrames() const;
    bool readHeader(KXAbstractData& data);
    void readFrames(KXAbstractData& data);
    void takeMetadataFromFrames();

    std::uint16_t _id3Version { 0 };
    std::uint8_t _id3Flags { 0 };
    std::uint32_t _headerSize { 0 };
    KXGuarded<FrameList, KXByteLock> _id3Frames;
};
