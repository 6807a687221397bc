#include "FolderPictures.h"

#include <kxmd/base/KXFolder.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 9> pictureNames {
    "cover.jpg",
    "cover.jpeg",
    "cover.png",
    "folder.jpg",
    "folder.jpeg",
    "folder.png",
    "front.jpg",
    "front.jpeg",
    "front.png",
};

std::string lowerCase(std::string text)
{
    std::ranges::transform(text, text.begin(),
        [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

std::string pictureInFolder(fs::path const& folder)
{
    std::string best;
    auto const* bestRank = pictureNames.end();
    std::error_code ignored;
    for (std::string const& name : KXNamesInFolder(folder, ignored)) {
        auto const* const rank = std::ranges::find(pictureNames, lowerCase(name));
        if (rank < bestRank && fs::is_regular_file(folder / name, ignored)) {
            bestRank = rank;
            best = folder / name;
        }
    }
    return best;
}

}

std::string FolderPictures::pictureBeside(std::string const& path)
{
    fs::path const parent = fs::path(path).parent_path();
    std::string const folder = parent.empty() ? "." : parent.string();
    {
        auto const pictures = _pictures.lock();
        if (auto const known = pictures->find(folder); known != pictures->end())
            return known->second;
    }
    std::string picture = pictureInFolder(folder);
    _pictures.lock()->emplace(folder, picture);
    return picture;
}
