#pragma once

#include "kxmd/base/KXExport.h"

#include <functional>
#include <string_view>

/// Receives each log line: its category (here always "Metadata") and its text, without a line end.
///
/// Called on the thread that logs, so possibly on several at once, and under no lock: it may itself
/// log, or call the object that logs. Exceptions from it are dropped.
using KXLogSink = std::function<void(std::string_view category, std::string_view text)>;

/// `KXLog` Writes one log line, `format` filled as by printf. Logging never changes control flow.
///
/// Does nothing, not even format, while no sink is set.
KX_EXPORT void KXLog(char const* category, char const* format, ...) noexcept
    __attribute__((format(printf, 2, 3)));

/// `setLogSink:` Sends log lines to `sink` from now on; an empty function turns logging off.
///
/// Until the first call lines go to standard error as "[Metadata] text". Safe on any thread,
/// within a sink as well.
KX_EXPORT void KXSetLogSink(KXLogSink sink);
