#pragma once

#include <kxmd/host/KXDCFileProxy.h>

#include <string>

struct PreparationOutcome;
class Session;
class Targets;

/// Lists the prepared audio files of a folder, as its playlist. Does nothing without a name.
class Playlist {
public:
    /// The playlist "`name`.m3u" of `folder`.
    Playlist(std::string const& folder, std::string const& name);

    /// Takes its path, so that no file is written there; reported when it cannot have it.
    void claim(Targets& targets, Session& session);

    /// Lists a file if it is there and is audio.
    void add(PreparationOutcome const& outcome);

    /// Writes the playlist; nothing, and reported, without files.
    void write(Targets& targets, Session& session) const;

private:
    std::string _path; ///< Empty when none is written.
    KXDCFileProxy::List _members;
};
