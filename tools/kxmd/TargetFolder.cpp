#include "TargetFolder.h"

#include "Session.h"
#include "Targets.h"
#include "Usage.h"
#include "prepare/Manifest.h"

#include <CLI/Validators.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;

std::string withoutSlashesAtEnd(std::string folder)
{
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return folder;
}

}

CLI::Option* addTargetFolder(CLI::App& command, std::string& folder, std::string const& description)
{
    auto const take = [&folder](std::string const& typed) {
        folder = withoutSlashesAtEnd(withoutLiteralMark(typed));
        if (folder.empty())
            throw CLI::ValidationError("--to", "is empty");
    };
    return command.add_option_function<std::string>("--to", take, description)->type_name("FOLDER");
}

void addJobs(CLI::App& command, unsigned& jobs)
{
    command.add_option("-j,--jobs", jobs, "Files to work on at once (default: cores)")
        ->type_name("N")
        ->check(CLI::Range(1u, mostJobs).description(""));
}

bool makeTargetFolder(std::string const& folder, Session& session)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        session.reportError(folder, error.message());
    return !error;
}

bool isWritableFolder(std::string const& folder, Session& session, bool isDryRun)
{
    if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 || errno == ENOENT)
        return true;
    int const error = errno;
    std::string tried = folder + '/' + std::string(Manifest::prefix) + "XXXXXX";
    if (!isDryRun && ::mkdtemp(tried.data())) {
        ::rmdir(tried.c_str());
        return true;
    }
    session.reportError(folder, std::strerror(error));
    return false;
}

bool makeFoldersOf(std::vector<std::string> const& paths, std::string const& folder,
    Targets& targets, Session& session)
{
    bool isAnyNew = false;
    fs::path last;
    for (std::string const& path : paths) {
        fs::path const parent = fs::path(path).parent_path();
        if (parent == last)
            continue;
        std::error_code error;
        isAnyNew |= fs::create_directories(parent, error);
        if (error) // Its files only find that they have no folder.
            session.reportError(parent.string(), error.message());
        last = parent;
    }
    std::string const error = isAnyNew ? targets.sync() : "";
    if (!error.empty())
        session.reportError(folder, error);
    return error.empty();
}
