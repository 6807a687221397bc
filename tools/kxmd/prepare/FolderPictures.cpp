#include "FolderPictures.h"

#include "tools/kxmd/NameWithoutCase.h"

#include <kxmd/base/KXFolder.h>
#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
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

/// A name in a form in which names of folders, albums and pictures are alike: whatever the case of
/// their letters, and with what no name of a file may hold, or what cards refuse, replaced.
std::string comparable(std::string_view name)
{
    auto const isRefused = [](char character) {
        return std::string_view("/\\:*?\"<>|").find(character) != std::string_view::npos;
    };
    std::string plain(name);
    std::ranges::replace_if(plain, isRefused, '_');
    return nameWithoutCase(plain);
}

/// The place of a picture's extension in the order of preference; absent for other files.
std::optional<std::size_t> extensionRankOf(std::string_view name)
{
    constexpr std::array<std::string_view, 4> extensions { ".jpg", ".jpeg", ".png", ".webp" };
    std::string const extension = lowerCase(name.substr(std::min(name.rfind('.'), name.size())));
    auto const* const found = std::ranges::find(extensions, extension);
    if (found == extensions.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - extensions.begin());
}

/// What pictures of an album may be called like.
struct AlbumNames {
    std::string folder; ///< Comparable, as the other one; empty for none.
    std::string album;
};

/// How well a picture's name says that it is the album's, 0 best; absent when it does not.
std::optional<std::size_t> rankOf(std::string_view name, AlbumNames const& names)
{
    enum : std::size_t { albumArt = 3, asFolder, asAlbum };
    constexpr std::array<std::string_view, albumArt> stems { "cover", "folder", "front" };
    constexpr std::size_t extensions = 10; // More than there are.
    auto const extension = extensionRankOf(name);
    if (!extension)
        return std::nullopt;
    std::string const stem = comparable(name.substr(0, name.rfind('.')));
    std::size_t rank;
    if (auto const* const found = std::ranges::find(stems, stem); found != stems.end())
        rank = static_cast<std::size_t>(found - stems.begin());
    else if (stem.starts_with("albumart"))
        rank = albumArt;
    else if (!stem.empty() && stem == names.folder)
        rank = asFolder;
    else if (!stem.empty() && stem == names.album)
        rank = asAlbum;
    else
        return std::nullopt;
    return rank * extensions + *extension;
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
    Names pictures;
    for (std::string const& name : names) {
        if (extensionRankOf(name))
            pictures.push_back(name);
    }
    _names.lock()->insert_or_assign(folder, std::move(pictures));
}

FolderPictures::Names FolderPictures::namesIn(std::string const& folder)
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
FolderPictures::Pictures FolderPictures::picturesIn(
    std::string const& folder, std::string const& album)
{
    struct Ranked {
        std::size_t rank;
        std::uint64_t size;
        std::string name;
        std::string state;
    };
    std::vector<Ranked> ranked;
    AlbumNames const names { comparable(KXLastPathComponent(folder)), comparable(album) };
    for (std::string const& name : namesIn(folder)) {
        auto const rank = rankOf(name, names);
        struct stat status;
        if (!rank || ::stat((folder + '/' + name).c_str(), &status) != 0
            || !S_ISREG(status.st_mode))
            continue;
        std::string const state = name + ' ' + std::to_string(status.st_size) + ' '
            + std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec);
        ranked.push_back({ *rank, static_cast<std::uint64_t>(status.st_size), name, state });
    }
    std::ranges::sort(ranked, [](Ranked const& a, Ranked const& b) {
        return std::tuple(a.rank, b.size, a.name) < std::tuple(b.rank, a.size, b.name);
    });
    Pictures pictures;
    for (Ranked& picture : ranked)
        pictures.push_back({ folder + '/' + picture.name, std::move(picture.state) });
    return pictures;
}

FolderPictures::Pictures FolderPictures::picturesFor(
    std::string const& folder, std::string const& album)
{
    std::pair const key(folder, album);
    {
        auto const pictures = _pictures.lock();
        if (auto const known = pictures->find(key); known != pictures->end())
            return known->second;
    }
    auto pictures = picturesIn(folder, album);
    if (isOfDisc(lowerCase(KXLastPathComponent(folder))))
        std::ranges::move(picturesIn(folderOf(folder), album), std::back_inserter(pictures));
    _pictures.lock()->emplace(key, pictures);
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

std::string FolderPictures::pictureFor(std::string const& path, std::string const& album)
{
    for (Picture const& picture : picturesFor(folderOf(path), album)) {
        if (canBeShown(picture.path))
            return picture.path;
    }
    return {};
}

std::string FolderPictures::stateFor(std::string const& path, std::string const& album)
{
    std::string state;
    for (Picture const& picture : picturesFor(folderOf(path), album))
        state += (state.empty() ? "" : ", ") + picture.state;
    return state;
}
