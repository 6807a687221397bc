#include "kxmd/platform/linux/KXLinuxTaskRunnerPrivate.h"

#include "kxmd/platform/linux/KXLibraryFolderPrivate.h"

#include <cerrno>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

constexpr std::string_view converter = "/usr/bin/afconvert";

/// The program that is run for `path`.
std::string programForPath(std::string const& path)
{
    bool const isMissing = path == converter && ::access(path.c_str(), X_OK) != 0;
    return isMissing ? pathBesideLibrary(KXMD_CONVERTER) : path;
}

}

std::optional<int> KXLinuxTaskRunner::runToolAtPath(
    std::string const& path, std::vector<std::string> const& arguments) const
{
    std::string program = programForPath(path);
    std::vector<char*> words { program.data() };
    for (std::string const& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str())); // Copied before it could be changed.
    words.push_back(nullptr);
    pid_t child;
    if (::posix_spawn(&child, program.c_str(), nullptr, nullptr, words.data(), environ) != 0)
        return std::nullopt;
    int status;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return std::nullopt;
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}
