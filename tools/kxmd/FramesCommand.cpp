// kxmd frames: the frames of a file's ID3v2 tag.

#include "Commands.h"
#include "JSONLine.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/base/KXPrintableText.h>
#include <kxmd/mp3/KXMDFileMetaMP3.h>

#include <memory>

namespace {

struct Options {
    std::string path;
    bool json { false };
};

std::string frameJSON(KXMDFileMetaMP3Frame const& frame)
{
    JSON object { { "offset", frame.offset() }, { "size", frame.size() },
        { "headerSize", frame.headerSize() }, { "dataSize", frame.dataSize() },
        { "tag", frame.tag() }, { "flags", frame.flags() }, { "id3Version", frame.id3Version() } };
    if (auto const& content = frame.content())
        object["content"] = *content;
    object["coverWidth"] = jsonNumber(frame.albumCoverSize().width);
    object["coverHeight"] = jsonNumber(frame.albumCoverSize().height);
    return jsonLine(object);
}

std::string rightAligned(std::uint64_t number, std::size_t width)
{
    std::string text = std::to_string(number);
    if (text.size() < width)
        text.insert(0, width - text.size(), ' ');
    return text;
}

std::string frameLine(KXMDFileMetaMP3Frame const& frame)
{
    std::string line = rightAligned(frame.offset(), 10) + rightAligned(frame.size(), 11) + "  "
        + KXTextWithoutControlCharacters(frame.tag());
    KXSize const cover = frame.albumCoverSize();
    if (auto const& content = frame.content())
        line.append("  ").append(KXTextWithoutControlCharacters(*content));
    else if (cover != KXSize())
        line += "  " + jsonNumber(cover.width).dump() + " x " + jsonNumber(cover.height).dump();
    return line + '\n';
}

void showFrames(Options const& options, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data)
        return session.reportUnreadable(options.path);
    KXMDFileMetaMP3 meta;
    bool const hasTag = meta.parseAbstractData(*data);
    if (session.reportReadError(options.path, data->readError()))
        return;
    if (!hasTag)
        return session.reportError(options.path, "has no ID3v2 tag that can be read");
    if (!options.json)
        session.write("    Offset       Size  Frame\n");
    auto const frames = meta.frames();
    for (auto const& frame : *frames) {
        if (!session.write(options.json ? frameJSON(*frame) : frameLine(*frame)))
            return;
    }
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    command.add_flag("--json", options->json, "Print one JSON object per frame");
    addFile(command, options->path, "File to look at");
    command.callback([options, &session] { showFrames(*options, session); });
}

}

Command const framesCommand { .name = "frames",
    .description = "List the ID3v2 frames of a file",
    .group = lookingGroup,
    .examples = R"(    kxmd frames song.mp3)",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
