#pragma once

#include "ManifestEntry.h"
#include "NameRules.h"

#include <kxmd/base/KXPath.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

/// The record that a folder of prepared files holds of them: a line of JSON for each, appended once
/// the file is there. The last line for a target counts; a line that was cut off is no line.
class Manifest {
public:
    static constexpr std::string_view fileName = ".kxmd-manifest.ndjson";
    /// What the names of our own files in such a folder begin with.
    static constexpr std::string_view prefix = ".kxmd-";

    /// Whether a file or folder of that path is one that a run keeps for itself.
    static bool isOurs(std::string_view path)
    {
        return KXLastPathComponent(path).starts_with(prefix);
    }

    /// That of `folder`, which need not be there.
    explicit Manifest(std::string const& folder);

    std::string const& path() const { return _path; }

    /// Reads what is there. Why that failed, or nothing.
    [[nodiscard]] std::string read();

    /// Entries never change; another one may take the place of one.
    using Entry = std::shared_ptr<ManifestEntry const>;

    /// Entries that are found by one of their texts.
    template <std::string ManifestEntry::*text> struct By {
        using is_transparent = void;

        static std::string_view keyOf(std::string_view key) { return key; }
        static std::string_view keyOf(Entry const& entry) { return (*entry).*text; }
        std::size_t operator()(auto const& key) const
        {
            return std::hash<std::string_view>()(keyOf(key));
        }
        bool operator()(auto const& left, auto const& right) const
        {
            return keyOf(left) == keyOf(right);
        }
    };
    template <std::string ManifestEntry::*text>
    using EntriesBy = std::unordered_set<Entry, By<text>, By<text>>;

    /// The entry for a target; null without one, as below.
    Entry entryForTarget(std::string_view target) const;
    /// The entry for the source at an absolute path. Of several, since a source may be prepared
    /// under several names, the one whose target is in as many folders as `relativePath` tells.
    Entry entryForSource(std::string_view source, std::string_view relativePath) const;
    /// The entry for a source that may lie elsewhere by now, if there is just one.
    Entry entryForMoved(std::uint64_t size, std::int64_t modified, std::int64_t inode) const;
    /// Those of all targets, in no order.
    EntriesBy<&ManifestEntry::target> const& entries() const { return _entries; }
    /// What the folder's file system makes of names; absent when nobody has tried.
    std::optional<NameRules> const& nameRules() const { return _nameRules; }

    // Changes, which `write` brings into the file.

    /// Kept with the first entry.
    void setNameRules(NameRules const& rules);
    void add(ManifestEntry entry);
    void remove(std::string const& target);

    /// Appends what has changed, once the files that it tells of are on the disk. Why that failed,
    /// or nothing.
    [[nodiscard]] std::string write();
    /// The same, and waits for the disk. Writes the file anew when it has many lines of the past.
    [[nodiscard]] std::string finish();

private:
    void take(std::string_view line);
    void keep(ManifestEntry entry);
    bool erase(std::string_view target);
    Entry entryFor(std::string_view source, std::string_view target) const;
    std::string append();
    std::string writeAnew();

    std::string const _path;
    std::optional<NameRules> _nameRules;
    EntriesBy<&ManifestEntry::target> _entries;
    EntriesBy<&ManifestEntry::source> _sources; ///< The last one of each, which may be no more.
    std::unordered_map<std::string, std::set<std::string>>
        _targets; ///< Of sources that had several; some may be no more.
    mutable std::unordered_multimap<std::string, std::string>
        _contents; ///< Targets, once asked for.
    std::string _pending; ///< Lines that are not in the file yet.
    std::size_t _lines { 0 }; ///< Of the file, with those that are pending.
    bool _endsInLine { false }; ///< Whether a run was interrupted while it wrote.
    bool _areRulesNew { false };
    bool _isOfLaterVersion { false };
    bool _isChanged { false };
};
