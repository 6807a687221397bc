#include "kxmd/base/KXPath.h"

#include <algorithm>
#include <cstddef>

namespace {

std::string_view withoutTrailingSlashes(std::string_view path)
{
    while (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

/// The components of `path` with every ".." resolved against the component before it. A ".." that
/// leaves a relative path stays; one above the root is the root.
std::vector<std::string_view> resolvedComponents(std::string_view path)
{
    bool const absolute = path.starts_with('/');
    std::vector<std::string_view> resolved;
    for (std::string_view const component : KXPathComponents(path)) {
        bool const leadsUp = component == "..";
        if (leadsUp && !resolved.empty() && resolved.back() != "..")
            resolved.pop_back();
        else if (!leadsUp || !absolute)
            resolved.push_back(component);
    }
    return resolved;
}

}

std::vector<std::string_view> KXPathComponents(std::string_view path)
{
    std::vector<std::string_view> components;
    while (!path.empty()) {
        std::string_view const component = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), component.size() + 1));
        if (!component.empty() && component != ".")
            components.push_back(component);
    }
    return components;
}

std::string_view KXLastPathComponent(std::string_view path)
{
    std::string_view const trimmed = withoutTrailingSlashes(path);
    return trimmed.substr(trimmed.rfind('/') + 1); // All of it when there is no slash.
}

std::string_view KXPathExtension(std::string_view path)
{
    std::string_view const name = KXLastPathComponent(path);
    std::size_t const stop = name.rfind('.');
    return stop == std::string_view::npos ? std::string_view() : name.substr(stop + 1);
}

std::string_view KXPathByDeletingLastPathComponent(std::string_view path)
{
    std::string_view const trimmed = withoutTrailingSlashes(path);
    std::size_t const slash = trimmed.rfind('/');
    if (slash == std::string_view::npos)
        return trimmed.empty() ? path.substr(0, 1) : std::string_view();
    std::string_view const parent = withoutTrailingSlashes(trimmed.substr(0, slash));
    return parent.empty() ? path.substr(0, 1) : parent;
}

std::string KXRelativePathForRootFolder(std::string_view path, std::string_view rootFolder)
{
    if (path.starts_with('/') != rootFolder.starts_with('/'))
        return {};
    auto const components = resolvedComponents(path);
    auto const root = resolvedComponents(rootFolder);
    auto const [inPath, inRoot]
        = std::mismatch(components.begin(), components.end(), root.begin(), root.end());
    if (inRoot != root.end())
        return {};
    std::string relative;
    for (auto component = inPath; component != components.end(); ++component) {
        if (*component == "..") // Above a relative folder: outside.
            return {};
        if (!relative.empty())
            relative += '/';
        relative += *component;
    }
    return relative;
}
