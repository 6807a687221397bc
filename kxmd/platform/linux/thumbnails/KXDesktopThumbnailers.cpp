#include "kxmd/platform/linux/thumbnails/KXDesktopThumbnailersPrivate.h"

#include "kxmd/base/KXFolder.h"
#include "kxmd/base/KXPath.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <algorithm>
#include <filesystem>
#include <glib.h>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

namespace files = std::filesystem;

constexpr char const* group = "Thumbnailer Entry";
constexpr std::size_t mostFiles = 1024; // In a folder.
constexpr std::uintmax_t longestFile = 64 * 1024;

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
struct FreeStrings {
    void operator()(gchar** strings) const { g_strfreev(strings); }
};
using Strings = std::unique_ptr<gchar*, FreeStrings>;

std::string stringForKey(GKeyFile& file, char const* key)
{
    GAllocated<gchar> const value(g_key_file_get_string(&file, group, key, nullptr));
    return value ? value.get() : "";
}

std::string pathOfProgram(std::string const& name)
{
    GAllocated<gchar> const path(g_find_program_in_path(name.c_str()));
    return path ? path.get() : "";
}

/// Whether a command runs kxmd, of whatever installation: asked by this library, it would ask the
/// desktop, and so itself, for the same file.
bool isOurOwn(std::string const& command)
{
    gchar** parsed = nullptr;
    if (!g_shell_parse_argv(command.c_str(), nullptr, &parsed, nullptr))
        return false;
    Strings const owner(parsed);
    for (gchar const* const* argument = parsed; *argument; ++argument) {
        if (KXLastPathComponent(*argument) == "kxmd") // Also "env kxmd".
            return true;
    }
    std::error_code ignored; // Then the path is empty.
    return files::canonical(pathOfProgram(*parsed), ignored).filename() == "kxmd";
}

/// Whether a command has a shell read the name of the file as its own words.
bool isGivenToAShell(gchar const* const* arguments)
{
    constexpr std::string_view shells[] { "sh", "bash", "dash", "ksh", "zsh", "csh", "tcsh",
        "fish" };
    bool isOfShell = false, isScript = false;
    for (gchar const* const* argument = arguments; *argument; ++argument) {
        std::string_view const word = *argument;
        if (isScript && (word.find("%i") != word.npos || word.find("%u") != word.npos))
            return true;
        isScript = isOfShell && word.starts_with('-') && word.ends_with('c');
        isOfShell
            = isOfShell || std::ranges::find(shells, KXLastPathComponent(word)) != std::end(shells);
    }
    return false;
}

/// An argument with its codes filled in; absent when it has a code that we do not know.
std::optional<std::string> filledIn(
    std::string_view argument, KXDesktopThumbnailers::Task const& task)
{
    std::string filled;
    for (std::size_t i = 0; i < argument.size(); ++i) {
        if (argument[i] != '%') {
            filled += argument[i];
            continue;
        }
        char const code = ++i < argument.size() ? argument[i] : '\0';
        if (code == 'u') {
            GAllocated<gchar> const address(g_filename_to_uri(task.path.c_str(), nullptr, nullptr));
            filled += address ? address.get() : "";
        } else if (code == 'i') {
            filled += task.path;
        } else if (code == 'o') {
            filled += task.outputPath;
        } else if (code == 's') {
            filled += std::to_string(task.sideLength);
        } else if (code == '%') {
            filled += '%';
        } else {
            return std::nullopt;
        }
    }
    return filled;
}

}

KXDesktopThumbnailers::KXDesktopThumbnailers(std::vector<std::string> folders)
    : _folders(std::move(folders))
{
}

void KXDesktopThumbnailers::readFile(std::string const& path) const
{
    std::unique_ptr<GKeyFile, FreeKeyFile> const file(g_key_file_new());
    if (!g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr))
        return;
    std::string const command = stringForKey(*file, "Exec");
    std::string const tested = stringForKey(*file, "TryExec");
    if (command.empty() || isOurOwn(command) || (!tested.empty() && pathOfProgram(tested).empty()))
        return;
    Strings const types(
        g_key_file_get_string_list(file.get(), group, "MimeType", nullptr, nullptr));
    for (gchar** type = types.get(); type && *type; ++type)
        _commands.emplace(*type, command);
}

void KXDesktopThumbnailers::readFolder(std::string const& folder) const
{
    std::set<std::string> paths; // In order, so that the same one is always taken.
    std::error_code ignored;
    for (std::string const& name : KXNamesInFolder(folder, ignored)) {
        files::path const path = files::path(folder) / name;
        if (paths.size() < mostFiles && path.extension() == ".thumbnailer"
            && files::is_regular_file(path, ignored)
            && files::file_size(path, ignored) <= longestFile)
            paths.insert(path);
    }
    for (auto const& path : paths)
        readFile(path);
}

void KXDesktopThumbnailers::readFoldersOnce() const
{
    std::call_once(_isRead, [this] {
        for (auto const& folder : _folders)
            readFolder(folder);
    });
}

std::vector<std::string> KXDesktopThumbnailers::contentTypes() const
{
    readFoldersOnce();
    std::vector<std::string> types;
    for (auto const& [type, command] : _commands) {
        if (!commandForType(type, {}).empty())
            types.push_back(type);
    }
    return types;
}

std::vector<std::string> KXDesktopThumbnailers::commandForType(
    std::string const& contentType, Task const& task) const
{
    readFoldersOnce();
    auto const found = _commands.find(contentType);
    gchar** parsed = nullptr;
    if (found == _commands.end()
        || !g_shell_parse_argv(found->second.c_str(), nullptr, &parsed, nullptr))
        return {};
    Strings const owner(parsed);
    if (isGivenToAShell(parsed))
        return {};
    std::vector<std::string> arguments;
    for (gchar** argument = parsed; *argument; ++argument) {
        auto filled = filledIn(*argument, task);
        if (!filled)
            return {};
        arguments.push_back(std::move(*filled));
    }
    arguments.front() = pathOfProgram(arguments.front());
    return arguments.front().empty() ? std::vector<std::string>() : arguments;
}
