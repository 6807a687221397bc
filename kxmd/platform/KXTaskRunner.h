#pragma once

#include "kxmd/base/KXExport.h"

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
    /// It inherits the environment of this process, its standard input is empty, and up to 4 KiB of
    /// its standard error are logged line by line. Returns its exit status; absent when it could
    /// not be started or was ended by a signal.
    [[nodiscard]] virtual std::optional<int> runToolAtPath(
        std::string const& path, std::vector<std::string> const& arguments) const = 0;
};
