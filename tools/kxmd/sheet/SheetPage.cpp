#include "SheetPage.h"

#include "SheetTemplate.h"
#include "shared/AtomicFile.h"
#include "tools/kxmd/Base64.h"
#include "tools/kxmd/JSONText.h"
#include "tools/kxmd/MediaText.h"

#include <kxmd/base/KXAbstractData.h>

#include <cstdint>
#include <span>
#include <utility>

namespace {

constexpr std::string_view placeOfFiles = "%FILES%";
constexpr KXSize pictureSize { 128, 128 }; // Twice what the page shows, for sharp screens.

/// The picture that stands for a file, as a JPEG in base64; empty without one.
std::string pictureOf(std::string const& path, KXPlatform const& platform)
{
    auto const image = platform.thumbnailService->imageForPath(path, pictureSize);
    KXData const encoded = image ? platform.pictureLoader->jpgRepresentation(*image) : KXData();
    auto const bytes = encoded.bytes();
    return base64Of({ reinterpret_cast<char const*>(bytes.data()), bytes.size() });
}

void appendPart(std::string& list, std::string const& part)
{
    list.append(list.empty() ? "" : "; ").append(part);
}

std::string codecsOf(KXMDFileMeta const& meta, std::optional<KXMediaProbe> const& probe)
{
    std::string codecs;
    for (auto const& info : meta.videoCodecsInfo())
        appendPart(codecs, describeCodec(info));
    for (auto const& info : meta.audioCodecsInfo())
        appendPart(codecs, describeCodec(info));
    if (probe) {
        for (KXMediaStream const& stream : probe->streams)
            appendPart(codecs, describeStream(stream));
    }
    return codecs;
}

/// A tag of ours, or of the movie library where we know none of the file's.
std::string tagOf(KXMDFileMeta const& meta, std::string_view key,
    std::optional<KXMediaProbe> const& probe, std::string const& probeKey)
{
    if (auto const value = meta.metadataForKey(key))
        return *value;
    auto const found = probe ? probe->tags.find(probeKey) : decltype(probe->tags.end())();
    return probe && found != probe->tags.end() ? found->second : std::string();
}

bool hasCovers(KXMDFileMeta const& meta)
{
    return meta.metaType() == KXMDMetaTypeMP3 || meta.metaType() == KXMDMetaTypeMP4;
}

/// How the page colours what it says of a cover; videos need none.
std::string_view stateOfCover(KXMDFileMeta const& meta)
{
    if (!hasCovers(meta) || meta.containsVideo())
        return "";
    return meta.albumCoverSizeForEmbeddedTags() && meta.hasValidAlbumCover() ? "good" : "bad";
}

void addContent(JSONText& row, std::string const& path, KXAbstractData& data,
    KXMDFileMeta const& meta, KXPlatform const& platform)
{
    KXMDMetaType const detectedType = KXMDFileMeta::metaTypeForData(data);
    std::optional<KXMediaProbe> probe;
    if (detectedType == KXMDMetaTypeUnknown)
        probe = platform.movieLoader->mediaProbeWithData(data);
    row.addNamed("kind", nameOfType(detectedType, meta, probe));
    row.addNamed("title", tagOf(meta, KXMDMetadataKeyName, probe, "title"));
    row.addNamed("artist", tagOf(meta, KXMDMetadataKeyArtist, probe, "artist"));
    row.addNamed("album", tagOf(meta, KXMDMetadataKeyAlbum, probe, "album"));
    row.addNamed("albumArtist", tagOf(meta, KXMDMetadataKeyAlbumArtist, probe, "album_artist"));
    row.addNamed("codecs", codecsOf(meta, probe));
    row.addNamed("cover", hasCovers(meta) ? describeCover(meta) : std::string());
    row.addNamed("coverState", stateOfCover(meta));
    row.addNamed("size", meta.filesize());
    row.addNamed("picture", pictureOf(path, platform));
}

std::span<std::uint8_t const> bytesOf(std::string_view text)
{
    return { reinterpret_cast<std::uint8_t const*>(text.data()), text.size() };
}

}

SheetRow sheetRowOf(SheetEntry const& entry, KXPlatform const& platform)
{
    SheetRow made;
    auto const data
        = entry.path.empty() ? nullptr : KXAbstractData::abstractDataWithPath(entry.path);
    made.isUnreadable = !data && !entry.path.empty();
    auto const meta = data ? KXMDFileMeta::fileMetaWithAnyAbstractData(*data) : nullptr;
    if (meta)
        made.readError = meta->readError();
    bool const isFailed = entry.isFailed || made.isUnreadable || made.readError;
    JSONText row;
    row.beginObject();
    row.addNamed("name", entry.name);
    row.addNamed("done", entry.done);
    row.addNamed("remark", isFailed && entry.remark.empty() ? "cannot be read" : entry.remark);
    row.addNamed("isFailed", isFailed);
    if (meta && !made.readError)
        addContent(row, entry.path, *data, *meta, platform);
    else
        row.addNamed("size", 0);
    row.endObject();
    made.text = std::move(row).takeLine();
    return made;
}

bool SheetPage::begin()
{
    auto const page = sheetTemplate();
    return write(page.substr(0, page.find(placeOfFiles))) && write("[");
}

bool SheetPage::add(SheetRow const& row)
{
    // In a page a script ends at "</", wherever that stands.
    std::string text = std::exchange(_isEmpty, false) ? "\n" : ",";
    for (char const character : row.text)
        character == '<' ? text.append("\\u003c") : text.append(1, character);
    return write(text);
}

bool SheetPage::finish()
{
    auto const page = sheetTemplate();
    return write("]") && write(page.substr(page.find(placeOfFiles) + placeOfFiles.size()));
}

bool SheetPage::write(std::string_view text) { return _file.write(bytesOf(text)); }
