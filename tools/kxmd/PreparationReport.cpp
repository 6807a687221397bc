#include "PreparationReport.h"

#include "JSONLine.h"
#include "Preparation.h"
#include "Session.h"

#include <kxmd/base/KXPrintableText.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace {

struct StepNames {
    PreparationStep step;
    std::string_view processor; ///< The class that does it.
    std::string_view done;
};

constexpr std::array<StepNames, 3> stepNames { {
    { PreparationStep::conversion, "KXMDFileProcessorConvertALAC", "converted" },
    { PreparationStep::cleaning, "KXMDFileProcessorCleanIPhoneVideo", "cleaned" },
    { PreparationStep::coverInsertion, "KXMDFileProcessorAddAlbumCover", "cover inserted" },
} };

JSON jsonOfSteps(PreparationOutcome const& outcome)
{
    JSON processors = JSON::array();
    for (StepNames const& names : stepNames) {
        if (outcome.has(names.step))
            processors.push_back(names.processor);
    }
    return processors;
}

/// What was done to a file, in words: "converted, cover inserted: Album/Song.m4a (1234 bytes)".
std::string lineOf(PreparationOutcome const& outcome, std::string const& folder)
{
    std::string done;
    for (StepNames const& names : stepNames) {
        if (outcome.has(names.step))
            done.append(done.empty() ? "" : ", ").append(names.done);
    }
    std::string line = (done.empty() ? "copied" : done) + ": "
        + KXTextWithoutControlCharacters(outcome.target.substr(folder.size() + 1)) + " ("
        + std::to_string(outcome.size) + " bytes)";
    if (!outcome.remark.empty())
        line += ", " + outcome.remark;
    return line + '\n';
}

ProgressBar::Amount amountOf(std::vector<FoundFile> const& files)
{
    ProgressBar::Amount amount { .items = files.size(), .bytes = 0 };
    for (FoundFile const& file : files)
        amount.bytes += file.size;
    return amount;
}

}

PreparationReport::PreparationReport(
    std::vector<FoundFile> const& files, std::string folder, bool isJSON, Session& session)
    : _folder(std::move(folder))
    , _isJSON(isJSON)
    , _showsAll(!::isatty(STDOUT_FILENO) || !::isatty(STDERR_FILENO))
    , _session(session)
{
    _progress.emplace(session.standardError(), "files", amountOf(files));
}

void PreparationReport::count(PreparationOutcome const& outcome)
{
    ++_totals.files;
    _totals.failed += !outcome.isDone();
    _totals.bytesIn += outcome.sizeBefore;
    if (!outcome.isDone())
        return;
    _totals.converted += outcome.has(PreparationStep::conversion);
    _totals.covers += outcome.has(PreparationStep::coverInsertion);
    _totals.cleaned += outcome.has(PreparationStep::cleaning);
    _totals.bytesOut += outcome.size;
}

void PreparationReport::advance(PreparationOutcome const& outcome)
{
    _progress->advanceBy({ .items = 1, .bytes = outcome.sizeBefore });
}

void PreparationReport::add(PreparationOutcome const& outcome)
{
    count(outcome);
    if (!outcome.isDone())
        _session.reportError(outcome.source, outcome.error);
    if (_isJSON) {
        _session.write(jsonLine({ { "source", outcome.source }, { "target", outcome.target },
            { "processors", jsonOfSteps(outcome) }, { "sizeBefore", outcome.sizeBefore },
            { "predictedSize", outcome.predictedSize }, { "size", outcome.size },
            { "ok", outcome.isDone() },
            { "error", outcome.isDone() ? outcome.remark : outcome.error } }));
        return;
    }
    if (outcome.isDone() && (_showsAll || !outcome.remark.empty()))
        _session.write(lineOf(outcome, _folder));
}

void PreparationReport::finish()
{
    _progress.reset();
    double const seconds
        = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    if (_isJSON) {
        _session.write(jsonLine({ { "files", _totals.files }, { "failed", _totals.failed },
            { "converted", _totals.converted }, { "coversInserted", _totals.covers },
            { "cleaned", _totals.cleaned }, { "bytesIn", _totals.bytesIn },
            { "bytesOut", _totals.bytesOut }, { "seconds", seconds } }));
        return;
    }
    std::array<char, 256> text;
    std::snprintf(text.data(), text.size(),
        "%llu %s: %llu converted, %llu %s inserted, %llu cleaned, %llu failed; "
        "%llu bytes in, %llu bytes out, %.1f s\n",
        static_cast<unsigned long long>(_totals.files), _totals.files == 1 ? "file" : "files",
        static_cast<unsigned long long>(_totals.converted),
        static_cast<unsigned long long>(_totals.covers), _totals.covers == 1 ? "cover" : "covers",
        static_cast<unsigned long long>(_totals.cleaned),
        static_cast<unsigned long long>(_totals.failed),
        static_cast<unsigned long long>(_totals.bytesIn),
        static_cast<unsigned long long>(_totals.bytesOut), seconds);
    _session.write(text.data());
}
