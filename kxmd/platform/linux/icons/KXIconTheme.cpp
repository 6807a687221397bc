#include "kxmd/platform/linux/icons/KXIconThemePrivate.h"

#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <glib.h>
#include <limits>
#include <memory>
#include <sys/stat.h>

namespace {

constexpr char const* mainGroup = "Icon Theme";
constexpr std::size_t mostDirectories = 4096;
constexpr std::uintmax_t longestIndex = 1 << 20; // Bytes; large themes have some ten thousand.
constexpr int largestSize = 1 << 16; // Pixels: sums of such numbers do not overflow.

}

/// An index file.
struct KXIconTheme::Index {
    struct Free {
        void operator()(GKeyFile* opened) const { g_key_file_free(opened); }
    };

    std::unique_ptr<GKeyFile, Free> file { g_key_file_new() };

    bool load(std::string const& path) const
    {
        std::error_code error;
        return isRegularFile(path) && std::filesystem::file_size(path, error) <= longestIndex
            && g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr)
            && g_key_file_has_group(file.get(), mainGroup);
    }

    std::string stringFor(std::string const& group, char const* key) const
    {
        GAllocated<gchar> const value(
            g_key_file_get_string(file.get(), group.c_str(), key, nullptr));
        return value ? value.get() : "";
    }

    int numberFor(std::string const& group, char const* key, int otherwise) const
    {
        std::string const text = stringFor(group, key);
        return text.empty() ? otherwise
                            : static_cast<int>(std::clamp<long>(
                                std::strtol(text.c_str(), nullptr, 10), 0, largestSize));
    }

    /// The names between the commas of a value.
    std::vector<std::string> listFor(char const* key) const
    {
        std::vector<std::string> names;
        std::string const text = stringFor(mainGroup, key);
        for (std::size_t start = 0; start < text.size();) {
            std::size_t const end = std::min(text.find(',', start), text.size());
            std::string_view name = std::string_view(text).substr(start, end - start);
            name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
            name = name.substr(0, name.find_last_not_of(' ') + 1);
            // A theme has no business outside of its folder.
            if (!name.empty() && name.find("..") == std::string_view::npos)
                names.emplace_back(name);
            start = end + 1;
        }
        return names;
    }

    std::optional<Directory> directoryNamed(std::string const& name) const
    {
        int const size = numberFor(name, "Size", 0);
        if (!size)
            return std::nullopt;
        int const threshold = numberFor(name, "Threshold", 2);
        std::string const type = stringFor(name, "Type");
        Directory directory { name, std::max(1, numberFor(name, "Scale", 1)), size - threshold,
            size + threshold };
        if (type == "Fixed") {
            directory.smallest = directory.largest = size;
        } else if (type == "Scalable") {
            directory.smallest = numberFor(name, "MinSize", size);
            directory.largest = numberFor(name, "MaxSize", size);
        }
        return directory;
    }
};

bool isRegularFile(std::string const& path)
{
    struct stat status { };
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::int64_t KXIconTheme::Directory::distanceTo(int wanted) const
{
    std::int64_t const tooSmall = std::int64_t { smallest } * scale - wanted;
    std::int64_t const tooLarge = wanted - std::int64_t { largest } * scale;
    return std::max({ std::int64_t { 0 }, tooSmall, tooLarge });
}

std::optional<KXIconTheme> KXIconTheme::themeNamed(
    std::string const& name, std::vector<std::string> const& baseFolders)
{
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos)
        return std::nullopt;
    KXIconTheme theme;
    theme._name = name;
    Index const index;
    bool isIndexed = false;
    for (auto const& base : baseFolders) {
        std::string const folder = base + '/' + name;
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error))
            continue;
        theme._folders.push_back(folder);
        isIndexed = isIndexed || index.load(folder + "/index.theme"); // The first one holds.
    }
    if (!isIndexed)
        return std::nullopt;
    theme._parents = index.listFor("Inherits");
    for (char const* key : { "Directories", "ScaledDirectories" }) {
        for (auto const& directoryName : index.listFor(key)) {
            auto directory = index.directoryNamed(directoryName);
            if (directory && theme._directories.size() < mostDirectories)
                theme._directories.push_back(std::move(*directory));
        }
    }
    return theme;
}

std::string KXIconTheme::pathInDirectory(Directory const& directory, std::string const& name) const
{
    for (auto const& folder : _folders) {
        for (std::string_view const extension : iconExtensions) {
            std::string path = folder;
            path.append("/").append(directory.name).append("/").append(name).append(extension);
            if (isRegularFile(path))
                return path;
        }
    }
    return {};
}

std::string KXIconTheme::pathOfIcon(std::string const& name, int size) const
{
    for (auto const& directory : _directories) {
        if (!directory.matches(size))
            continue;
        if (auto path = pathInDirectory(directory, name); !path.empty())
            return path;
    }
    std::string nearest;
    std::int64_t least = std::numeric_limits<std::int64_t>::max();
    for (auto const& directory : _directories) {
        std::int64_t const distance = directory.distanceTo(size);
        if (distance >= least)
            continue;
        if (auto path = pathInDirectory(directory, name); !path.empty()) {
            nearest = std::move(path);
            least = distance;
        }
    }
    return nearest;
}
