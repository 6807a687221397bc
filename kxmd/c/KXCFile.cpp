#include "kxmd/c/KXCFilePrivate.h"

#include "kxmd/base/KXStandardFilesPrivate.h"
#include "kxmd/c/KXCBytesPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

// The numbers of C are those of the library.
static_assert(static_cast<int>(KXMD_TYPE_UNKNOWN) == KXMDMetaTypeUnknown);
static_assert(static_cast<int>(KXMD_TYPE_MP3) == KXMDMetaTypeMP3);
static_assert(static_cast<int>(KXMD_TYPE_MP4) == KXMDMetaTypeMP4);
static_assert(static_cast<int>(KXMD_TYPE_JPEG) == KXMDMetaTypeJPEG);
static_assert(static_cast<int>(KXMD_CODEC_MP3) == KXMDCodecMP3);
static_assert(static_cast<int>(KXMD_CODEC_AMR) == KXMDCodecAMR);
static_assert(static_cast<int>(KXMD_CODEC_AMR_WB) == KXMDCodecAMRWB);
static_assert(static_cast<int>(KXMD_CODEC_ALAC) == KXMDCodecALAC);
static_assert(static_cast<int>(KXMD_CODEC_AAC) == KXMDCodecAAC);
static_assert(static_cast<int>(KXMD_CODEC_MP4_VISUAL) == KXMDCodecMP4Visual);
static_assert(static_cast<int>(KXMD_CODEC_AVC) == KXMDCodecAVC);
static_assert(static_cast<int>(KXMD_CODEC_H263) == KXMDCodecH263);
static_assert(KXMD_PROFILE_UNKNOWN == KXMDProfileUnknown);

namespace {

/// The keys of the tags, in the order of `kxmd_tag`.
constexpr std::array<std::string_view, kxmd_file::tagCount> tagKeys { KXMDMetadataKeyName,
    KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum, KXMDMetadataKeyAlbumArtist };

void takeCodecs(kxmd_file& file, KXMDCodecInfo::List const& list, kxmd_stream_kind kind)
{
    for (KXMDCodecInfo const& info : list) {
        KXSize const size = info.videoSize();
        file.descriptions.push_back(info.description());
        file.codecs.push_back({ .kind = kind,
            .codec = info.codec(),
            .profile = info.profile(),
            .level = info.profileLevel(),
            .bit_rate = info.bitRate(),
            .width = size.width,
            .height = size.height,
            .channels = info.audioChannels(),
            .description = nullptr });
    }
}

/// Reads all that the handle tells, since getters have no way to fail.
void readHeaders(kxmd_file& file)
{
    file.detectedType = KXMDFileMeta::metaTypeForData(*file.reader);
    file.meta = KXMDFileMeta::fileMetaWithAnyAbstractData(*file.reader);
    for (std::size_t i = 0; i < tagKeys.size(); ++i)
        file.tags[i] = file.meta->metadataForKey(tagKeys[i]);
    takeCodecs(file, file.meta->videoCodecsInfo(), KXMD_STREAM_VIDEO);
    takeCodecs(file, file.meta->audioCodecsInfo(), KXMD_STREAM_AUDIO);
    for (std::size_t i = 0; i < file.codecs.size(); ++i) // Now they move no more.
        file.codecs[i].description = file.descriptions[i].c_str();
    file.hasVideo = file.meta->containsVideo();
    file.hasValidCover = file.meta->hasValidAlbumCover();
    file.canInsertCover = file.meta->canInsertAlbumCover();
    file.coverSize = file.meta->albumCoverSizeForEmbeddedTags();
}

}

KXAbstractData::Ref KXCReaderOfPath(char const* path)
{
    errno = 0;
    if (auto reader = KXAbstractData::abstractDataWithPath(path))
        return reader;
    int const error = errno; // None where there is a folder or device.
    if (!error)
        throw KXCFailure(KXMD_ERROR_OPEN, "is not a regular file");
    throw KXCFailure(
        KXMD_ERROR_OPEN, std::string("cannot be opened: ") + std::strerror(error), error);
}

kxmd_type kxmd_type_of_path(char const* path, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(path && *path, "there is no path");
        auto const reader = KXCReaderOfPath(path);
        KXMDMetaType const type = KXMDFileMeta::metaTypeForData(*reader);
        if (reader->readError())
            throw KXCFailure::ofReading(reader->readError());
        return static_cast<kxmd_type>(type);
    });
}

kxmd_file* kxmd_file_open(char const* path, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(path && *path, "there is no path");
        auto file = std::make_unique<kxmd_file>();
        file->path = path;
        file->reader = KXCReaderOfPath(path); // First, since it opens nothing but files.
        {
            KXStandardFiles const standardFiles;
            file->source.emplace(file->path);
        }
        if (auto const problem = file->source->error(); !problem.empty())
            throw KXCFailure(KXMD_ERROR_OPEN, "cannot be opened: " + problem);
        readHeaders(*file);
        return file.release();
    });
}

kxmd_file* kxmd_file_open_bytes(void const* bytes, size_t length, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(bytes || !length, "there are no bytes");
        auto file = std::make_unique<kxmd_file>();
        file->bytes = KXCCopyOfBytes(bytes, length);
        file->reader = KXAbstractData::abstractDataWithData(file->bytes);
        readHeaders(*file);
        return file.release();
    });
}

kxmd_type kxmd_file_get_type(kxmd_file const* file) noexcept
{
    return file ? static_cast<kxmd_type>(file->meta->metaType()) : KXMD_TYPE_UNKNOWN;
}

kxmd_type kxmd_file_get_detected_type(kxmd_file const* file) noexcept
{
    return file ? static_cast<kxmd_type>(file->detectedType) : KXMD_TYPE_UNKNOWN;
}

uint64_t kxmd_file_get_size(kxmd_file const* file) noexcept
{
    return file ? file->reader->length() : 0;
}

int kxmd_file_get_read_error(kxmd_file const* file) noexcept
{
    return file ? file->reader->readError().value() : 0;
}

char const* kxmd_file_get_tag(kxmd_file const* file, kxmd_tag tag, size_t* length) noexcept
{
    auto const index = static_cast<std::size_t>(tag);
    bool const isThere = file && index < file->tags.size() && file->tags[index];
    if (length)
        *length = isThere ? file->tags[index]->size() : 0;
    return isThere ? file->tags[index]->c_str() : nullptr;
}

bool kxmd_file_has_video(kxmd_file const* file) noexcept { return file && file->hasVideo; }

bool kxmd_file_has_valid_cover(kxmd_file const* file) noexcept
{
    return file && file->hasValidCover;
}

bool kxmd_file_can_insert_cover(kxmd_file const* file) noexcept
{
    return file && file->canInsertCover;
}

uint64_t kxmd_file_get_cover_size(kxmd_file const* file) noexcept
{
    return file ? file->coverSize : 0;
}

kxmd_codec_info const* kxmd_file_get_codecs(kxmd_file const* file, size_t* count) noexcept
{
    if (count)
        *count = file ? file->codecs.size() : 0;
    return file && !file->codecs.empty() ? file->codecs.data() : nullptr;
}

void kxmd_file_free(kxmd_file* file) noexcept { delete file; }
