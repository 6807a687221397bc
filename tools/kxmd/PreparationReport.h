#pragma once

#include "FileWalk.h"
#include "ProgressBar.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct PreparationOutcome;
class Session;

/// Tells how the preparation of a collection goes and what came of it. On a terminal a progress bar
/// and the files that need attention, otherwise every file; a summary at the end.
class PreparationReport {
public:
    /// A report on `files`, whose targets it names as they lie below `folder`.
    PreparationReport(
        std::vector<FoundFile> const& files, std::string folder, bool isJSON, Session& session);

    /// Counts a file as worked on, whose outcome is added in its turn. Safe on several threads.
    void advance(PreparationOutcome const& outcome);
    void add(PreparationOutcome const& outcome);
    void finish();

private:
    struct Totals {
        std::uint64_t files { 0 };
        std::uint64_t failed { 0 };
        std::uint64_t converted { 0 };
        std::uint64_t covers { 0 };
        std::uint64_t cleaned { 0 };
        std::uint64_t bytesIn { 0 };
        std::uint64_t bytesOut { 0 };
    };

    void count(PreparationOutcome const& outcome);

    std::string const _folder;
    bool const _isJSON;
    bool const _showsAll; ///< There is no terminal for a bar.
    Session& _session;
    std::chrono::steady_clock::time_point const _start { std::chrono::steady_clock::now() };
    std::optional<ProgressBar> _progress;
    Totals _totals;
};
