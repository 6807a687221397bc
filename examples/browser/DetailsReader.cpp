#include "DetailsReader.h"

#include <utility>

namespace {

std::string codecText(KXMDCodecInfo const& codec)
{
    std::string text = codec.description();
    text.erase(0, text.find(": ") + 2); // It begins with "Codec: ", which the row says already.
    return text;
}

std::vector<FileDetails::Row> rowsOfMeta(KXMDFileMeta const& meta)
{
    std::vector<FileDetails::Row> rows;
    auto const add = [&rows](char const* name, std::string value) {
        if (!value.empty())
            rows.push_back({ name, std::move(value) });
    };
    add("Title", meta.metadataForKey(KXMDMetadataKeyName).value_or(""));
    add("Artist", meta.metadataForKey(KXMDMetadataKeyArtist).value_or(""));
    add("Album", meta.metadataForKey(KXMDMetadataKeyAlbum).value_or(""));
    add("Album artist", meta.metadataForKey(KXMDMetadataKeyAlbumArtist).value_or(""));
    for (auto const& codec : meta.videoCodecsInfo())
        add("Video", codecText(codec));
    for (auto const& codec : meta.audioCodecsInfo())
        add("Audio", codecText(codec));
    add("Size", std::to_string(meta.filesize()) + " bytes");
    return rows;
}

}

DetailsReader::DetailsReader(KXPlatform::Ref platform, double side, Handler handler)
    : _shared(std::make_shared<Shared>())
    , _controller(KXMDFileMetaController::createWithPlatform(platform))
{
    _shared->platform = std::move(platform);
    _shared->size = { side, side };
    _shared->handler = std::move(handler);
}

DetailsReader::~DetailsReader() { ++_shared->latest; }

void DetailsReader::read(KXDCFile::Ref const& file)
{
    auto const request = ++_shared->latest;
    _controller->fileMetaForFile(file, [shared = _shared, request, file](auto const& meta) {
        // On the controller's thread. Reading tags is quick, but a picture may take its time.
        if (shared->latest != request)
            return;
        FileDetails details;
        if (!file->isFolder()) {
            details.rows = rowsOfMeta(*meta);
            details.picture = shared->platform->thumbnailService->imageForPath(
                file->sourcePath(), shared->size);
        }
        shared->platform->mainQueue->async([shared, request, details = std::move(details)] {
            if (shared->latest == request)
                shared->handler(details);
        });
    });
}
