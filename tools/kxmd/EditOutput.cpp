#include "EditOutput.h"

#include "JSONLine.h"
#include "OutputFile.h"
#include "Session.h"

#include <kxmd/host/KXAbstractData.h>

bool writeEdited(EditOptions const& options, KXAbstractData& data, Session& session)
{
    return writeOutputFile(options.output, { options.path, options.picturePath }, data, session);
}

bool isAllowed(EditOptions const& options, std::optional<std::string> const& reason,
    std::uint64_t bytesBefore, Session& session)
{
    if (!reason || options.isForced)
        return true;
    reportRefusal(options, *reason, bytesBefore, session);
    return false;
}

void reportEdit(EditOptions const& options, std::string const& what, std::uint64_t bytesBefore,
    std::uint64_t bytesAfter, Session& session)
{
    if (options.json) {
        session.write(jsonLine({ { "path", options.path }, { "ok", true },
            { "bytesBefore", bytesBefore }, { "bytesAfter", bytesAfter } }));
        return;
    }
    session.write(what + ": " + std::to_string(bytesBefore) + " bytes before, "
        + std::to_string(bytesAfter) + " after\n");
}

void reportRefusal(EditOptions const& options, std::string const& reason, std::uint64_t bytesBefore,
    Session& session)
{
    session.reportError(options.path, reason);
    if (options.json)
        session.write(jsonLine({ { "path", options.path }, { "ok", false },
            { "bytesBefore", bytesBefore }, { "bytesAfter", bytesBefore }, { "reason", reason } }));
}
