#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXByteLock.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/base/KXObject.h"
#include "kxmd/core/KXMDCodecInfo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

class KXImage;
class KXMP4Atom;
struct KXPlatform;

/// What kind of media a file is.
enum KXMDMetaType : std::int32_t {
    KXMDMetaTypeUnknown = 0, ///< None of these, or one that cannot be read.
    KXMDMetaTypeMP3 = 1, ///< Begins with an ID3v2 tag.
    KXMDMetaTypeMP4 = 2, ///< MP4 or QuickTime: ISO/IEC 14496-12.
    KXMDMetaTypeJPEG = 3, ///< ITU-T T.81; has no tags here.
};

/// Keys of the descriptive tags.
inline constexpr std::string_view KXMDMetadataKeyName = "Name"; ///< Title of the track or video.
inline constexpr std::string_view KXMDMetadataKeyArtist = "Artist"; ///< Who performs it.
inline constexpr std::string_view KXMDMetadataKeyAlbum = "Album"; ///< Title of the album.
/// Whom the whole album is by, where its tracks have several artists.
inline constexpr std::string_view KXMDMetadataKeyAlbumArtist = "Album Artist";

/// What is known of a media file: its kind, its descriptive tags, its codecs and its album cover.
///
/// Made by `fileMetaWithSourcePath:` or `fileMetaWithAbstractData:`, which choose the class by the
/// file's first bytes. Parsed and edited by one thread at a time. A finished object may be read
/// from any thread, except for the predicted size, which the first call stores.
class KX_EXPORT KXMDFileMeta : public KXObject {
public:
    /// A shared object; null where there is none.
    using Ref = std::shared_ptr<KXMDFileMeta>;
    /// A picture as `KXImage` keeps it; null where there is none.
    using ImageRef = std::shared_ptr<KXImage const>;
    /// What covers are decoded by; null for the process-wide platform.
    using PlatformRef = std::shared_ptr<KXPlatform const>;

    /// `fileMetaWithSourcePath:` The metadata of the file at `path`; never null.
    ///
    /// A file that cannot be opened gives an empty object of size 0, one that cannot be parsed an
    /// empty object that knows the size.
    [[nodiscard]] static Ref fileMetaWithSourcePath(std::string const& path);

    /// `fileMetaWithAbstractData:` The metadata of what `data` reads; null when it cannot be
    /// parsed.
    [[nodiscard]] static Ref fileMetaWithAbstractData(KXAbstractData& data);

    /// `fileMetaWithAnyAbstractData:` The same, but for what cannot be parsed an empty object that
    /// knows the size; never null.
    [[nodiscard]] static Ref fileMetaWithAnyAbstractData(KXAbstractData& data);

    /// `metaTypeForData:` The kind of media that `data` begins with. Leaves the reader at position
    /// 0.
    [[nodiscard]] static KXMDMetaType metaTypeForData(KXAbstractData& data);

    ~KXMDFileMeta() override;

    /// `parseAbstractData:` Reads the file anew. False when it is not what the class reads.
    virtual bool parseAbstractData(KXAbstractData& data);

    /// `clearMetadata` Forgets every tag.
    virtual void clearMetadata();

    /// `setMetadata:forKey:` Keeps `value` under `key`; does nothing without a value or with an
    /// empty key.
    virtual void setMetadataForKey(std::optional<std::string> value, std::string_view key);

    /// `metadataForKey:` The tag under `key`, or absent.
    [[nodiscard]] virtual std::optional<std::string> metadataForKey(std::string_view key) const;

    /// `metaType` The kind of media that this object stands for.
    [[nodiscard]] virtual KXMDMetaType metaType() const { return _metaType; }
    /// `setMetaType:` Sets the kind of media.
    virtual void setMetaType(KXMDMetaType metaType) { _metaType = metaType; }

    /// `filesize` The file's size in bytes when it was last parsed.
    [[nodiscard]] std::uint64_t filesize() const { return _filesize; }

    /// `readError` The system's reason why the file could not be opened, or some of it not be read,
    /// when this object was made; none when all could. What the object says may be wrong or
    /// incomplete then.
    [[nodiscard]] std::error_code readError() const { return _readError; }

    /// `mp4Atom` The root of an MP4 file's atoms; null for other files. Read and replaced as one
    /// unit.
    [[nodiscard]] virtual std::shared_ptr<KXMP4Atom> mp4Atom() const { return _mp4Atom.load(); }
    /// `setMp4Atom:` Replaces the root of the atoms.
    virtual void setMp4Atom(std::shared_ptr<KXMP4Atom> atom) { _mp4Atom.store(std::move(atom)); }

