#include "kxmd/processors/KXMDFileProcessorCreateM3U.h"

#include "kxmd/base/KXPath.h"

#include <string>

namespace {

/// The line of a member at `relativePath` below the playlist.
std::string lineForRelativePath(std::string_view relativePath)
{
    std::string line = ".";
    for (std::string_view const component : KXPathComponents(relativePath))
        line.append("\\").append(component);
    return line;
}

}

KXAbstractData::Ref KXMDFileProcessorCreateM3U::createPlaylistDataForFileProxy(
    KXDCFileProxy const& fileProxy) const
{
    auto const file = fileProxy.file();
    if (!file || file->fileKind() != KXDCFileKindPlaylist)
        return nullptr;
    std::string const playlistPath = fileProxy.targetPath();
    std::string_view const folder = KXPathByDeletingLastPathComponent(playlistPath);
    std::string text;
    for (auto const& member : fileProxy.collectionFileProxies()) {
        auto const memberFile = member ? member->file() : nullptr;
        if (!memberFile || memberFile->hasDRM())
            continue;
        std::string const path = KXRelativePathForRootFolder(member->targetPath(), folder);
        if (path.empty())
            continue;
        if (!text.empty())
            text += "\r\n";
        text += lineForRelativePath(path);
    }
    if (text.empty())
        return nullptr;
    return KXAbstractData::abstractDataWithData(KXData({ text.begin(), text.end() }));
}

KXAbstractData::Ref KXMDFileProcessorCreateM3U::processedFileDataForFileProxy(
    KXDCFileProxy const& fileProxy, KXAbstractData::Ref) const
{
    return createPlaylistDataForFileProxy(fileProxy);
}

std::uint64_t KXMDFileProcessorCreateM3U::processedFilesizeForFileProxy(
    KXDCFileProxy const& fileProxy, std::uint64_t) const
{
    auto const playlist = createPlaylistDataForFileProxy(fileProxy);
    return playlist ? playlist->length() : 0;
}
