#include "Processing.h"

#include "JSONLine.h"
#include "Session.h"
#include "Usage.h"

#include <cstdint>
#include <memory>
#include <string>

namespace {

struct Sizes {
    std::uint64_t before;
    std::uint64_t predicted; ///< Wraps for a file whose atoms claim more than it has.
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

}

void addProcessingOptions(CLI::App& command, EditOptions& options)
{
    command.add_flag("--json", options.json, "Print a JSON object");
    addRequiredOutput(command, options.output, "Write the processed copy to this file");
    addFile(command, options.path, "File to process");
}

std::unique_ptr<EditInput> processingInput(
    EditOptions const& options, TemporaryFolder const& folder, Session& session)
{
    auto input = editedInput(options, session);
    if (!input || folder.platform())
        return input;
    reportRefusal(
        options, "there is no temporary folder to work in", input->data->length(), session);
    return nullptr;
}

void process(
    EditOptions const& options, Process const& process, EditInput const& input, Session& session)
{
    KXDCSimpleFileProxy const proxy(std::make_shared<KXDCSimpleFile>(options.path), options.output);
    std::uint64_t const before = input.data->length();
    std::uint64_t const predicted = process.processor.processedFilesizeForFileProxy(proxy, before);
    auto const processed = process.processor.processedFileDataForFileProxy(proxy, input.data);
    if (!isWhollyRead(options, input, session))
        return;
    bool const isChanged = processed && (process.makesAnew || processed->length() != before);
    // What was found has to go, all of it.
    bool const isAsDone = process.makesAnew || (processed && processed->length() == predicted);
    if (!processed || (!isAsDone && !options.isForced))
        return reportRefusal(options, process.refusal, before, session);
    if (writeEdited(options, input, *processed, session))
        reportProcessed(options, isChanged, { before, predicted, processed->length() }, session);
}
