#pragma once

#include "NameRules.h"

#include <string>
#include <string_view>
#include <unordered_map>

/// Gives files the names that a folder's file system takes: their own, with as little changed as
/// can be, and always in the same way. No two get the same one.
class TargetNames {
public:
    explicit TargetNames(NameRules rules);

    /// The path, below the folder, for a file or folder of that relative path. `former` is the one
    /// that it had before, if any: what was told from others by a mark keeps the mark.
    std::string pathFor(std::string const& relativePath, std::string_view former = {});

private:
    std::string folderFor(std::string const& folder, std::string_view former);
    std::string nameFor(std::string const& name, std::string const& folder, bool isMarked);
    std::string allowedName(std::string name) const;
    bool isOwn(std::string const& path, std::string const& name);

    NameRules const _rules;
    std::unordered_map<std::string, std::string> _folders; ///< Where those of the source are.
    std::unordered_map<std::string, std::string>
        _owners; ///< Whose name, in the source, a path is made from.
};
