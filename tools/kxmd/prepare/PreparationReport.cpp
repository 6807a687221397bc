#include "PreparationReport.h"

#include "Preparation.h"
#include "tools/kxmd/JSONLine.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/Terminal.h"

#include <kxmd/base/KXPrintableText.h>

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
    std::string_view wouldBeDone;
};

constexpr std::array<StepNames, 3> stepNames { {
    { PreparationStep::conversion, "KXMDFileProcessorConvertALAC", "converted", "convert" },
    { PreparationStep::cleaning, "KXMDFileProcessorCleanIPhoneVideo", "cleaned", "clean" },
    { PreparationStep::coverInsertion, "KXMDFileProcessorAddAlbumCover", "cover inserted",
        "insert a cover" },
} };

std::string_view nameOf(PreparationAction action)
{
    switch (action) {
    case PreparationAction::converted:
        return "converted";
    case PreparationAction::edited:
        return "edited";
    case PreparationAction::copied:
        return "copied";
    case PreparationAction::unchanged:
        return "unchanged";
    case PreparationAction::renamed:
        return "renamed";
    case PreparationAction::deleted:
        return "deleted";
    case PreparationAction::failed:
        break;
    }
    return "failed";
}

JSON jsonOfSteps(PreparationOutcome const& outcome)
{
    JSON processors = JSON::array();
    for (StepNames const& names : stepNames) {
        if (outcome.has(names.step))
            processors.push_back(names.processor);
    }
    return processors;
}

/// Such as "converted, cover inserted", or "would convert, insert a cover".
std::string stepsOf(PreparationOutcome const& outcome, bool isDryRun)
{
    std::string done;
    for (StepNames const& names : stepNames) {
        if (outcome.has(names.step))
            done.append(done.empty() ? "" : ", ").append(isDryRun ? names.wouldBeDone : names.done);
    }
    return isDryRun ? "would " + done : done;
}

std::string_view inWords(PreparationAction action, bool isDryRun)
{
    switch (action) {
    case PreparationAction::unchanged:
        return "unchanged";
    case PreparationAction::renamed:
        return isDryRun ? "would rename" : "renamed";
    case PreparationAction::deleted:
        return isDryRun ? "would remove" : "removed";
    default:
        return isDryRun ? "would copy" : "copied";
    }
}

std::string counted(std::uint64_t count, std::string_view one, std::string_view many)
{
    return std::to_string(count) + ' ' + std::string(count == 1 ? one : many);
}

}

PreparationReport::PreparationReport(
    std::string folder, Style style, ProgressBar::Amount toWorkOn, Session& session)
    : _folder(std::move(folder))
    , _style(style)
    , _showsAll(!::isatty(STDOUT_FILENO) || !::isatty(STDERR_FILENO))
    , _session(session)
{
    _progress.emplace(session.standardError(), "files", toWorkOn);
}

void PreparationReport::count(PreparationOutcome const& outcome)
{
    if (outcome.isRemoval) {
        _totals.removed += outcome.isDone();
        _totals.failed += !outcome.isDone();
        return;
    }
    ++_totals.files;
    _totals.failed += !outcome.isDone();
    _totals.unchanged += outcome.action == PreparationAction::unchanged;
    _totals.renamed += outcome.action == PreparationAction::renamed;
    if (outcome.isKept())
        return;
    _totals.bytesIn += outcome.sizeBefore;
    if (!outcome.isDone())
        return;
    _totals.converted += outcome.has(PreparationStep::conversion);
    _totals.covers += outcome.has(PreparationStep::coverInsertion);
    _totals.cleaned += outcome.has(PreparationStep::cleaning);
    _totals.leftAsTheyWere += outcome.isLeftAsItWas;
    _totals.bytesOut += outcome.size;
}

void PreparationReport::advance(PreparationOutcome const& outcome)
{
    _progress->advanceBy({ .items = 1, .bytes = outcome.sizeBefore });
}

std::string PreparationReport::objectOf(PreparationOutcome const& outcome) const
{
    JSON object = JSON::object();
    addPath(object, "source", "pathBytes", outcome.source);
    addPath(object, "target", "targetBytes", outcome.target);
    object["action"] = (_style.isDryRun ? "would-" : "") + std::string(nameOf(outcome.action));
    object["processors"] = jsonOfSteps(outcome);
    object["sizeBefore"] = outcome.sizeBefore;
    object["predictedSize"] = outcome.predictedSize;
    object["size"] = outcome.size;
    object["ok"] = outcome.isDone();
    // A remark on a file that is there has always stood here as well.
    object["error"] = outcome.isDone() ? outcome.remark : outcome.error;
    object["remark"] = outcome.remark;
    return jsonLine(object);
}

