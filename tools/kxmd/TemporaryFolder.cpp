#include "TemporaryFolder.h"

#include <kxmd/base/KXGuarded.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view folderPrefix = "run";

/// The temporary folders of this process.
struct Folders {
    std::set<std::string> paths;
    bool isOver { false };
};

KXGuarded<Folders>& folders()
{
    static KXGuarded<Folders> shared;
    return shared;
}

std::string newFolder(KXPlatform const& platform)
{
    auto const ours = folders().lock();
    if (ours->isOver)
        return {};
    std::string path
        = platform.temporaryFolders->applicationUniqueTempFolderWithPrefix(folderPrefix);
    if (!path.empty())
        ours->paths.insert(path);
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
        return ::mkdtemp(path.data()) ? path : std::string();
    }

private:
    std::string const _path;
};

}

TemporaryFolder::TemporaryFolder(KXPlatform::Ref const& platform)
    : _path(newFolder(*platform))
{
    if (_path.empty())
        return;
    auto own = std::make_shared<KXPlatform>(*platform);
    own->temporaryFolders = std::make_shared<FoldersWithin const>(_path);
    _platform = std::move(own);
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    if (!_path.empty())
        fs::remove_all(_path, ignored);
    folders().lock()->paths.erase(_path);
}

void removeTemporaryFoldersForGood()
{
    auto const ours = folders().lock();
    ours->isOver = true;
    constexpr int mostAttempts = 10; // Others may be writing to it until it is gone.
    for (std::string const& path : ours->paths) {
        std::error_code error;
        for (int i = 0; i < mostAttempts && (i == 0 || error); ++i)
            fs::remove_all(path, error);
    }
}

void removeForgottenTemporaryFolders(KXPlatform const& platform)
{
    constexpr auto forgotten = std::chrono::hours(48);
    std::string const prefix = std::string(folderPrefix) + '-';
    std::error_code error;
    fs::directory_iterator folder(platform.temporaryFolders->applicationTempFolder(), error);
    for (; !error && folder != fs::directory_iterator(); folder.increment(error)) {
        std::error_code ignored;
        auto const lastChange = folder->last_write_time(ignored);
        bool const isForgotten
            = !ignored && fs::file_time_type::clock::now() - lastChange > forgotten;
        if (isForgotten && folder->path().filename().string().starts_with(prefix))
            fs::remove_all(folder->path(), ignored);
    }
}