    /// `containsVideo` Whether the file has a video track.
    [[nodiscard]] virtual bool containsVideo() const;

    /// `videoCodecsInfo` One record for each sample description of each video track, in file order.
    [[nodiscard]] virtual KXMDCodecInfo::List videoCodecsInfo() const;

    /// `audioCodecsInfo` One record for each sample description of each audio track, in file order.
    [[nodiscard]] virtual KXMDCodecInfo::List audioCodecsInfo() const;

    // Album covers. They are embedded as JPEG; whoever needs one several times encodes it once and
    // hands its bytes to the operations for encoded ones.

    /// `setPlatform:` Sets the platform whose picture library decodes and encodes covers. Null
    /// means the process-wide platform, which is looked up only when there is a cover to decode or
    /// encode.
    void setPlatform(PlatformRef platform) { _platform = std::move(platform); }

    /// `hasValidAlbumCover` Whether the embedded covers are at least 200 by 200; true for files
    /// that cannot have one.
    [[nodiscard]] virtual bool hasValidAlbumCover() const;

    /// `canInsertAlbumCover` Whether the file has a place for a cover.
    [[nodiscard]] virtual bool canInsertAlbumCover() const;

    /// `filesizeWithValidAlbumCover:` The file's size in bytes once `image` is its cover, unless it
    /// has a valid one already. The first answer is kept for the object's life, whatever `image` is
    /// later.
    [[nodiscard]] virtual std::uint64_t filesizeWithValidAlbumCover(ImageRef const& image);

    /// `filesizeWithValidEncodedAlbumCover:` The same for a JPEG file, with the same answer kept.
    [[nodiscard]] virtual std::uint64_t filesizeWithValidEncodedAlbumCover(KXData const& picture);

    /// `albumCoverFromData:` The embedded cover of the file that `data` reads, or null.
    [[nodiscard]] virtual ImageRef albumCoverFromData(KXAbstractData& data) const;

    /// `removeAlbumCoverFromData:` Removes every cover from the whole file in `data`.
    ///
    /// False when that cannot be done; `data` may then have lost some covers already.
    virtual bool removeAlbumCoverFromData(KXMutableData::Ref const& data);

    /// `addAlbumCover:toData:` Makes `image` the only cover of the whole file in `data`.
    ///
    /// False when that cannot be done; `data` may then have lost its old covers already.
    virtual bool addAlbumCoverToData(ImageRef const& image, KXMutableData::Ref const& data);

    /// `addEncodedAlbumCover:toData:` The same for a JPEG file, which is embedded as it is.
    virtual bool addEncodedAlbumCoverToData(KXData const& picture, KXMutableData::Ref const& data);

    /// `albumCoverSizeForImage:` The bytes that `image` takes in the file as a cover; 0 when it
    /// cannot be one.
    [[nodiscard]] virtual std::uint64_t albumCoverSizeForImage(ImageRef const& image) const;

    /// `albumCoverSizeForEncodedImage:` The same for a JPEG file.
    [[nodiscard]] virtual std::uint64_t albumCoverSizeForEncodedImage(KXData const& picture) const;

    /// `albumCoverSizeForEmbeddedTags` The bytes that the embedded covers take, headers included.
    [[nodiscard]] virtual std::uint64_t albumCoverSizeForEmbeddedTags() const;

protected:
    /// `internalInit` The constructors: that of each class runs after its base's, and sets the kind
    /// of media.
    KXMDFileMeta() = default;

    /// Keeps the size in bytes of the file that was parsed.
    void setFilesize(std::uint64_t filesize) { _filesize = filesize; }

    /// What decodes and encodes covers.
    [[nodiscard]] PlatformRef platform() const;

    /// `image` as the JPEG file that is embedded; empty without an image and when it cannot be
    /// encoded.
    [[nodiscard]] KXData encodedAlbumCover(ImageRef const& image) const;

private:
    using Dictionary = std::vector<std::pair<std::string, std::string>>; // A handful of entries.

    KXGuarded<Dictionary> _metadata;
    KXMDMetaType _metaType { KXMDMetaTypeUnknown };
    KXGuarded<std::shared_ptr<KXMP4Atom>, KXByteLock> _mp4Atom;
    std::uint64_t _filesize { 0 };
    std::error_code _readError;
    std::uint64_t _filesizeWithAlbumCover { 0 }; // 0 until asked for.
    PlatformRef _platform; // Null for the process-wide one.
};

/// The metadata of a file that is neither MP3 nor MP4, or that could not be read: its size alone.
class KX_EXPORT KXMDFileMetaEmpty final : public KXMDFileMeta {
public:
    /// `init` An object of size 0.
    KXMDFileMetaEmpty() = default;
};
