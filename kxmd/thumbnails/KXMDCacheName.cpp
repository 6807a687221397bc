#include "kxmd/thumbnails/KXMDCacheNamePrivate.h"

#include "kxmd/base/KXWholePartPrivate.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/host/KXDCFile.h"

namespace {

std::string textForKey(KXDCFile const& file, std::string_view key)
{
    return std::string(KXTextOfValue(file.metadataForKey(key)));
}

}

std::string cacheNameForKey(std::string_view key, KXSize size, KXTextDigest const& digest)
{
    std::string text(key);
    text.append("_")
        .append(std::to_string(wholePart(size.width)))
        .append("x")
        .append(std::to_string(wholePart(size.height)));
    return digest.sha1HexString(text);
}

std::string thumbnailPathOfFile(KXDCFile const& file) { return textForKey(file, "ThumbnailPath"); }

std::string cacheKeyOfFile(KXDCFile const& file)
{
    if (auto path = thumbnailPathOfFile(file); !path.empty())
        return path;
    std::string artist = textForKey(file, KXMDMetadataKeyAlbumArtist);
    if (artist.empty())
        artist = textForKey(file, KXMDMetadataKeyArtist);
    std::string const album = textForKey(file, KXMDMetadataKeyAlbum);
    return artist.empty() || album.empty() ? file.sourcePath() : artist + '_' + album;
}
