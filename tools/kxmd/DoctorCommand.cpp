// kxmd doctor: what this machine offers the library to work with.

#include "Commands.h"
#include "Desktop.h"
#include "JSONLine.h"
#include "Session.h"
#include "TextReport.h"

#include <kxmd/platform/KXMachineReport.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// What a package of Debian adds.
struct Addition {
    std::string_view what;
    std::string_view package;
    bool isMissing;
};

bool has(std::vector<std::string> const& names, std::string_view name)
{
    return std::ranges::find(names, name) != names.end();
}

std::vector<Addition> missingIn(KXMachineReport const& machine)
{
    auto const& formats = machine.pictures.formats;
    auto const& types = machine.thumbnailedTypes;
    bool const hasTheme = std::ranges::any_of(
        machine.iconThemes, [](std::string const& name) { return name != "hicolor"; });
    std::vector<Addition> additions {
        { "movies, other music, and pictures of rare formats", "libkxmd-movies",
            !machine.movies.isThere },
        { "pictures of AVIF", "libheif-plugin-dav1d", !has(formats, "avif") },
        { "pictures of HEIC", "libheif-plugin-libde265", !has(formats, "heic") },
        { "pages of PDF", "poppler-utils", machine.documentProgram.empty() },
        { "thumbnails of electronic books", "gnome-epub-thumbnailer",
            !has(types, "application/epub+zip") },
        { "thumbnails of office documents", "libgsf-bin",
            !has(types, "application/vnd.oasis.opendocument.text") },
        { "thumbnails of fonts", "gnome-font-viewer", !has(types, "font/ttf") },
        { "icons of types", "adwaita-icon-theme", !hasTheme },
    };
    std::erase_if(additions, [](Addition const& addition) { return !addition.isMissing; });
    return additions;
}

JSON jsonOfDecoder(KXMachineReport::Decoder const& decoder)
{
    return { { "available", decoder.isThere },
        { "confinement",
            { { "files", decoder.isConfinedToReading },
                { "systemCalls", decoder.isConfinedToComputing } } },
        { "formats", decoder.formats } };
}

std::string jsonReport(KXMachineReport const& machine)
{
    JSON missing = JSON::array();
    for (Addition const& addition : missingIn(machine))
        missing.push_back({ { "what", addition.what }, { "package", addition.package } });
    return jsonLine({ { "pictures", jsonOfDecoder(machine.pictures) },
        { "movies", jsonOfDecoder(machine.movies) }, { "documents", machine.documentProgram },
        { "thumbnailers", machine.thumbnailedTypes }, { "converter", machine.audioConverter },
        { "iconThemes", machine.iconThemes }, { "missing", missing } });
}

std::string listOf(std::vector<std::string> const& names)
{
    std::string list;
    for (std::string const& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list.empty() ? "none" : list;
}

std::string describeConfinement(KXMachineReport::Decoder const& decoder)
{
    if (!decoder.isThere)
        return "there is no decoder";
    std::string text = decoder.isConfinedToReading ? "sees no other files (Landlock)"
                                                   : "sees all files: the kernel has no Landlock";
    return text
        + (decoder.isConfinedToComputing ? ", makes no other system calls (seccomp)"
                                         : ", makes all system calls: the kernel has no seccomp");
}

std::string textReport(KXMachineReport const& machine)
{
    auto const orNone
        = [](std::string const& path) { return path.empty() ? std::string("none") : path; };
    TextReport report("This machine");
    report.addLine("Pictures", listOf(machine.pictures.formats));
    report.addLine("Confinement", describeConfinement(machine.pictures));
    report.addLine("Movies", listOf(machine.movies.formats));
    report.addLine("Confinement", describeConfinement(machine.movies));
    report.addLine("PDF", orNone(machine.documentProgram));
    report.addLine("Thumbnailers", listOf(machine.thumbnailedTypes));
    report.addLine("Converter", orNone(machine.audioConverter));
    report.addLine("Icon themes", listOf(machine.iconThemes));
    for (Addition const& addition : missingIn(machine))
        report.addLine(
            "Missing", std::string(addition.what) + ": install " + std::string(addition.package));
    return report.text();
}

void reportProblem(std::string_view what, KXMachineReport::Decoder const& decoder, Session& session)
{
    if (!decoder.isThere)
        session.reportError(what, "there is no decoder");
    else if (!decoder.isConfined())
        session.reportError(what, "decoders cannot be fully confined");
}

void examine(bool isJSON, Session& session)
{
    try {
        static_cast<void>(desktop());
    } catch (MissingModule const& missing) { // Of all commands, this one tells what there is.
        session.reportError("libraries of the desktop", missing.what());
    }
    auto const machine = KXMachineReport::reportOfThisMachine();
    session.write(isJSON ? jsonReport(machine) : textReport(machine));
    reportProblem("pictures", machine.pictures, session);
    reportProblem("movies", machine.movies, session);
}

void addOptions(CLI::App& command, Session& session)
{
    auto const isJSON = std::make_shared<bool>(false);
    command.add_flag("--json", *isJSON, "Print a JSON object");
    command.callback([isJSON, &session] { examine(*isJSON, session); });
}

}

Command const doctorCommand { .name = "doctor",
    .description = "Show what this machine offers, and what is missing",
    .group = machineGroup,
    .examples = R"(    kxmd doctor)",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
