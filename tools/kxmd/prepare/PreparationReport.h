#pragma once

#include "tools/kxmd/ProgressBar.h"
#include "tools/kxmd/sheet/SheetPage.h"

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
    struct Style {
        bool isJSON { false };
        bool isDryRun { false };
        bool hasPage { false }; ///< What is told is kept for a page.
    };

    /// A report on files whose targets it names as they lie below `folder`. The bar is for those
    /// that are worked on.
    PreparationReport(
        std::string folder, Style style, ProgressBar::Amount toWorkOn, Session& session);

    /// Counts a file as worked on, whose outcome is added in its turn. Safe on several threads.
    void advance(PreparationOutcome const& outcome);
    void add(PreparationOutcome const& outcome);

    /// What is said at the end besides what was added.
    struct End {
        std::uint64_t skipped { 0 }; ///< Links, folders and files that were not looked at.
        /// Bytes that the folder's file system lacks, and has; absent when it was not asked.
        std::optional<std::uint64_t> needed {};
        std::optional<std::uint64_t> available {};
    };
    void finish(End const& end);

    /// What a page tells of the files that were added.
    std::vector<SheetEntry> const& pageEntries() const { return _pageEntries; }

private:
    struct Totals {
        std::uint64_t files { 0 };
        std::uint64_t unchanged { 0 };
        std::uint64_t renamed { 0 };
        std::uint64_t converted { 0 };
        std::uint64_t covers { 0 };
        std::uint64_t cleaned { 0 };
        std::uint64_t leftAsTheyWere { 0 };
        std::uint64_t failed { 0 };
        std::uint64_t removed { 0 };
        std::uint64_t bytesIn { 0 };
        std::uint64_t bytesOut { 0 };
    };

    void count(PreparationOutcome const& outcome);
    std::string objectOf(PreparationOutcome const& outcome) const;
    std::string lineOf(PreparationOutcome const& outcome) const;
    std::string wordsOf(PreparationOutcome const& outcome) const;
    SheetEntry pageEntryOf(PreparationOutcome const& outcome) const;
    std::string summary(End const& end, double seconds) const;
    std::string summaryObject(End const& end, double seconds) const;

    std::string const _folder;
    Style const _style;
    bool const _showsAll; ///< There is no terminal for a bar.
    Session& _session;
    std::chrono::steady_clock::time_point const _start { std::chrono::steady_clock::now() };
    std::optional<ProgressBar> _progress;
    Totals _totals;
    std::vector<SheetEntry> _pageEntries;
};
