#include "TemporaryFolder.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view folderPrefix = "run";

/// The prefix of this process's folders; another one may run beside it.
std::string prefixOfProcess()
{
    return std::string(folderPrefix) + '-' + std::to_string(::getpid());
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

TemporaryFolder::TemporaryFolder(KXPlatform::Ref platform)
    : _path(platform->temporaryFolders->applicationUniqueTempFolderWithPrefix(prefixOfProcess()))
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
}

void removeTemporaryFolders(KXPlatform const& platform)
{
    constexpr auto forgotten = std::chrono::hours(48);
    std::string const ours = prefixOfProcess() + '-';
    std::error_code ignored;
    fs::directory_iterator const folders(
        platform.temporaryFolders->applicationTempFolder(), ignored);
    for (auto const& folder : folders) {
        std::string const name = folder.path().filename().string();
        auto const age = fs::file_time_type::clock::now() - folder.last_write_time(ignored);
        bool const isForgotten
            = name.starts_with(std::string(folderPrefix) + '-') && age > forgotten;
        if (name.starts_with(ours) || isForgotten)
            fs::remove_all(folder.path(), ignored);
    }
}
