#include "FolderPictures.h"

#include <kxmd/base/KXFolder.h>
#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <utility>

namespace {

namespace fs = std::filesystem;

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
        [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower;
}

/// How well a file's name says that it is the album's picture, 0 best; `none` when it does not.
constexpr std::size_t none = 100;
std::size_t rankOf(std::string const& lowerName, std::string const& lowerFolder)
{
    constexpr std::array<std::string_view, 4> extensions { ".jpg", ".jpeg", ".png", ".webp" };
    constexpr std::array<std::string_view, 3> stems { "cover", "folder", "front" };
    std::size_t const dot = std::min(lowerName.rfind('.'), lowerName.size());
    auto const* const extension
        = std::ranges::find(extensions, std::string_view(lowerName).substr(dot));
    if (extension == extensions.end())
        return none;
    std::string_view const name = std::string_view(lowerName).substr(0, dot);
    std::size_t stem = stems.size() + 1;
    if (auto const* const found = std::ranges::find(stems, name); found != stems.end())
        stem = static_cast<std::size_t>(found - stems.begin());
    else if (name.starts_with("albumart"))
        stem = stems.size();
    else if (lowerFolder.empty() || name != lowerFolder)
        return none;
    return stem * extensions.size() + static_cast<std::size_t>(extension - extensions.begin());
}

/// Whether a folder holds one disc of an album: "CD1", "Disc 2", "Disk-3".
bool isOfDisc(std::string const& lowerFolder)
{
    for (std::string_view const prefix : { "cd", "disc", "disk" }) {
        if (!lowerFolder.starts_with(prefix))
            continue;
        std::string_view rest = std::string_view(lowerFolder).substr(prefix.size());
        rest.remove_prefix(std::min(rest.find_first_not_of(" _-."), rest.size()));
        constexpr std::size_t mostDigits = 2;
        return !rest.empty() && rest.size() <= mostDigits
            && rest.find_first_not_of("0123456789") == std::string_view::npos;
    }
    return false;
}

std::string folderOf(std::string const& path)
{
    fs::path const parent = fs::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

}

FolderPictures::FolderPictures(KXPlatform::Ref platform)
    : _platform(std::move(platform))
{
}

void FolderPictures::noteFolder(std::string const& folder, std::vector<std::string> const& names)
{
    std::string const lowerFolder = lowerCase(KXLastPathComponent(folder));
    std::vector<std::string> pictures;
    for (std::string const& name : names) {
        if (rankOf(lowerCase(name), lowerFolder) != none)
            pictures.push_back(name);
    }
    _names.lock()->insert_or_assign(folder, std::move(pictures));
}

std::vector<std::string> FolderPictures::namesIn(std::string const& folder)
{
    {
        auto const names = _names.lock();
        if (auto const known = names->find(folder); known != names->end())
            return known->second;
    }
    std::error_code ignored;
    return KXNamesInFolder(folder, ignored);
}

/// Those in one folder, the best first. Of album art in several sizes the largest file is the best.
FolderPictures::Pictures FolderPictures::picturesIn(std::string const& folder)
{
    struct Ranked {
        std::size_t rank;
        std::uint64_t size;
        std::string name;
        std::string state;
    };
    std::vector<Ranked> ranked;
    std::string const lowerFolder = lowerCase(KXLastPathComponent(folder));
    for (std::string const& name : namesIn(folder)) {
        std::size_t const rank = rankOf(lowerCase(name), lowerFolder);
        struct stat status;
        if (rank == none || ::stat((folder + '/' + name).c_str(), &status) != 0
            || !S_ISREG(status.st_mode))
            continue;
        std::string const state = name + ' ' + std::to_string(status.st_size) + ' '
            + std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec);
        ranked.push_back({ rank, static_cast<std::uint64_t>(status.st_size), name, state });
    }
    std::ranges::sort(ranked, [](Ranked const& a, Ranked const& b) {
        return std::tuple(a.rank, b.size, a.name) < std::tuple(b.rank, a.size, b.name);
    });
    Pictures pictures;
    for (Ranked& picture : ranked)
        pictures.push_back({ folder + '/' + picture.name, std::move(picture.state) });
    return pictures;
}

FolderPictures::Pictures FolderPictures::picturesFor(std::string const& folder)
{
    {
        auto const pictures = _pictures.lock();
        if (auto const known = pictures->find(folder); known != pictures->end())
            return known->second;
    }
    auto pictures = picturesIn(folder);
    if (isOfDisc(lowerCase(KXLastPathComponent(folder))))
        std::ranges::move(picturesIn(folderOf(folder)), std::back_inserter(pictures));
    _pictures.lock()->emplace(folder, pictures);
    return pictures;
}

bool FolderPictures::canBeShown(std::string const& path)
{
    {
        auto const known = _canBeShown.lock();
        if (auto const found = known->find(path); found != known->end())
            return found->second;
    }
    constexpr KXSize small { 64, 64 };
    bool const isShown = _platform->thumbnailService->imageForPath(path, small) != nullptr;
    _canBeShown.lock()->emplace(path, isShown);
    return isShown;
}

std::string FolderPictures::pictureFor(std::string const& path)
{
    for (Picture const& picture : picturesFor(folderOf(path))) {
        if (canBeShown(picture.path))
            return picture.path;
    }
    return {};
}

std::string FolderPictures::stateFor(std::string const& path)
{
    std::string state;
    for (Picture const& picture : picturesFor(folderOf(path)))
        state += (state.empty() ? "" : ", ") + picture.state;
    return state;
}
