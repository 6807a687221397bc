#pragma once

#include "NameRules.h"
#include "PreparedSong.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

/// What was made of one file, and of what.
struct ManifestEntry {
    std::string source; ///< Its absolute path.
    std::uint64_t size { 0 };
    std::int64_t modified { 0 }; ///< Nanoseconds since 1970.
    std::string
        checksum; ///< SHA-256 of its bytes, in hexadecimal; empty when it was not asked for.
    std::optional<std::string> cover; ///< The pictures beside it; absent where they do not matter.
    std::string options; ///< Those that the result depends on.
    std::string version; ///< Of the program.
    std::string target; ///< Below the folder.
    std::uint64_t targetSize { 0 };
    std::optional<PreparedSong> song; ///< Absent for what is no music.

    bool operator==(ManifestEntry const&) const = default;
};

/// The record that a folder of prepared files holds of them: a line of JSON for each, appended once
/// the file is there. The last line for a target counts; a line that was cut off is no line.
class Manifest {
public:
    static constexpr std::string_view fileName = ".kxmd-manifest.ndjson";
    /// What the names of our own files in such a folder begin with.
    static constexpr std::string_view prefix = ".kxmd-";

    /// That of `folder`, which need not be there.
    explicit Manifest(std::string const& folder);

    /// Reads what is there. Why that failed, or nothing.
    [[nodiscard]] std::string read();

    ManifestEntry const* entryForTarget(std::string const& target) const;
    /// The entry for the source at an absolute path.
    ManifestEntry const* entryForSource(std::string const& source) const;
    /// The entry for a source of that name, size and time, if there is just one.
    ManifestEntry const* entryForContent(
        std::string_view name, std::uint64_t size, std::int64_t modified) const;
    /// Those of all targets, in no order.
    std::unordered_map<std::string, ManifestEntry> const& entries() const { return _entries; }
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
    void index(ManifestEntry const& entry);
    std::string append();
    std::string writeAnew();

    std::string const _path;
    std::optional<NameRules> _nameRules;
    std::unordered_map<std::string, ManifestEntry> _entries; ///< By target.
    std::unordered_map<std::string, std::string> _targets; ///< By source.
    mutable std::unordered_multimap<std::string, std::string>
        _contents; ///< Targets, once asked for.
    std::string _pending; ///< Lines that are not in the file yet.
    std::size_t _lines { 0 }; ///< Of the file, with those that are pending.
    bool _endsInLine { false }; ///< Whether a run was interrupted while it wrote.
    bool _areRulesNew { false };
    bool _isChanged { false };
};
