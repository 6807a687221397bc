// kxmd exif: the preview picture in a photograph's EXIF block.

#include "Commands.h"
#include "Desktop.h"
#include "JSONLine.h"
#include "OutputFile.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/thumbnails/KXMDExifParser.h>

#include <memory>
#include <vector>

namespace {

struct Options {
    std::string path;
    std::string output;
    bool json { false };
};

std::string exifJSON(bool parsed, KXMDExifParser const& parser)
{
    auto const thumbnail = parser.thumbnail();
    KXSize const size = thumbnail ? thumbnail->size() : KXSize();
    return jsonLine({ { "parsed", parsed }, { "thumbnailAddress", parser.thumbnailAddress() },
        { "thumbnailLength", parser.thumbnailLength() }, { "width", jsonNumber(size.width) },
        { "height", jsonNumber(size.height) } });
}

std::string exifReport(bool parsed, KXMDExifParser const& parser)
{
    if (!parsed)
        return "no EXIF block where cameras put it\n";
    auto const thumbnail = parser.thumbnail();
    if (!thumbnail)
        return "an EXIF block without a preview\n";
    return "a preview of " + jsonNumber(thumbnail->size().width).dump() + " x "
        + jsonNumber(thumbnail->size().height).dump() + ", "
        + std::to_string(parser.thumbnailLength()) + " bytes at "
        + std::to_string(parser.thumbnailAddress()) + '\n';
}

/// The preview's bytes, unchanged; empty when they are not all there.
std::vector<std::uint8_t> previewBytes(KXAbstractData& data, KXMDExifParser const& parser)
{
    data.setOffset(parser.thumbnailAddress());
    if (!parser.thumbnailAddress() || parser.thumbnailLength() > data.remainingLength())
        return {};
    std::vector<std::uint8_t> bytes(parser.thumbnailLength());
    return data.readBytesTo(bytes.data(), bytes.size()) ? bytes : std::vector<std::uint8_t>();
}

void showExif(Options const& options, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data)
        return session.reportUnreadable(options.path);
    KXMDExifParser parser(machine());
    bool const parsed = parser.parseAbstractData(*data);
    if (session.reportReadError(options.path, data->readError()))
        return;
    session.write(options.json ? exifJSON(parsed, parser) : exifReport(parsed, parser));
    if (options.output.empty())
        return;
    auto const bytes = previewBytes(*data, parser);
    if (session.reportReadError(options.path, data->readError()))
        return;
    if (bytes.empty())
        return session.reportError(options.path, "has no preview to write");
    writeOutputFile(options.output, { options.path }, bytes, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    command.add_flag("--json", options->json, "Print a JSON object");
    addOutput(command, options->output, "Write the preview to this file");
    addFile(command, options->path, "Photograph to look at");
    command.callback([options, &session] { showExif(*options, session); });
}

}

Command const exifCommand { .name = "exif",
    .description = "Find the preview in a photograph's EXIF block",
    .group = lookingGroup,
    .examples = R"(    kxmd exif photo.jpg                   where the preview lies
    kxmd exif photo.jpg -o preview.jpg    and its bytes)",
    .nature = Command::Nature::writes,
    .addOptions = addOptions };
