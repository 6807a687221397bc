// The kxmd command: looks into media files, shows them and prepares them, by means of the kxmd
// library.

#include "Commands.h"
#include "Desktop.h"
#include "Session.h"
#include "Suggestion.h"
#include "Terminal.h"
#include "Usage.h"
#include "prepare/NameRules.h"
#include "shared/AtomicFile.h"
#include "shared/TemporaryFolder.h"
#include "tools/shared/CleanUpOnSignal.h"
#include "tools/shared/StandardFiles.h"

#include <kxmd/base/KXLog.h>
#include <kxmd/base/KXPrintableText.h>
#include <kxmd/version.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <new>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

namespace {

constexpr std::array commands { &infoCommand, &atomsCommand, &framesCommand, &exifCommand,
    &thumbnailCommand, &compositeCommand, &iconCommand, &posterCommand, &cacheNameCommand,
    &coverCommand, &cleanCommand, &convertCommand, &prepareCommand, &sheetCommand, &doctorCommand };

constexpr char const* examples
    = R"(    kxmd info song.mp3                                what is in a file
    kxmd thumbnail film.mp4 -s 256x256 -o film.png    the picture that stands for it
    kxmd cover add song.m4a cover.jpg -o new.m4a      a copy of a song with a cover
    kxmd sheet ~/Music -o music.html                  a page that shows a collection
    kxmd prepare ~/Music/ --to /media/phone/Music -n  what would be prepared for a phone)";

std::string footerWith(char const* commandLines)
{
    return std::string("Examples:\n") + commandLines;
}

void cleanUp(Session& session)
{
    // A signal to all of our group ends converters as well, which is no fault of their files.
    session.standardError().fallSilent();
    removeTemporaryFoldersForGood();
    removePartsForGood();
    removeTriedNamesForGood();
}

/// The one subcommand that a command line can lead to: that of its first argument. Null where this
/// is none, as for a flag; then it takes all of them to tell what is meant, or what there is.
Command const* onlyCommand(std::vector<std::string> const& arguments)
{
    auto const found = std::ranges::find_if(commands, [&](Command const* command) {
        return !arguments.empty() && arguments[0] == command->name;
    });
    return found == commands.end() ? nullptr : *found;
}

/// Adds the subcommands that `arguments` may lead to. Once one that writes files is about to be
/// read, while there is no other thread, `cleanUpOnSignal` begins to wait for signals.
void addCommands(CLI::App& app, std::vector<std::string> const& arguments, Session& session,
    std::optional<CleanUpOnSignal>& cleanUpOnSignal)
{
    Command const* const only = onlyCommand(arguments);
    app.set_version_flag("--version", std::string("kxmd ") + KXVersion());
    addQuietFlag(app, session);
    app.footer(footerWith(examples));
    app.require_subcommand(0, 1); // A missing one is reported later, after unexpected arguments.
    for (Command const* const command : commands) {
        if (only && command != only)
            continue; // To make the options of all takes longer than to look into a file.
        CLI::App& added = addSubcommand(app, session, command->name, command->description);
        added.group(command->group);
        added.footer(footerWith(command->examples)); // Which those below it get as well.
        command->addOptions(added, session);
        if (command->nature == Command::Nature::writes)
            added.preparse_callback([&session, &cleanUpOnSignal](std::size_t) {
                cleanUpOnSignal.emplace([&session] { cleanUp(session); });
            });
    }
}

void parse(CLI::App& app, std::vector<std::string> arguments)
{
    std::ranges::reverse(arguments); // In the order that the parser wants.
    app.parse(std::move(arguments));
    if (app.get_subcommands().empty())
        throw CLI::RequiredError("A subcommand");
}

/// Sends the library's log lines where the command's errors go, in the form that they have anyway:
/// above the status of a long run.
void showLog(StandardError& standardError)
{
    KXSetLogSink([&standardError](std::string_view category, std::string_view text) {
        std::string line;
        line.append("[").append(category).append("] ");
        line.append(KXTextWithoutControlCharacters(text)).append("\n");
        standardError.writeLines(line);
    });
}

/// The command with the subcommands that the command line names, as far as it was understood.
std::string commandIn(CLI::App const& app)
{
    auto const next = app.get_subcommands();
    return next.empty() ? app.get_name() : app.get_name() + ' ' + commandIn(*next.front());
}

/// Help and version are results; everything else that ends the parsing is wrong usage.
ExitStatus answer(CLI::App const& app, CLI::ParseError const& error, Session& session)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        std::ostringstream text;
        app.exit(error, text, text);
        session.write(helpInColours(text.str()));
        session.finish();
        return session.exitStatus();
    }
    std::string message
        = emphasised("kxmd:", Emphasis::failure, Stream::error) + ' ' + messageOfError(error);
    if (std::string const meant = suggestionFor(app); !meant.empty())
        message += ". Did you mean \"" + meant + "\"?";
    message += "\nTry \"" + commandIn(app) + " --help\" for more.\n";
    std::fwrite(message.data(), 1, message.size(), stderr);
    return ExitStatus::wrongUsage;
}

int run(int argumentCount, char** arguments)
{
    Session session;
    showLog(session.standardError());
    CLI::App app("Look into media files, show them and prepare them for a phone.", "kxmd");
    std::optional<CleanUpOnSignal> cleanUpOnSignal; // Ends before the session.
    auto literal = literalArguments(argumentCount, arguments);
    addCommands(app, literal, session, cleanUpOnSignal);
    try {
        parse(app, std::move(literal));
    } catch (CLI::ParseError const& error) {
        return static_cast<int>(answer(app, error, session));
    }
    session.finish();
    return static_cast<int>(session.exitStatus());
}

}

int main(int argumentCount, char** arguments)
{
    openMissingStandardFiles();
    std::signal(SIGPIPE, SIG_IGN); // A reader that goes away is a failed write, not the end of us,
    std::signal(SIGXFSZ, SIG_IGN); // and so is a file that outgrows its limit.
    std::signal(SIGCHLD, SIG_DFL); // Else a converter's exit status is lost.
    try {
        return run(argumentCount, arguments);
    } catch (std::bad_alloc const&) { // What was begun is undone by now.
        std::fputs("kxmd: there is not enough memory\n", stderr);
    } catch (MissingModule const& missing) {
        std::fprintf(stderr, "kxmd: %s\n", missing.what());
    }
    return static_cast<int>(ExitStatus::someFileFailed);
}
