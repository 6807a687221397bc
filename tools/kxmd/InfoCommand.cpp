// kxmd info: what is in each file.

#include "Commands.h"
#include "Desktop.h"
#include "FileWalk.h"
#include "JSONText.h"
#include "MediaText.h"
#include "OrderedWork.h"
#include "Session.h"
#include "TargetFolder.h"
#include "TextReport.h"
#include "Usage.h"

#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/platform/KXMediaProbe.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr std::array tagKeys { KXMDMetadataKeyName, KXMDMetadataKeyArtist, KXMDMetadataKeyAlbum,
    KXMDMetadataKeyAlbumArtist };

struct Options {
    bool isJSON { false };
    bool entersFolders { false };
    bool asksAlways { false }; ///< The movie library, also about what we know.
    unsigned jobs { 1 };
};

/// What one report tells.
struct Subject {
    std::string const& path;
    KXMDMetaType detectedType { KXMDMetaTypeUnknown };
    KXMDFileMeta const& meta;
    bool isProbed { true };
    std::optional<KXMediaProbe> probe {};
};

void addTags(JSONText& report, KXMDFileMeta const& meta)
{
    report.name("tags");
    report.beginObject();
    for (auto const key : tagKeys) {
        if (auto const value = meta.metadataForKey(key))
            report.addNamed(key, *value);
    }
    report.endObject();
}

void addCodecs(JSONText& report, std::string_view name, KXMDCodecInfo::List const& codecs)
{
    report.name(name);
    report.beginArray();
    for (auto const& info : codecs) {
        report.beginObject();
        report.addNamed("codec", static_cast<int>(info.codec()));
        report.addNamed("profile", info.profile());
        report.addNamed("profileLevel", info.profileLevel());
        report.addNamed("bitRate", info.bitRate());
        report.addNamed("width", info.videoSize().width);
        report.addNamed("height", info.videoSize().height);
        report.addNamed("audioChannels", info.audioChannels());
        report.addNamed("description", info.description());
        report.endObject();
    }
    report.endArray();
}

void addCover(JSONText& report, KXMDFileMeta const& meta)
{
    report.name("cover");
    report.beginObject();
    report.addNamed("valid", meta.hasValidAlbumCover());
    report.addNamed("insertable", meta.canInsertAlbumCover());
    report.addNamed("embeddedBytes", meta.albumCoverSizeForEmbeddedTags());
    report.endObject();
}

JSON jsonOfStream(KXMediaStream const& stream)
{
    JSON found { { "kind", nameOfKind(stream.kind) }, { "codec", stream.codec },
        { "profile", stream.profile }, { "language", stream.language },
        { "bitRate", stream.bitRate } };
    if (stream.kind == KXMediaStream::Kind::audio) {
        found["sampleRate"] = stream.sampleRate;
        found["channels"] = stream.channels;
        found["bits"] = stream.bits;
    } else if (stream.kind == KXMediaStream::Kind::video) {
        found["width"] = stream.width;
        found["height"] = stream.height;
        found["bits"] = stream.bits;
        found["frameRate"] = jsonNumber(stream.frameRate);
        found["rotation"] = stream.rotation;
    }
    return found;
}

JSON jsonOfProbe(KXMediaProbe const& probe)
{
    JSON streams = JSON::array();
    for (KXMediaStream const& stream : probe.streams)
        streams.push_back(jsonOfStream(stream));
    JSON pictures = JSON::array();
    for (KXMediaPicture const& picture : probe.pictures)
        pictures.push_back({ { "kind", picture.kind }, { "type", picture.type },
            { "width", picture.width }, { "height", picture.height }, { "bytes", picture.bytes } });
    return { { "container", probe.container }, { "duration", jsonNumber(probe.duration) },
        { "tags", JSON(probe.tags) }, { "streams", streams }, { "pictures", pictures } };
}

std::string jsonReport(Subject const& subject)
{
    KXMDFileMeta const& meta = subject.meta;
    JSONText report;
    report.beginObject();
    report.addPath("path", "pathBytes", subject.path);
    report.addNamed("size", meta.filesize());
    report.addNamed("detectedType", static_cast<int>(subject.detectedType));
    report.addNamed("metaType", static_cast<int>(meta.metaType()));
    addTags(report, meta);
    report.addNamed("containsVideo", meta.containsVideo());
    addCodecs(report, "video", meta.videoCodecsInfo());
    addCodecs(report, "audio", meta.audioCodecsInfo());
    addCover(report, meta);
    if (subject.isProbed) {
        report.name("probe");
        report.addValue(subject.probe ? jsonOfProbe(*subject.probe) : JSON());
    }
    report.endObject();
    return std::move(report).takeLine();
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

std::string describePicture(KXMediaPicture const& picture)
{
    std::string text = picture.kind;
    if (!picture.type.empty())
        text += ", " + picture.type;
    if (picture.width && picture.height)
        text += ", " + std::to_string(picture.width) + " x " + std::to_string(picture.height);
    return text + ", " + byteCount(picture.bytes);
}

/// A name as a person reads it: "Album artist" for "album_artist".
std::string labelOf(std::string_view name)
{
    std::string label(name);
    std::ranges::replace(label, '_', ' ');
    label.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(label.front())));
    return label;
}

