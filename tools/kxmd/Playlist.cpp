#include "Playlist.h"

#include "OutputFile.h"
#include "Preparation.h"
#include "Session.h"

#include <kxmd/processors/KXMDFileProcessorCreateM3U.h>

#include <utility>

Playlist::Playlist(std::string folder)
    : _folder(std::move(folder))
{
}

void Playlist::add(PreparationOutcome const& outcome)
{
    if (outcome.isDone() && outcome.isAudio)
        _members.push_back(std::make_shared<KXDCSimpleFileProxy>(
            std::make_shared<KXDCSimpleFile>(outcome.source), outcome.target));
}

void Playlist::write(std::string const& name, Session& session) const
{
    std::string const path = _folder + '/' + name + ".m3u";
    auto const file = std::make_shared<KXDCSimpleFile>(path);
    file->setFileKind(KXDCFileKindPlaylist);
    KXDCSimpleFileProxy const proxy(file, path, _members);
    auto const data = KXMDFileProcessorCreateM3U().createPlaylistDataForFileProxy(proxy);
    if (!data)
        return session.reportError(path, "there is no audio to list");
    std::vector<std::uint8_t> bytes(data->length());
    if (data->readBytesTo(bytes.data(), bytes.size()))
        writeOutputFile(path, {}, bytes, session);
}