std::string PreparationReport::wordsOf(PreparationOutcome const& outcome) const
{
    return outcome.steps.empty() ? std::string(inWords(outcome.action, _style.isDryRun))
                                 : stepsOf(outcome, _style.isDryRun);
}

SheetEntry PreparationReport::pageEntryOf(PreparationOutcome const& outcome) const
{
    SheetEntry entry { .name = outcome.target.substr(_folder.size() + 1),
        .done = outcome.isDone() ? wordsOf(outcome) : "failed",
        .remark = outcome.isDone() ? outcome.remark : outcome.error,
        .isFailed = !outcome.isDone() };
    bool const isThere = outcome.isDone() && !_style.isDryRun;
    if (!outcome.isRemoval || !outcome.isDone())
        entry.path = isThere || outcome.isRemoval ? outcome.target : outcome.source;
    return entry;
}

/// What was done to a file, in words: "converted, cover inserted: Album/Song.m4a (1234 bytes)".
std::string PreparationReport::lineOf(PreparationOutcome const& outcome) const
{
    bool const isChange = !outcome.steps.empty() || outcome.isRemoval;
    std::string const words = wordsOf(outcome) + ':';
    std::string line = (isChange ? emphasised(words, Emphasis::change) : words) + ' '
        + KXTextWithoutControlCharacters(outcome.target.substr(_folder.size() + 1)) + " ("
        + std::to_string(outcome.size) + " bytes)";
    if (!outcome.remark.empty())
        line += ", " + emphasised(KXTextWithoutControlCharacters(outcome.remark), Emphasis::remark);
    return line + '\n';
}

void PreparationReport::add(PreparationOutcome const& outcome)
{
    count(outcome);
    if (_style.hasPage)
        _pageEntries.push_back(pageEntryOf(outcome));
    if (!outcome.isDone())
        _session.reportError(outcome.isRemoval ? outcome.target : outcome.source, outcome.error);
    if (_style.isJSON)
        _session.write(objectOf(outcome));
    else if (outcome.isDone() && (_showsAll || !outcome.remark.empty()))
        _session.write(lineOf(outcome));
}

std::string PreparationReport::summaryObject(End const& end, double seconds) const
{
    JSON object = { { "files", _totals.files }, { "unchanged", _totals.unchanged },
        { "renamed", _totals.renamed }, { "converted", _totals.converted },
        { "coversInserted", _totals.covers }, { "cleaned", _totals.cleaned },
        { "leftAsTheyWere", _totals.leftAsTheyWere }, { "failed", _totals.failed },
        { "removed", _totals.removed }, { "skipped", end.skipped }, { "bytesIn", _totals.bytesIn },
        { "bytesOut", _totals.bytesOut }, { "seconds", seconds } };
    if (end.needed)
        object["bytesNeeded"] = *end.needed;
    if (end.available)
        object["bytesAvailable"] = *end.available;
    return jsonLine(object);
}

std::string PreparationReport::summary(End const& end, double seconds) const
{
    std::string text
        = (_style.isDryRun ? "dry run, " : "") + counted(_totals.files, "file", "files") + ": ";
    auto const add = [&text](std::uint64_t count, std::string_view what) {
        if (count)
            text += std::to_string(count) + ' ' + std::string(what) + ", ";
    };
    add(_totals.unchanged, "unchanged");
    add(_totals.renamed, "renamed");
    text += std::to_string(_totals.converted) + " converted, "
        + counted(_totals.covers, "cover", "covers") + " inserted, "
        + std::to_string(_totals.cleaned) + " cleaned, ";
    add(_totals.leftAsTheyWere,
        _totals.leftAsTheyWere == 1 ? "left as it was" : "left as they were");
    add(_totals.removed, "removed");
    add(end.skipped, "skipped");
    std::array<char, 32> time;
    std::snprintf(time.data(), time.size(), "%.1f s", seconds);
    text += std::to_string(_totals.failed) + " failed; " + std::to_string(_totals.bytesIn)
        + " bytes in, " + std::to_string(_totals.bytesOut) + " bytes out, " + time.data() + '\n';
    if (end.needed && end.available)
        text += std::to_string(*end.needed) + " bytes needed, " + std::to_string(*end.available)
            + " bytes free" + (*end.needed > *end.available ? ": not enough\n" : "\n");
    return text;
}

void PreparationReport::finish(End const& end)
{
    _progress.reset();
    double const seconds
        = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    _session.write(_style.isJSON ? summaryObject(end, seconds) : summary(end, seconds));
}
