#include "NameFilter.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <fnmatch.h>
#include <utility>

namespace {

constexpr std::array clutter { ".DS_Store", "Thumbs.db", "desktop.ini", "._*", "*.log", "*.cue" };

bool matches(std::string const& pattern, std::string const& relativePath, std::string const& name)
{
    bool const isPath = pattern.find('/') != std::string::npos;
    return ::fnmatch(pattern.c_str(), isPath ? relativePath.c_str() : name.c_str(),
               isPath ? FNM_PATHNAME : 0)
        == 0;
}

}

NameFilter::NameFilter(std::vector<std::string> excluded, std::vector<std::string> included)
    : _excluded(std::move(excluded))
    , _included(std::move(included))
{
}

void NameFilter::leaveOutClutter() { _leavesOutClutter = true; }

bool NameFilter::isWanted(std::string_view relativePath) const
{
    std::string const path(relativePath);
    std::string const name(KXLastPathComponent(path));
    auto const isMatched = [&](std::string const& pattern) { return matches(pattern, path, name); };
    if (std::ranges::any_of(_included, isMatched))
        return true;
    bool const isClutter
        = _leavesOutClutter && std::ranges::any_of(clutter, [&name](char const* pattern) {
              return ::fnmatch(pattern, name.c_str(), FNM_CASEFOLD) == 0;
          });
    return !isClutter && std::ranges::none_of(_excluded, isMatched);
}
