#include "shared/PathWithoutLinks.h"

#include <filesystem>
#include <system_error>

std::optional<std::string> pathWithoutLinks(std::string const& path)
{
    constexpr int mostLinks = 40; // As many as the kernel follows.
    std::filesystem::path target(path);
    std::error_code error;
    for (int i = 0; i < mostLinks; ++i) {
        if (!std::filesystem::is_symlink(target, error))
            return target.string();
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    }
    return std::nullopt;
}
