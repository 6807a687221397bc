#include "Usage.h"

#include "Session.h"
#include "SizeArgument.h"

#include <kxmd/base/KXLog.h>
#include <kxmd/base/KXPrintableText.h>

#include <algorithm>
#include <utility>

namespace {

constexpr char literalMark = '\x01';

}

std::vector<std::string> literalArguments(int count, char** arguments)
{
    std::vector<std::string> literal(arguments + std::min(count, 1), arguments + count);
    for (auto& argument : literal) {
        if (argument.starts_with('[') || argument.starts_with(literalMark))
            argument.insert(argument.begin(), literalMark);
    }
    return literal;
}

std::string withoutLiteralMark(std::string text)
{
    if (text.starts_with(literalMark))
        text.erase(0, 1);
    return text;
}

std::string messageOfError(CLI::ParseError const& error)
{
    std::string message = error.what();
    std::erase(message, literalMark); // Before the arguments that it names.
    return KXTextWithoutControlCharacters(message);
}

CLI::App& addSubcommand(CLI::App& app, Session& session, std::string name, std::string description)
{
    CLI::App& command = *app.add_subcommand(std::move(name), std::move(description));
    addQuietFlag(command, session);
    return command;
}

void addQuietFlag(CLI::App& app, Session& session)
{
    auto const beQuiet = [&session] {
        KXSetLogSink({});
        session.standardError().hideStatus();
    };
    app.add_flag_callback("-q,--quiet", beQuiet, "Hide the library's log lines and the progress");
}

CLI::Option* addText(
    CLI::App& command, std::string const& name, std::string& text, std::string const& description)
{
    return addOptionalText(command, name, text, description)->required();
}

CLI::Option* addOptionalText(
    CLI::App& command, std::string const& name, std::string& text, std::string const& description)
{
    auto const take = [&text](std::string const& typed) { text = withoutLiteralMark(typed); };
    return command.add_option_function<std::string>(name, take, description)->type_name("");
}

void addFile(CLI::App& command, std::string& path, std::string const& description)
{
    addText(command, "FILE", path, description);
}

CLI::Option* addTexts(CLI::App& command, std::string const& name, std::string const& description)
{
    return command.add_option(name, description)
        ->expected(1, -1)
        ->allow_extra_args()
        ->type_name("")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->required();
}

std::vector<std::string> textsOf(CLI::Option const& texts)
{
    // Not converted by the parser, which would drop "{}".
    std::vector<std::string> typed = texts.results();
    std::ranges::transform(typed, typed.begin(), withoutLiteralMark);
    return typed;
}

CLI::Option* addFiles(CLI::App& command, std::string const& description)
{
    return addTexts(command, "FILE", description);
}

void addSize(CLI::App& command, KXSize& size)
{
    auto const take = [&size](std::string const& text) {
        auto const parsed = sizeFromArgument(text);
        if (!parsed)
            throw CLI::ValidationError("-s", "\"" + text + "\" is not a size, such as 256x256");
        size = *parsed;
    };
    command.add_option_function<std::string>("-s,--size", take, "Size in points, such as 256x256")
        ->type_name("WxH")
        ->required();
}

CLI::Option* addOutput(CLI::App& command, std::string& path, std::string const& description)
{
    auto const take = [&path](std::string const& typed) {
        path = withoutLiteralMark(typed);
        if (path.empty())
            throw CLI::ValidationError("-o", "names no file");
    };
    return command.add_option_function<std::string>("-o,--output", take, description)
        ->type_name("OUT");
}

void addRequiredOutput(CLI::App& command, std::string& path, std::string const& description)
{
    addOutput(command, path, description)->required();
}
