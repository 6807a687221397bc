#include "Processing.h"

#include "JSONLine.h"
#include "Session.h"
#include "Usage.h"

#include <string>

void addProcessingOptions(CLI::App& command, EditOptions& options)
{
    command.add_flag("--json", options.json, "Print a JSON object");
    addRequiredOutput(command, options.output, "Write the processed copy to this file");
    addFile(command, options.path, "File to process");
}

void reportProcessed(
    EditOptions const& options, bool isChanged, ProcessedSizes sizes, Session& session)
{
    if (options.json) {
        session.write(jsonLine(jsonOfFile(options.path,
            { { "changed", isChanged }, { "bytesBefore", sizes.before },
                { "predicted", sizes.predicted }, { "bytesAfter", sizes.after } })));
        return;
    }
    session.write((isChanged ? "changed: " : "copied: ") + std::to_string(sizes.before)
        + " bytes before, " + std::to_string(sizes.predicted) + " predicted, "
        + std::to_string(sizes.after) + " after\n");
}
