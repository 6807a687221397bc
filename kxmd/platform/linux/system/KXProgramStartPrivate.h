#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

/// How another program is started: with no signal blocked, whatever this thread blocks, with
/// nothing to read, and with no file of ours but the one that it writes to.
struct KXProgramStart {
    /// The program's path and its arguments, which no shell sees.
    std::vector<std::string> arguments {};
    /// Where it writes to, such as the writing end of a pipe.
    int target { -1 };
    /// The stream that goes there, standard output or standard error; the other goes nowhere.
    int stream { STDOUT_FILENO };
    /// Whether it gets a process group of its own, so that it can be killed with all that it
    /// started and hears nothing of the terminal, and ignores no signal. Otherwise it belongs to
    /// our group and ignores what we ignore (a hang-up, say, when the host shall outlive its
    /// terminal), but for broken pipes: a host has its own reasons to ignore those.
    bool isApart { false };
    /// A variable "NAME=value" to be added to our environment; empty for none.
    std::string variable {};

    /// The number of the process; absent when it could not be started.
    std::optional<pid_t> start() const;
};
