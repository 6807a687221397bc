// The smallest application with file objects of its own: writes each file to a folder, as the
// processor that suits it prepares it for a phone, and a playlist of them. Usage: host-minimal
// FOLDER FILE...

#include <kxmd/kxmd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

namespace {

/// What this application knows of a file. The library keeps there what it finds.
class Item final : public KXDCFile {
public:
    explicit Item(std::filesystem::path path, int kind = 0)
        : _path(std::move(path))
        , _kind(kind)
    {
    }

    std::string sourcePath() const override { return _path; }
    std::string filename() const override { return _path.filename(); }
    int fileKind() const override { return _kind; }
    bool hasDRM() const override { return false; }
    bool isFolder() const override { return false; }
    void setName(std::string name) override { std::cout << filename() << " is " << name << '\n'; }
    void setMetadataForKey(KXDCValue value, std::string_view key) override
    {
        _metadata.insert_or_assign(std::string(key), std::move(value));
    }
    KXDCValue metadataForKey(std::string_view key) const override
    {
        auto const found = _metadata.find(key);
        return found == _metadata.end() ? KXDCValue() : found->second;
    }

private:
    std::filesystem::path const _path;
    int const _kind;
    std::map<std::string, KXDCValue, std::less<>> _metadata;
};

bool isLossless(KXMDFileMeta const& meta)
{
    return std::ranges::any_of(meta.audioCodecsInfo(),
        [](KXMDCodecInfo const& info) { return info.codec() == KXMDCodecALAC; });
}

/// The bytes for the phone; null when there are none.
KXAbstractData::Ref preparedData(KXDCFileProxy const& proxy, KXMDFileMeta const& meta)
{
    if (meta.containsVideo())
        return KXMDFileProcessorCleanIPhoneVideo().processedFileDataForFileProxy(proxy, nullptr);
    if (isLossless(meta))
        return KXMDFileProcessorConvertALAC().processedFileDataForFileProxy(proxy, nullptr);
    auto source = KXAbstractData::abstractDataWithPath(proxy.file()->sourcePath());
    if (!source || !meta.canInsertAlbumCover() || meta.hasValidAlbumCover())
        return source;
    auto const buffer = std::make_shared<KXMutableData>(source); // Edits copy nothing.
    return KXMDFileProcessorAddAlbumCover().processedFileDataForFileProxy(
        proxy, KXMutableAbstractData::abstractDataWithData(buffer));
}

bool write(KXAbstractData::Ref const& data, std::string const& path)
{
    std::vector<std::uint8_t> bytes(data ? data->length() : 0);
    if (data)
        data->setOffset(0);
    return data && data->readBytesTo(bytes.data(), bytes.size())
        && KXPlatform::shared()->fileManager->writeBytesToFile(bytes, path);
}

}

int main(int argumentCount, char** arguments)
{
    if (argumentCount < 3)
        return 2;
    std::string const folder = arguments[1];
    auto const& controller = KXMDFileMetaController::sharedController();
    KXDCFileProxy::List songs;
    for (int i = 2; i < argumentCount; ++i) {
        auto const item = std::make_shared<Item>(arguments[i]);
        auto const meta = controller->fileMetaForFile(*item);
        controller->mergeFileMetaIntoFile(*meta, *item);
        auto const proxy
            = std::make_shared<KXDCSimpleFileProxy>(item, folder + '/' + item->filename());
        if (!write(preparedData(*proxy, *meta), proxy->targetPath()))
            std::cerr << arguments[i] << " cannot be prepared\n";
        else if (!meta->containsVideo())
            songs.push_back(proxy);
    }
    auto const list = std::make_shared<Item>("All.m3u", KXDCFileKindPlaylist);
    KXDCSimpleFileProxy const playlist(list, folder + "/All.m3u", songs);
    return write(KXMDFileProcessorCreateM3U().createPlaylistDataForFileProxy(playlist),
               playlist.targetPath())
        ? 0
        : 1;
}
