#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXObject.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>

/// A value that a file keeps under a key: nothing, a text in UTF-8, or an object.
using KXDCValue = std::variant<std::monostate, std::string, std::shared_ptr<KXObject>>;

/// `textOfValue:` The text that `value` holds, or an empty one. Valid as long as `value`.
KX_EXPORT std::string_view KXTextOfValue(KXDCValue const& value);

/// The `fileKind` of a playlist.
constexpr int KXDCFileKindPlaylist = 64;

/// The host's description of one file on the computer. A host implements it over its own objects,
/// or uses `KXDCSimpleFile`. The library calls it on the thread that it was itself called on, and
/// on the queue of a controller that was given the file for later.
class KX_EXPORT KXDCFile {
public:
    /// A shared file object; null for one that is not there.
    using Ref = std::shared_ptr<KXDCFile>;

    virtual ~KXDCFile();

    /// `sourcePath` The file's path on the computer; may be empty.
    [[nodiscard]] virtual std::string sourcePath() const = 0;

    /// `metadataForKey:` What the host stored under `key`, or nothing.
    [[nodiscard]] virtual KXDCValue metadataForKey(std::string_view key) const = 0;

    /// `setMetadata:forKey:` Stores `value` under `key`.
    virtual void setMetadataForKey(KXDCValue value, std::string_view key) = 0;

    /// `setName:` Sets the display name.
    virtual void setName(std::string name) = 0;

    /// `fileKind` The kind of file; `KXDCFileKindPlaylist` marks a playlist.
    [[nodiscard]] virtual int fileKind() const = 0;

    /// `hasDRM` Whether the file is rights-protected media.
    [[nodiscard]] virtual bool hasDRM() const = 0;

    /// `isFolder` Whether the file is a folder.
    [[nodiscard]] virtual bool isFolder() const = 0;

    /// `filename` The file's name with its extension.
    [[nodiscard]] virtual std::string filename() const = 0;
};

/// A file description for hosts without their own. Its keyed values and its name may be used from
/// several threads at once; the other fields are set before it is shared.
class KX_EXPORT KXDCSimpleFile final : public KXDCFile {
public:
    /// `initWithSourcePath:` A file of kind 0, neither protected nor a folder, named by its path.
    explicit KXDCSimpleFile(std::string sourcePath);

    [[nodiscard]] std::string sourcePath() const override { return _sourcePath; }
    [[nodiscard]] KXDCValue metadataForKey(std::string_view key) const override;
    void setMetadataForKey(KXDCValue value, std::string_view key) override;
    void setName(std::string name) override;
    [[nodiscard]] int fileKind() const override { return _fileKind; }
    [[nodiscard]] bool hasDRM() const override { return _hasDRM; }
    [[nodiscard]] bool isFolder() const override { return _isFolder; }
    /// `filename` The last component of the source path.
    [[nodiscard]] std::string filename() const override;

    /// `name` The display name: what `setName:` was last given, at first the file name.
    [[nodiscard]] std::string name() const;

    /// `setFileKind:` Sets the kind of file.
    void setFileKind(int fileKind) { _fileKind = fileKind; }
    /// `setHasDRM:` Says whether the file is rights-protected.
    void setHasDRM(bool hasDRM) { _hasDRM = hasDRM; }
    /// `setIsFolder:` Says whether the file is a folder.
    void setIsFolder(bool isFolder) { _isFolder = isFolder; }

private:
    std::string const _sourcePath;
    int _fileKind { 0 };
    bool _hasDRM { false };
    bool _isFolder { false };
    mutable std::mutex _mutex; // Guards the two below.
    std::map<std::string, KXDCValue, std::less<>> _metadata;
    std::string _name;
};