/// What the movie library found, below what we did.
void addProbe(TextReport& report, KXMediaProbe const& probe)
{
    if (probe.duration > 0)
        report.addLine("Duration", shortNumber(probe.duration) + " s");
    for (auto const& [name, value] : probe.tags)
        report.addLine(labelOf(name), value);
    for (KXMediaStream const& stream : probe.streams)
        report.addLine(labelOf(nameOfKind(stream.kind)), describeStream(stream));
    for (KXMediaPicture const& picture : probe.pictures)
        report.addLine("Picture", describePicture(picture));
}

std::string textReport(Subject const& subject)
{
    KXMDFileMeta const& meta = subject.meta;
    TextReport report(subject.path);
    report.addLine("Type", nameOfType(subject.detectedType, meta, subject.probe));
    report.addLine("Size", byteCount(meta.filesize()));
    for (auto const key : tagKeys) {
        if (auto const value = meta.metadataForKey(key))
            report.addLine(key, *value);
    }
    addCodecs(report, "Video", meta.videoCodecsInfo());
    addCodecs(report, "Audio", meta.audioCodecsInfo());
    if (meta.metaType() == KXMDMetaTypeMP3 || meta.metaType() == KXMDMetaTypeMP4)
        report.addLine("Cover", describeCover(meta));
    if (subject.probe)
        addProbe(report, *subject.probe);
    return report.text();
}

/// What is said of a file.
struct Answer {
    std::string report;
    bool isUnreadable { false };
    std::error_code readError {};
};

std::string reportOfUnreadable(std::string const& path, Options const& options)
{
    return options.isJSON ? jsonReport({ path, KXMDMetaTypeUnknown, KXMDFileMetaEmpty() }) : "";
}

Answer answerFor(std::string const& path, Options const& options)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return { .report = reportOfUnreadable(path, options), .isUnreadable = true };
    KXMDMetaType const detectedType = KXMDFileMeta::metaTypeForData(*data);
    auto const meta = KXMDFileMeta::fileMetaWithAnyAbstractData(*data);
    if (meta->readError()) // What was found may be wrong.
        return { .report = reportOfUnreadable(path, options), .readError = meta->readError() };
    Subject subject { path, detectedType, *meta };
    subject.isProbed = options.asksAlways || detectedType == KXMDMetaTypeUnknown;
    if (subject.isProbed)
        subject.probe = machine()->movieLoader->mediaProbeWithData(*data);
    return { .report = options.isJSON ? jsonReport(subject) : textReport(subject) };
}

void show(std::string const& path, Answer const& answer, Session& session)
{
    session.reportReadError(path, answer.readError);
    session.write(answer.report);
    if (answer.isUnreadable)
        session.reportUnreadable(path);
}

/// Asks several threads, each about some files in a row: to hand an answer over takes as long as to
/// find it.
void showAtOnce(std::vector<std::string> const& paths, Options const& options, Session& session)
{
    static constexpr std::size_t inARow = 32;
    auto const rowAt = [&paths](std::size_t row) {
        return std::span(paths).subspan(
            row * inARow, std::min(inARow, paths.size() - row * inARow));
    };
    auto const answersFor = [&](std::size_t row) {
        std::vector<Answer> answers;
        for (std::string const& path : rowAt(row))
            answers.push_back(answerFor(path, options));
        return answers;
    };
    auto const showRow = [&](std::size_t row, std::vector<Answer> const& answers) {
        for (std::size_t i = 0; i < answers.size(); ++i)
            show(rowAt(row)[i], answers[i], session);
    };
    workInOrder(
        (paths.size() + inARow - 1) / inARow, options.jobs, answersFor, [](auto&) {}, showRow);
}

/// The paths as they were typed, or those of the files that they lead to.
std::vector<std::string> pathsOf(
    std::vector<std::string> typed, Options const& options, Session& session)
{
    if (!options.entersFolders)
        return typed;
    std::vector<std::string> paths;
    for (FoundFile const& file : foundFiles(typed, {}, session).files)
        paths.push_back(file.path);
    return paths;
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    command.add_flag("--json", options->isJSON, "Print one JSON object per file");
    command.add_flag("--probe", options->asksAlways,
        "Tell also what the movie library finds, as for files of an unknown type");
    command.add_flag("-r,--recursive", options->entersFolders, "Look at all files in folders, too");
    command.add_option("-j,--jobs", options->jobs, "Files to look at at once (default: 1)")
        ->type_name("N")
        ->check(CLI::Range(1u, mostJobs).description(""));
    auto* const files = addFiles(command, "Files to look at");
    command.callback([options, files, &session] {
        auto const paths = pathsOf(textsOf(*files), *options, session);
        if (options->jobs > 1)
            return showAtOnce(paths, *options, session);
        for (auto const& path : paths)
            show(path, answerFor(path, *options), session);
    });
}

}

Command const infoCommand { .name = "info",
    .description = "Tell what is in each file",
    .group = lookingGroup,
    .examples = R"(    kxmd info song.mp3             what is in a file
    kxmd info -r --json ~/Music    the same of all files, for scripts)",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
