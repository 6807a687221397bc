#pragma once

#include <kxmd/host/KXDCFileProxy.h>

#include <string>

struct PreparationOutcome;
class Session;

/// Lists the prepared audio files of a folder, as its playlist.
class Playlist {
public:
    explicit Playlist(std::string folder);

    /// Lists a file if it is there and is audio.
    void add(PreparationOutcome const& outcome);

    /// Writes the playlist "`name`.m3u" into the folder; nothing without files. Reports what goes
    /// wrong.
    void write(std::string const& name, Session& session) const;

private:
    std::string const _folder;
    KXDCFileProxy::List _members;
};
