#include "Playlist.h"

#include "OutputFile.h"
#include "Preparation.h"
#include "Session.h"
#include "Targets.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/processors/KXMDFileProcessorCreateM3U.h>

Playlist::Playlist(std::string const& folder, std::string const& name)
{
    if (!name.empty())
        _path = folder + '/' + name + ".m3u";
}

void Playlist::claim(Targets& targets, Session& session)
{
    std::string const refusal = _path.empty() ? "" : targets.claim(_path);
    if (refusal.empty())
        return;
    session.reportError(_path, refusal);
    _path.clear();
}

void Playlist::add(PreparationOutcome const& outcome)
{
    if (outcome.isDone() && outcome.isAudio)
        _members.push_back(std::make_shared<KXDCSimpleFileProxy>(
            std::make_shared<KXDCSimpleFile>(outcome.source), outcome.target));
}

void Playlist::write(Targets& targets, Session& session) const
{
    if (_path.empty())
        return;
    auto const file = std::make_shared<KXDCSimpleFile>(_path);
    file->setFileKind(KXDCFileKindPlaylist);
    KXDCSimpleFileProxy const proxy(file, _path, _members);
    auto const data = KXMDFileProcessorCreateM3U().createPlaylistDataForFileProxy(proxy);
    if (!data)
        return session.reportError(_path, "there is no audio to list");
    AtomicFile list(_path);
    if (!list.open() || !appendData(*data, list))
        return session.reportError(_path, list.error());
    Targets::Arrival arrival { list };
    targets.place({ &arrival, 1 });
    if (!arrival.error.empty())
        session.reportError(_path, arrival.error);
}
