#pragma once

#include "Manifest.h"

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

class Targets;

/// What is removed from a folder of prepared files, since its sources are gone.
struct Removal {
    std::vector<ManifestEntry> entries;
    std::vector<ManifestEntry> playlists; ///< Of which no song is left.
    std::size_t recorded { 0 }; ///< How many files the folder's record lists, playlists aside.

    /// More than a third of them: rather a mistake than a wish.
    bool areMany() const { return entries.size() > recorded / 3; }
};

/// Where sources are looked for.
struct RemovalSources {
    std::vector<std::string> roots; ///< Absolute paths of folders.
    std::vector<std::string> unseen; ///< Of what could not be looked into.
    std::set<std::string> kept; ///< Targets of sources that are there, under all their names.
    /// Whether this run writes, or may write, something to a path where a playlist is.
    std::function<bool(std::string const& path)> isWritten;
};

/// Files that the record lists, whose sources lay below one of the roots and are there no more, and
/// whose targets nobody else has; and playlists of ours whose songs are all gone, or with this all
/// go. Both in the order of their targets.
Removal removalFrom(Manifest const& manifest, std::string const& folder,
    RemovalSources const& sources, Targets& targets);

/// Why the file of an entry is not ours to remove from `folder`: it is not as recorded. Nothing
/// when it is, or is not there.
std::string reasonAgainstRemoving(ManifestEntry const& entry, std::string const& folder);

/// Removes the file of an entry, and the folders that it leaves empty, from `folder`. Why that
/// failed, or nothing.
std::string removePrepared(ManifestEntry const& entry, std::string const& folder);

/// Removes the empty folders above `path`, up to `folder`.
void removeEmptyFoldersAbove(std::string const& path, std::string const& folder);
