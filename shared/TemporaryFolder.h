#pragma once

#include <kxmd/platform/KXPlatform.h>

#include <string>

/// A private folder for what the library's processors leave behind, removed with the object. The
/// first one of a run also removes those of runs that were killed.
class TemporaryFolder {
public:
    /// Within the application's temporary folder of `platform`.
    explicit TemporaryFolder(KXPlatform::Ref const& platform);
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    /// The platform with this folder as the application's temporary one; null when the folder could
    /// not be made.
    KXPlatform::Ref const& platform() const { return _platform; }

private:
    explicit TemporaryFolder(std::string path);

    std::string const _path;
    KXPlatform::Ref _platform;
};

/// Removes all temporary folders of this process, whose objects live on other threads, and lets no
/// new one be made: the process is about to end.
void removeTemporaryFoldersForGood();
