#pragma once

#include "kxmd/host/KXExport.h"

#include <optional>
#include <string>
#include <vector>

/// Runs command-line tools. Safe to call from several threads.
class KX_EXPORT KXTaskRunner {
public:
    virtual ~KXTaskRunner();

    /// `runToolAtPath:arguments:` Runs the program with exactly these arguments and waits for its
    /// end, however long that takes.
    ///
    /// It keeps the environment and the standard streams of this process. Returns its exit status;
    /// absent when it could not be started or was ended by a signal.
    [[nodiscard]] virtual std::optional<int> runToolAtPath(
        std::string const& path, std::vector<std::string> const& arguments) const = 0;
};
