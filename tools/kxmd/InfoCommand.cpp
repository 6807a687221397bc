// kxmd info: what is in each file.

#include "Commands.h"
#include "JSONLine.h"
#include "Session.h"
#include "TextReport.h"
#include "Usage.h"

#include <kxmd/core/KXMDFileMeta.h>

#include <array>
#include <memory>

namespace {

constexpr std::array tagKeys { KXMDMetadataKeyName, KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum,
    KXMDMetadataKeyAlbumArtist };

/// What one report tells.
struct Subject {
    std::string const& path;
    KXMDMetaType detectedType { KXMDMetaTypeUnknown };
    KXMDFileMeta const& meta;
};

JSON jsonOfTags(KXMDFileMeta const& meta)
{
    JSON tags = JSON::object();
    for (auto const key : tagKeys) {
        if (auto const value = meta.metadataForKey(key))
            tags[std::string(key)] = *value;
    }
    return tags;
}

JSON jsonOfCodecs(KXMDCodecInfo::List const& codecs)
{
    JSON list = JSON::array();
    for (auto const& info : codecs) {
        list.push_back({ { "codec", info.codec() }, { "profile", info.profile() },
            { "profileLevel", info.profileLevel() }, { "bitRate", jsonNumber(info.bitRate()) },
            { "width", jsonNumber(info.videoSize().width) },
            { "height", jsonNumber(info.videoSize().height) },
            { "audioChannels", info.audioChannels() }, { "description", info.description() } });
    }
    return list;
}

std::string jsonReport(Subject const& subject)
{
    KXMDFileMeta const& meta = subject.meta;
    return jsonLine({ { "path", subject.path }, { "size", meta.filesize() },
        { "detectedType", static_cast<int>(subject.detectedType) }, { "metaType", meta.metaType() },
        { "tags", jsonOfTags(meta) }, { "containsVideo", meta.containsVideo() },
        { "video", jsonOfCodecs(meta.videoCodecsInfo()) },
        { "audio", jsonOfCodecs(meta.audioCodecsInfo()) },
        { "cover",
            { { "valid", meta.hasValidAlbumCover() }, { "insertable", meta.canInsertAlbumCover() },
                { "embeddedBytes", meta.albumCoverSizeForEmbeddedTags() } } } });
}

std::string nameOfType(Subject const& subject)
{
    switch (subject.detectedType) {
    case KXMDMetaTypeMP3:
        return subject.meta.metaType() == KXMDMetaTypeMP3 ? "MP3"
                                                          : "MP3 with a tag that cannot be read";
    case KXMDMetaTypeMP4:
        return "MP4";
    case KXMDMetaTypeJPEG:
        return "JPEG";
    case KXMDMetaTypeUnknown:
        break;
    }
    return "unknown";
}

/// The record's own description, without the label in front: the report's line has one already.
std::string describeCodec(KXMDCodecInfo const& info)
{
    constexpr std::string_view label = "Codec: ";
    std::string const text = info.description();
    return text.starts_with(label) ? text.substr(label.size()) : text;
}

void addCodecs(TextReport& report, std::string_view name, KXMDCodecInfo::List const& codecs)
{
    for (auto const& info : codecs) {
        std::string text = describeCodec(info);
        KXSize const size = info.videoSize();
        if (size != KXSize())
            text += ", " + jsonNumber(size.width).dump() + " x " + jsonNumber(size.height).dump();
        if (info.audioChannels())
            text += ", " + std::to_string(info.audioChannels()) + " channels";
        if (info.bitRate() != 0)
            text += ", " + jsonNumber(info.bitRate()).dump() + " bit/s";
        report.addLine(name, text);
    }
}

std::string describeCover(KXMDFileMeta const& meta)
{
    std::uint64_t const bytes = meta.albumCoverSizeForEmbeddedTags();
    if (bytes)
        return byteCount(bytes) + (meta.hasValidAlbumCover() ? "" : ", smaller than 200 x 200");
    return meta.canInsertAlbumCover() ? "none" : "none, and no place for one";
}

std::string textReport(Subject const& subject)
{
    KXMDFileMeta const& meta = subject.meta;
    TextReport report(subject.path);
    report.addLine("Type", nameOfType(subject));
    report.addLine("Size", byteCount(meta.filesize()));
    for (auto const key : tagKeys) {
        if (auto const value = meta.metadataForKey(key))
            report.addLine(key, *value);
    }
    addCodecs(report, "Video", meta.videoCodecsInfo());
    addCodecs(report, "Audio", meta.audioCodecsInfo());
    if (meta.metaType() == KXMDMetaTypeMP3 || meta.metaType() == KXMDMetaTypeMP4)
        report.addLine("Cover", describeCover(meta));
    return report.text();
}

void showUnreadable(std::string const& path, bool json, Session& session)
{
    if (json)
        session.write(jsonReport({ path, KXMDMetaTypeUnknown, KXMDFileMetaEmpty() }));
}

void showFile(std::string const& path, bool json, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data) {
        showUnreadable(path, json, session);
        return session.reportUnreadable(path);
    }
    KXMDMetaType const detectedType = KXMDFileMeta::metaTypeForData(*data);
    auto const meta = KXMDFileMeta::fileMetaWithAnyAbstractData(*data);
    if (session.reportReadError(path, meta->readError())) // What was found may be wrong.
        return showUnreadable(path, json, session);
    Subject const subject { path, detectedType, *meta };
    session.write(json ? jsonReport(subject) : textReport(subject));
}

void addOptions(CLI::App& command, Session& session)
{
    auto const json = std::make_shared<bool>(false);
    command.add_flag("--json", *json, "Print one JSON object per file");
    auto* const files = addFiles(command, "Files to look at");
    command.callback([json, files, &session] {
        for (auto const& path : textsOf(*files))
            showFile(path, *json, session);
    });
}

}

Command const infoCommand { .name = "info",
    .description = "Tell what is in each file",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
