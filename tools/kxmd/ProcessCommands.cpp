// kxmd clean and kxmd convert: one of the library's processors on one file.

#include "CleanUpOnSignal.h"
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

namespace {

struct Sizes {
    std::uint64_t before;
    std::uint64_t predicted;
    std::uint64_t after;
};

void reportProcessed(EditOptions const& options, bool isChanged, Sizes sizes, Session& session)
{
    if (options.json) {
        session.write(jsonLine(
            { { "path", options.path }, { "changed", isChanged }, { "bytesBefore", sizes.before },
                { "predicted", sizes.predicted }, { "bytesAfter", sizes.after } }));
        return;
    }
    session.write((isChanged ? "changed: " : "copied: ") + std::to_string(sizes.before)
        + " bytes before, " + std::to_string(sizes.predicted) + " predicted, "
        + std::to_string(sizes.after) + " after\n");
}

/// Runs a processor on the file and writes what it answers; the source itself counts as unchanged.
void process(EditOptions const& options, KXDCFileProcessor const& processor,
    KXAbstractData::Ref const& source, bool isChanged, Session& session)
{
    KXDCSimpleFileProxy const proxy(std::make_shared<KXDCSimpleFile>(options.path), options.output);
    std::uint64_t const before = source->length();
    std::uint64_t const predicted = processor.processedFilesizeForFileProxy(proxy, before);
    auto const processed = processor.processedFileDataForFileProxy(proxy, source);
    if (!processed)
        return reportRefusal(options, "cannot be converted", before, session);
    if (writeEdited(options, *processed, session))
        reportProcessed(options, isChanged, { before, predicted, processed->length() }, session);
}

/// The file and a folder for what the processor leaves behind; reports what is missing.
bool isReady(EditOptions const& options, KXAbstractData::Ref const& source,
    TemporaryFolder const& folder, Session& session)
{
    if (!source)
        session.reportUnreadable(options.path);
    else if (!folder.platform())
        session.reportError(options.path, "there is no temporary folder to work in");
    return source && folder.platform();
}

void clean(EditOptions const& options, Session& session)
{
    CleanUpOnSignal const cleanUp([] { removeTemporaryFolders(*KXPlatform::shared()); });
    TemporaryFolder const folder(KXPlatform::shared());
    auto const source = KXAbstractData::abstractDataWithPath(options.path);
    if (!isReady(options, source, folder, session))
        return;
    if (!isAllowed(
            options, KXMP4EditSafety(*source).reasonAgainstCleaning(), source->length(), session))
        return;
    KXMDFileProcessorCleanIPhoneVideo const processor(folder.platform());
    KXDCSimpleFileProxy const proxy(std::make_shared<KXDCSimpleFile>(options.path), options.output);
    bool const isChanged
        = processor.processedFilesizeForFileProxy(proxy, source->length()) != source->length();
    process(options, processor, source, isChanged, session);
}

void convert(EditOptions const& options, Session& session)
{
    CleanUpOnSignal const cleanUp([] { removeTemporaryFolders(*KXPlatform::shared()); });
    TemporaryFolder const folder(KXPlatform::shared());
    auto const source = KXAbstractData::abstractDataWithPath(options.path);
    if (!isReady(options, source, folder, session))
        return;
    process(options, KXMDFileProcessorConvertALAC(folder.platform()), source, true, session);
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
