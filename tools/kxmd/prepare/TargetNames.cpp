#include "TargetNames.h"

#include "tools/kxmd/NameWithoutCase.h"
#include "tools/kxmd/UTF8.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <strings.h>
#include <utility>

namespace {

constexpr char replacement = '_';

/// The name's extension with its dot, or nothing.
std::string_view extensionOf(std::string_view name)
{
    std::size_t const dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot);
}

std::string_view stemOf(std::string_view name)
{
    return name.substr(0, name.size() - extensionOf(name).size());
}

/// The same for the same name, whatever other names there are: FNV-1a, of 24 bits.
std::string markFor(std::string_view name)
{
    std::uint32_t hash = 2166136261u;
    for (char const character : name)
        hash = (hash ^ static_cast<std::uint8_t>(character)) * 16777619u;
    std::array<char, 9> text;
    std::snprintf(text.data(), text.size(), "~%06x", (hash >> 24 ^ hash) & 0xFFFFFF);
    return text.data();
}

/// Whether a name that was given to `name` has its mark.
bool hasMark(std::string_view given, std::string_view name)
{
    return stemOf(given).ends_with(markFor(name));
}

/// A name that the systems of personal computers keep for a device, whatever its extension.
bool isDevice(std::string_view name)
{
    std::string const stem(name.substr(0, name.find('.')));
    auto const isCalled
        = [&stem](char const* device) { return ::strcasecmp(stem.c_str(), device) == 0; };
    constexpr std::array devices { "con", "prn", "aux", "nul" };
    bool const isPort = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9'
        && (::strncasecmp(stem.c_str(), "com", 3) == 0
            || ::strncasecmp(stem.c_str(), "lpt", 3) == 0);
    return isPort || std::ranges::any_of(devices, isCalled);
}

void replaceInvalidBytes(std::string& name)
{
    for (std::size_t end; (end = lengthOfUTF8(name)) < name.size();)
        name[end] = replacement;
}

/// Cuts `stem` to so many bytes, between characters.
std::string shortened(std::string stem, std::size_t length)
{
    while (stem.size() > length) {
        bool isContinuation = true; // A byte within a character, as UTF-8 marks it.
        while (!stem.empty() && isContinuation) {
            isContinuation = (static_cast<std::uint8_t>(stem.back()) & 0xC0) == 0x80;
            stem.pop_back();
        }
    }
    return stem;
}

}

TargetNames::TargetNames(NameRules rules)
    : _rules(std::move(rules))
{
}

std::string TargetNames::allowedName(std::string name) const
{
    bool const refusesControls = _rules.refused.find('\001') != std::string::npos;
    for (char& character : name) {
        bool const isControl = static_cast<std::uint8_t>(character) < 0x20;
        if ((isControl && refusesControls) || _rules.refused.find(character) != std::string::npos)
            character = replacement;
    }
    if (_rules.refusesBytes)
        replaceInvalidBytes(name);
    if (_rules.refusesEnds && (name.ends_with('.') || name.ends_with(' ')))
        name.back() = replacement;
    if (_rules.refusesDevices && isDevice(name))
        name.insert(std::min(name.find('.'), name.size()), 1, replacement);
    return name;
}

/// Whether the path is free, or was given to that very name before.
bool TargetNames::isOwn(std::string const& path, std::string const& name)
{
    std::string const key = _rules.tellsCase ? path : nameWithoutCase(path);
    return _owners.try_emplace(key, name).first->second == name;
}

std::string TargetNames::nameFor(std::string const& name, std::string const& folder, bool isMarked)
{
    std::string allowed = allowedName(name);
    bool const isShort = allowed.size() <= _rules.longest;
    if (isShort && !isMarked && isOwn(folder + allowed, name))
        return allowed;
    std::string const end = markFor(name) + std::string(extensionOf(allowed));
    std::size_t const most = _rules.longest - std::min(_rules.longest, end.size());
    std::string marked = shortened(std::string(stemOf(allowed)), most) + end;
    static_cast<void>(isOwn(folder + marked, name)); // If even that is taken, its file is refused.
    return marked;
}

/// The target of a folder by its path with a slash at the end, empty for the whole folder; `former`
/// is the one that it had.
std::string TargetNames::folderFor(std::string const& folder, std::string_view former)
{
    if (folder.empty())
        return {};
    if (auto const known = _folders.find(folder); known != _folders.end())
        return known->second;
    auto const formerNames = KXPathComponents(former);
    std::string source, target;
    for (std::size_t start = 0, level = 0; start < folder.size(); ++level) {
        std::size_t const slash = folder.find('/', start);
        std::string const name = folder.substr(start, slash - start);
        source += name + '/';
        start = slash + 1;
        auto const [known, isNew] = _folders.try_emplace(source);
        bool const isMarked = level < formerNames.size() && hasMark(formerNames[level], name);
        if (isNew)
            known->second = target + nameFor(name, target, isMarked) + '/';
        target = known->second;
    }
    return target;
}

std::string TargetNames::pathFor(std::string const& relativePath, std::string_view former)
{
    std::size_t const start = relativePath.rfind('/') + 1; // 0 without a folder.
    std::string const folder
        = folderFor(relativePath.substr(0, start), KXPathByDeletingLastPathComponent(former));
    std::string const name = relativePath.substr(start);
    return folder + nameFor(name, folder, hasMark(KXLastPathComponent(former), name));
}
