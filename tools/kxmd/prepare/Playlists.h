#pragma once

#include "NameRules.h"
#include "PreparedSong.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Session;
class Targets;

/// Which playlists are written.
struct PlaylistOptions {
    enum class Format {
        m3u, ///< The processor's, with backslashes.
        m3u8, ///< UTF-8 with slashes, durations and titles.
    };

    std::string name {}; ///< Of one for all songs; empty for none.
    bool isForEachFolder { false }; ///< Whether each folder gets one of its own, named after it.
    Format format { Format::m3u };

    bool areWanted() const { return isForEachFolder || !name.empty(); }
};

/// Lists the prepared songs of a folder, album by album, by disc, track and name.
class Playlists {
public:
    Playlists(std::string folder, PlaylistOptions const& options);

    /// Takes a path for the one for all songs that the folder's file system allows, so that no file
    /// is written there; reported when it cannot have it.
    void claim(NameRules const& rules, Targets& targets, Session& session);

    /// Of the one for all songs; empty when none is written.
    std::string const& path() const { return _path; }

    /// Whether a playlist is written to `path` when there are songs in these folders.
    bool areWrittenTo(std::string const& path, std::set<std::string> const& folders) const;

    /// Lists a song at `target`. One that is protected is not listed.
    void add(std::string const& source, std::string const& target, PreparedSong const& song);

    /// A playlist that is there.
    struct Written {
        std::string path;
        std::uint64_t size { 0 };
    };

    /// Writes the playlists whose text is not there already. Reports what goes wrong, one without
    /// songs too, and songs whose names no line can hold. Those that are there afterwards.
    std::vector<Written> write(Targets& targets, Session& session);

private:
    struct Member {
        std::string source;
        std::string target;
        PreparedSong song;
    };
    using Members = std::vector<Member>;

    std::string extension() const;
    std::string pathForFolder(std::string const& folder) const;
    void sortMembers();
    bool canBeListed(Member const& member) const;
    std::string textOf(std::string const& path, Members const& members) const;
    std::optional<Written> write(
        std::string const& path, Members const& members, Targets& targets, Session& session) const;

    std::string const _folder;
    PlaylistOptions const _options;
    std::string _path; ///< Of the one for all songs; empty when none is written.
    Members _members;
};

/// The paths of the songs that a playlist of ours lists; absent when it cannot be read.
std::optional<std::vector<std::string>> songsOfPlaylist(std::string const& path);
