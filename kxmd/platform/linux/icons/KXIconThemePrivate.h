#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One icon theme as its index tells of it (freedesktop.org, Icon Theme Specification).
class KXIconTheme {
public:
    /// The theme of that name in the base folders, where its parts may be spread; absent when no
    /// folder has an index of it.
    static std::optional<KXIconTheme> themeNamed(
        std::string const& name, std::vector<std::string> const& baseFolders);

    std::string const& name() const { return _name; }

    /// The themes to look into when this one does not have an icon.
    std::vector<std::string> const& parents() const { return _parents; }

    /// The path of the icon in the size that comes nearest to `size` pixels; empty when the theme
    /// does not have it.
    std::string pathOfIcon(std::string const& name, int size) const;

private:
    struct Directory {
        std::string name;
        int scale;
        int smallest; // Sizes for which it is meant, without the scale.
        int largest;

        bool matches(int wanted) const { return scale == 1 && distanceTo(wanted) == 0; }
        std::int64_t distanceTo(int wanted) const;
    };
    struct Index;

    std::string pathInDirectory(Directory const& directory, std::string const& name) const;

    std::string _name;
    std::vector<std::string> _folders; // Of this theme, in the base folders.
    std::vector<std::string> _parents;
    std::vector<Directory> _directories;
};

/// Whether there is a regular file at `path`.
bool isRegularFile(std::string const& path);

/// What the files of icons end in, the better one first.
constexpr std::string_view iconExtensions[] { ".png", ".svg" };
