#pragma once

#include <kxmd/base/KXSize.h>

#include <CLI/App.hpp>

#include <string>
#include <vector>

class Session;

/// What is wrong with the command line, in one line.
std::string messageOfError(CLI::ParseError const& error);

/// A subcommand with the options that each of them has.
CLI::App& addSubcommand(CLI::App& app, Session& session, std::string name, std::string description);

/// The flag that leaves nothing but errors on standard error: no log lines, no progress.
void addQuietFlag(CLI::App& app, Session& session);

/// The arguments of the command line, first to last, such that the parser takes each as one text.
/// It would read "[Live]" as a list of one element, and a folder of music may well be named so.
std::vector<std::string> literalArguments(int count, char** arguments);

/// `text` without the mark that `literalArguments` may have put in front.
std::string withoutLiteralMark(std::string text);

/// A text that a subcommand asks for, taken as it was typed.
CLI::Option* addText(
    CLI::App& command, std::string const& name, std::string& text, std::string const& description);

/// The same for one that may be left out.
CLI::Option* addOptionalText(
    CLI::App& command, std::string const& name, std::string& text, std::string const& description);

/// The one path that a subcommand asks for.
void addFile(CLI::App& command, std::string& path, std::string const& description);

/// One text or more; `textsOf` tells them, as they were typed, once the command line is parsed.
CLI::Option* addTexts(CLI::App& command, std::string const& name, std::string const& description);
std::vector<std::string> textsOf(CLI::Option const& texts);

/// One path or more.
CLI::Option* addFiles(CLI::App& command, std::string const& description);

/// The file that a subcommand writes its result to, if one is named.
CLI::Option* addOutput(CLI::App& command, std::string& path, std::string const& description);

/// The file that a subcommand must be told to write its result to.
void addRequiredOutput(CLI::App& command, std::string& path, std::string const& description);

/// The size in points that a subcommand asks for.
void addSize(CLI::App& command, KXSize& size);
