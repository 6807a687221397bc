#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCFilePrivate.h"
#include "kxmd/c/KXCImagePrivate.h"
#include "kxmd/platform/KXMediaProbe.h"

#include <memory>

struct kxmd_probe {
    KXMediaProbe probe; ///< Owns the texts of the lists.
    std::vector<kxmd_stream> streams;
    std::vector<kxmd_probe_tag> tags;
    std::vector<kxmd_picture> pictures;
};

namespace {

kxmd_stream_kind kindOf(KXMediaStream const& stream)
{
    switch (stream.kind) {
    case KXMediaStream::Kind::video:
        return KXMD_STREAM_VIDEO;
    case KXMediaStream::Kind::audio:
        return KXMD_STREAM_AUDIO;
    case KXMediaStream::Kind::subtitle:
        return KXMD_STREAM_SUBTITLE;
    case KXMediaStream::Kind::other:
        break;
    }
    return KXMD_STREAM_OTHER;
}

void listStreams(kxmd_probe& probe)
{
    for (KXMediaStream const& stream : probe.probe.streams) {
        probe.streams.push_back({ .kind = kindOf(stream),
            .codec = stream.codec.c_str(),
            .profile = stream.profile.c_str(),
            .language = stream.language.c_str(),
            .bit_rate = stream.bitRate,
            .sample_rate = stream.sampleRate,
            .channels = stream.channels,
            .bits = stream.bits,
            .width = stream.width,
            .height = stream.height,
            .frame_rate = stream.frameRate,
            .rotation = stream.rotation });
    }
}

void listPictures(kxmd_probe& probe)
{
    for (KXMediaPicture const& picture : probe.probe.pictures) {
        probe.pictures.push_back({ .kind = picture.kind.c_str(),
            .type = picture.type.c_str(),
            .width = picture.width,
            .height = picture.height,
            .bytes = picture.bytes });
    }
}

std::unique_ptr<kxmd_probe> probeOfPath(char const* path)
{
    auto found = KXMediaProbe::probeWithSourcePath(path);
    if (!found) {
        static_cast<void>(KXCReaderOfPath(path)); // Fails for its own reason.
        KXCFailWithout(KXCDecoder::movies, KXMD_ERROR_NOT_MEDIA, "is no media that is known");
    }
    auto probe = std::make_unique<kxmd_probe>();
    probe->probe = std::move(*found);
    listStreams(*probe);
    for (auto const& [name, value] : probe->probe.tags)
        probe->tags.push_back({ .name = name.c_str(), .value = value.c_str() });
    listPictures(*probe);
    return probe;
}

/// The list of a probe that may be null; null when there is nothing in it.
template <class Item>
Item const* itemsOf(kxmd_probe const* probe, std::vector<Item> kxmd_probe::*list, size_t* count)
{
    if (count)
        *count = probe ? (probe->*list).size() : 0;
    return probe && !(probe->*list).empty() ? (probe->*list).data() : nullptr;
}

}

kxmd_probe* kxmd_probe_path(char const* path, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(path && *path, "there is no path");
        return probeOfPath(path).release();
    });
}

char const* kxmd_probe_get_container(kxmd_probe const* probe) noexcept
{
    return probe ? probe->probe.container.c_str() : nullptr;
}

double kxmd_probe_get_duration(kxmd_probe const* probe) noexcept
{
    return probe ? probe->probe.duration : 0;
}

kxmd_stream const* kxmd_probe_get_streams(kxmd_probe const* probe, size_t* count) noexcept
{
    return itemsOf(probe, &kxmd_probe::streams, count);
}

kxmd_probe_tag const* kxmd_probe_get_tags(kxmd_probe const* probe, size_t* count) noexcept
{
    return itemsOf(probe, &kxmd_probe::tags, count);
}

kxmd_picture const* kxmd_probe_get_pictures(kxmd_probe const* probe, size_t* count) noexcept
{
    return itemsOf(probe, &kxmd_probe::pictures, count);
}

void kxmd_probe_free(kxmd_probe* probe) noexcept { delete probe; }
