#pragma once

#include "kxmd/base/KXExport.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

/// How another program is started: with no signal blocked, whatever this thread blocks, with
/// nothing to read, and with no file of ours but the one that it writes to.
struct KX_EXPORT_FOR_TESTS KXProgramStart {
    /// The program's path and its arguments, which no shell sees.
    std::vector<std::string> arguments {};
    /// Where it writes to, such as the writing end of a pipe.
    int target { -1 };
    /// The stream that goes there, standard output or standard error; the other goes nowhere.
    int stream { STDOUT_FILENO };
    /// Whether it gets its own process group and ignores no signal, so that it can be killed with
    /// everything it started and gets no signals from the terminal. Otherwise it stays in our group
    /// and ignores the signals that we ignore (SIGHUP, say, when the host is to outlive its
    /// terminal), except SIGPIPE and SIGCHLD, which a host ignores for its own reasons.
    bool isApart { false };
    /// A variable "NAME=value" to be added to our environment; empty for none.
    std::string variable {};
    /// What stands in place of our environment, if anything.
    std::optional<std::vector<std::string>> environment {};

    /// The number of the process; absent when it could not be started.
    std::optional<pid_t> start() const;
};
