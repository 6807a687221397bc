// An application's own file objects, on their way to a phone.

#include <kxmd/kxmd.h>

#include <iostream>
#include <map>

//! [file]
class Song final : public KXDCFile {
public:
    explicit Song(std::string path)
        : _path(std::move(path))
    {
    }

    std::string sourcePath() const override { return _path; }
    std::string filename() const override { return std::string(KXLastPathComponent(_path)); }
    int fileKind() const override { return 0; }
    bool hasDRM() const override { return false; }
    bool isFolder() const override { return false; }
    void setName(std::string name) override { _name = std::move(name); }
    void setMetadataForKey(KXDCValue value, std::string_view key) override
    {
        _values.insert_or_assign(std::string(key), std::move(value));
    }
    KXDCValue metadataForKey(std::string_view key) const override
    {
        auto const found = _values.find(key);
        return found == _values.end() ? KXDCValue() : found->second;
    }

    std::string const& name() const { return _name; }

private:
    std::string const _path;
    std::string _name;
    std::map<std::string, KXDCValue, std::less<>> _values;
};
//! [file]

int main()
{
    //! [merge]
    auto const song = std::make_shared<Song>("song.mp3");
    auto const& controller = KXMDFileMetaController::sharedController();
    auto const meta = controller->fileMetaForFile(*song);
    controller->mergeFileMetaIntoFile(*meta, *song); // Sets the name and four keyed values.
    song->setMetadataForKey(meta, "FileMetaObject"); // By which sizes are told beforehand.
    song->setMetadataForKey("cover.jpg", "ThumbnailPath"); // To be shown, and inserted.
    std::cout << song->name() << '\n';
    //! [merge]

    //! [process]
    KXDCSimpleFileProxy const proxy(song, "/Music/song.mp3");
    KXMDFileProcessorAddAlbumCover const processor;
    auto const expected = processor.processedFilesizeForFileProxy(proxy, meta->filesize());

    auto const buffer = std::make_shared<KXMutableData>(
        KXAbstractData::abstractDataWithPath(song->sourcePath()));
    auto const data = processor.processedFileDataForFileProxy(
        proxy, KXMutableAbstractData::abstractDataWithData(buffer));
    std::cout << (data->length() == expected ? "as long as it was said\n"
                                             : "of another length\n");
    //! [process]

    //! [playlist]
    auto const list = std::make_shared<KXDCSimpleFile>("All.m3u");
    list->setFileKind(KXDCFileKindPlaylist);
    auto const member = std::make_shared<KXDCSimpleFileProxy>(song, "/Music/song.mp3");
    KXDCSimpleFileProxy const playlist(list, "/All.m3u", { member });
    auto const text = KXMDFileProcessorCreateM3U().createPlaylistDataForFileProxy(playlist);
    std::optional<std::string> lines;
    if (text && text->readStringTo(lines, text->length(), KXStringEncodingUTF8))
        std::cout << *lines << '\n';
    //! [playlist]
}
