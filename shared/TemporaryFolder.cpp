#include "shared/TemporaryFolder.h"

#include <kxmd/base/KXFolder.h>
#include <kxmd/base/KXGuarded.h>

#include <cstdlib>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::string_view folderPrefix = "run";

/// The temporary folders of this process.
struct Folders {
    std::set<std::string> paths;
    bool isOver { false };
    bool areKilledOnesGone { false };
};

KXGuarded<Folders>& folders()
{
    static auto& shared = *new KXGuarded<Folders>(); // Never destroyed, as other threads use it.
    return shared;
}

/// Removes a folder, with all that is in it. What stays is removed by a later run.
void removeFolder(std::string const& path) noexcept
{
    constexpr int mostAttempts = 10; // Others may be writing to it, or memory short for a moment.
    for (int i = 0; i < mostAttempts && !KXRemoveFolder(path); ++i) { }
}

/// Removes the folder of a run that was killed: one of a run that goes on is locked.
void removeIfUnlocked(std::string const& path)
{
    int const folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0)
        return;
    if (::flock(folder, LOCK_EX | LOCK_NB) == 0) // Whoever is just making it notices.
        removeFolder(path);
    ::close(folder);
}

void removeFoldersOfKilledRuns(std::string const& parent)
{
    std::string const prefix = std::string(folderPrefix) + '-';
    std::error_code ignored;
    for (std::string const& name : KXNamesInFolder(parent, ignored)) {
        if (name.starts_with(prefix))
            removeIfUnlocked(parent + '/' + name);
    }
}

std::string newFolder(KXPlatform const& platform)
{
    auto const ours = folders().lock();
    if (ours->isOver)
        return {};
    if (!std::exchange(ours->areKilledOnesGone, true))
        removeFoldersOfKilledRuns(platform.temporaryFolders->applicationTempFolder());
    std::string path
        = platform.temporaryFolders->applicationUniqueTempFolderWithPrefix(folderPrefix);
    if (path.empty())
        return path;
    try {
        ours->paths.insert(path);
    } catch (...) { // For want of memory.
        removeFolder(path);
        throw;
    }
    return path;
}

/// Folders within one of our own.
class FoldersWithin final : public KXTemporaryFolders {
public:
    explicit FoldersWithin(std::string path)
        : _path(std::move(path))
    {
    }

    std::string applicationTempFolder() const override { return _path; }

    std::string applicationUniqueTempFolderWithPrefix(std::string_view prefix) const override
    {
        std::string path = _path + '/' + std::string(prefix) + "-XXXXXX";
        if (!::mkdtemp(path.data()))
            path.clear();
        return path; // Without a copy, for which there may be no memory.
    }

private:
    std::string const _path;
};

}

TemporaryFolder::TemporaryFolder(std::string path)
    : _path(std::move(path))
{
}

/// The folder is this object's from the beginning, and removed as well when memory runs out.
TemporaryFolder::TemporaryFolder(KXPlatform::Ref const& platform)
    : TemporaryFolder(newFolder(*platform))
{
    if (_path.empty())
        return;
    auto own = std::make_shared<KXPlatform>(*platform);
    own->temporaryFolders = std::make_shared<FoldersWithin const>(_path);
    _platform = std::move(own);
}

TemporaryFolder::~TemporaryFolder()
{
    if (!_path.empty())
        removeFolder(_path);
    folders().lock()->paths.erase(_path);
}

void removeTemporaryFoldersForGood()
{
    auto const ours = folders().lock();
    ours->isOver = true;
    for (std::string const& path : ours->paths)
        removeFolder(path);
}
