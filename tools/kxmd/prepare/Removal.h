#pragma once

#include "Manifest.h"

#include <cstddef>
#include <string>
#include <vector>

class Targets;

/// What is removed from a folder of prepared files, since its sources are gone.
struct Removal {
    std::vector<ManifestEntry> entries;
    std::size_t recorded { 0 }; ///< How many files the folder's record lists.

    /// More than a third of them: rather a mistake than a wish.
    bool areMany() const { return entries.size() > recorded / 3; }
};

/// Files that the record lists, whose sources lay below one of `roots` and are there no more, and
/// whose targets nobody else has, in the order of their targets.
Removal removalFrom(Manifest const& manifest, std::string const& folder,
    std::vector<std::string> const& roots, Targets& targets);

/// Removes the file of an entry, and the folders that it leaves empty, from `folder`. Why that is
/// not done, or nothing: a file that is not as recorded is somebody else's.
std::string removePrepared(ManifestEntry const& entry, std::string const& folder);

/// Removes the empty folders above `path`, up to `folder`.
void removeEmptyFoldersAbove(std::string const& path, std::string const& folder);
