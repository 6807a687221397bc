#include "MediaText.h"

#include "TextReport.h"

#include <array>
#include <cstdint>
#include <cstdio>

std::string nameOfType(
    KXMDMetaType detectedType, KXMDFileMeta const& meta, std::optional<KXMediaProbe> const& probe)
{
    switch (detectedType) {
    case KXMDMetaTypeMP3:
        return meta.metaType() == KXMDMetaTypeMP3 ? "MP3" : "MP3 with a tag that cannot be read";
    case KXMDMetaTypeMP4:
        return "MP4";
    case KXMDMetaTypeJPEG:
        return "JPEG";
    case KXMDMetaTypeUnknown:
        break;
    }
    return probe ? probe->container : "unknown";
}

std::string_view nameOfKind(KXMediaStream::Kind kind)
{
    switch (kind) {
    case KXMediaStream::Kind::video:
        return "video";
    case KXMediaStream::Kind::audio:
        return "audio";
    case KXMediaStream::Kind::subtitle:
        return "subtitle";
    case KXMediaStream::Kind::other:
        break;
    }
    return "other";
}

std::string describeCodec(KXMDCodecInfo const& info)
{
    // What shows it has a label already.
    constexpr std::string_view label = "Codec: ";
    std::string const text = info.description();
    return text.starts_with(label) ? text.substr(label.size()) : text;
}

std::string shortNumber(double number)
{
    std::array<char, 32> digits;
    int const length = std::snprintf(digits.data(), digits.size(), "%.6g", number);
    return { digits.data(), static_cast<std::size_t>(length) };
}

std::string describeStream(KXMediaStream const& stream)
{
    std::string text = stream.codec.empty() ? "unknown" : stream.codec;
    auto const add = [&text](std::string const& part) { text += ", " + part; };
    if (!stream.profile.empty())
        add(stream.profile);
    if (stream.width && stream.height)
        add(std::to_string(stream.width) + " x " + std::to_string(stream.height));
    if (stream.frameRate > 0)
        add(shortNumber(stream.frameRate) + " frames/s");
    if (stream.rotation)
        add("turned by " + std::to_string(stream.rotation) + " degrees");
    if (stream.sampleRate)
        add(std::to_string(stream.sampleRate) + " Hz");
    if (stream.channels)
        add(std::to_string(stream.channels) + (stream.channels == 1 ? " channel" : " channels"));
    if (stream.bits)
        add(std::to_string(stream.bits) + " bit");
    if (stream.bitRate)
        add(std::to_string(stream.bitRate) + " bit/s");
    if (!stream.language.empty())
        add(stream.language);
    return text;
}

std::string describeCover(KXMDFileMeta const& meta)
{
    std::uint64_t const bytes = meta.albumCoverSizeForEmbeddedTags();
    if (bytes)
        return byteCount(bytes) + (meta.hasValidAlbumCover() ? "" : ", smaller than 200 x 200");
    return meta.canInsertAlbumCover() ? "none" : "none, and no place for one";
}
