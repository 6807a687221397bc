// kxmd clean and kxmd convert: one of the library's processors on one file.

#include "Commands.h"
#include "EditOutput.h"
#include "JSONLine.h"
#include "Session.h"
#include "TemporaryFolder.h"
#include "Usage.h"

#include <kxmd/mp4/KXMP4EditSafety.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>
#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

#include <memory>
#include <optional>
#include <string>

namespace {

struct Sizes {
    std::uint64_t before;
    std::optional<std::uint64_t> predicted; ///< None for a file whose atoms claim more than it has.
    std::uint64_t after;
};

JSON jsonSize(std::optional<std::uint64_t> size) { return size ? JSON(*size) : JSON(nullptr); }

void reportProcessed(EditOptions const& options, bool isChanged, Sizes sizes, Session& session)
{
    if (options.json) {
        session.write(jsonLine(
            { { "path", options.path }, { "changed", isChanged }, { "bytesBefore", sizes.before },
                { "predicted", jsonSize(sizes.predicted) }, { "bytesAfter", sizes.after } }));
        return;
    }
    session.write((isChanged ? "changed: " : "copied: ") + std::to_string(sizes.before)
        + " bytes before, " + (sizes.predicted ? std::to_string(*sizes.predicted) : "none")
        + " predicted, " + std::to_string(sizes.after) + " after\n");
}

/// A processor, and what it does to any file.
struct Process {
    KXDCFileProcessor const& processor;
    bool makesAnew; ///< Rather than to take something away.
    char const* refusal;
};

/// Runs a processor on the file and writes what it answers, unless it cannot do what was asked.
void run(EditOptions const& options, Process const& process, KXAbstractData::Ref const& source,
    Session& session)
{
    KXDCSimpleFileProxy const proxy(std::make_shared<KXDCSimpleFile>(options.path), options.output);
    std::uint64_t const before = source->length();
    std::uint64_t const predicted = process.processor.processedFilesizeForFileProxy(proxy, before);
    auto const processed = process.processor.processedFileDataForFileProxy(proxy, source);
    bool const isChanged = processed && (process.makesAnew || processed->length() != before);
    // What was found has to go, all of it.
    bool const isAsDone = process.makesAnew || (processed && processed->length() == predicted);
    if (!processed || (!isAsDone && !options.isForced))
        return reportRefusal(options, process.refusal, before, session);
    if (writeEdited(options, *processed, before, session))
        reportProcessed(options, isChanged,
            { before, predicted <= before ? std::optional(predicted) : std::nullopt,
                processed->length() },
            session);
}

/// The file, where there is a folder for what the processor leaves behind; reports what is missing.
KXAbstractData::Ref inputForFolder(
    EditOptions const& options, TemporaryFolder const& folder, Session& session)
{
    auto const source = editedInput(options, session);
    if (!source || folder.platform())
        return source;
    reportRefusal(options, "there is no temporary folder to work in", source->length(), session);
    return nullptr;
}

void clean(EditOptions const& options, Session& session)
{
    TemporaryFolder const folder(KXPlatform::shared());
    auto const source = inputForFolder(options, folder, session);
    auto const danger = [&source] { return KXMP4EditSafety(*source).reasonAgainstCleaning(); };
    if (!source || !isAllowed(options, danger, source->length(), session))
        return;
    KXMDFileProcessorCleanIPhoneVideo const processor(folder.platform());
    run(options, { processor, false, "cannot be cleaned" }, source, session);
}

void convert(EditOptions const& options, Session& session)
{
    TemporaryFolder const folder(KXPlatform::shared());
    auto const source = inputForFolder(options, folder, session);
    if (!source)
        return;
    KXMDFileProcessorConvertALAC const processor(folder.platform());
    run(options, { processor, true, "cannot be converted" }, source, session);
}

CLI::App* addProcess(CLI::App& app, Session& session, char const* name, char const* description,
    EditOptions& options)
{
    auto* const command = addSubcommand(app, session, name, description);
    command->add_flag("--json", options.json, "Print a JSON object");
    addRequiredOutput(*command, options.output, "Write the processed copy to this file");
    addFile(*command, options.path, "File to process");
    return command;
}

}

void addCleanCommand(CLI::App& app, Session& session)
{
    auto const options = std::make_shared<EditOptions>();
    auto* const command = addProcess(
        app, session, "clean", "Write a copy of a phone's video without its user data", *options);
    command->add_flag("--force", options->isForced, "Clean even if the media does not survive it");
    command->callback([options, &session] { clean(*options, session); });
}

void addConvertCommand(CLI::App& app, Session& session)
{
    auto const options = std::make_shared<EditOptions>();
    auto* const command
        = addProcess(app, session, "convert", "Write a copy of lossless audio as AAC", *options);
    command->callback([options, &session] { convert(*options, session); });
}
