#pragma once

#include "StandardError.h"
#include "Terminal.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

/// How the command ends.
enum class ExitStatus : int {
    good = 0,
    someFileFailed = 1,
    wrongUsage = 2,
};

/// One run of the command: where its results and errors go, and how it will end.
class Session {
public:
    /// Writes a piece of the result to standard output. False once nobody takes it any more.
    bool write(std::string_view text);

    /// Says on standard error, in one line, what went wrong with the file at `path`.
    void reportError(std::string_view path, std::string_view problem);

    /// Says something about the file at `path` that is no failure.
    void reportRemark(std::string_view path, std::string_view remark);

    /// Says that the file at `path` cannot be read, and why.
    void reportUnreadable(std::string const& path);

    /// Says so if the system failed to read some of the file at `path`. Whether it did.
    bool reportReadError(std::string_view path, std::error_code error);

    /// Hands out what is still buffered; the last thing to do.
    void finish();

    /// Where errors, log lines and the status of a long run go.
    StandardError& standardError() { return _standardError; }

    ExitStatus exitStatus() const { return _exitStatus; }

private:
    void reportWriteError();
    void reportLine(std::string_view path, std::string_view what, Emphasis emphasis);

    StandardError _standardError;
    ExitStatus _exitStatus { ExitStatus::good };
    bool _outputIsGone { false };
};
