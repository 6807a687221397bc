#pragma once

#include <kxmd/platform/KXPlatform.h>

#include <string>

/// A private folder for what the library's processors leave behind, removed with the object. A
/// signal that ends the command removes it as well.
class TemporaryFolder {
public:
    /// Within the application's temporary folder of `platform`.
    explicit TemporaryFolder(KXPlatform::Ref platform);
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    /// The platform with this folder as the application's temporary one; null when the folder could
    /// not be made.
    KXPlatform::Ref const& platform() const { return _platform; }

private:
    std::string const _path;
    KXPlatform::Ref _platform;
};

/// Removes what the temporary folders of this process hold, and their like of runs that were killed
/// days ago.
void removeTemporaryFolders(KXPlatform const& platform);
