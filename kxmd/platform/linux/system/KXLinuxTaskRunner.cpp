#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"

#include "kxmd/platform/linux/system/KXLibraryFolderPrivate.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::string_view converter = "/usr/bin/afconvert";

/// Attributes of the process to be. The thread that starts it may block signals for reasons of its
/// own, and its host may ignore broken pipes; the program expects neither.
class Attributes {
public:
    Attributes()
    {
        posix_spawnattr_init(&_attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&_attributes, &signals);
        sigaddset(&signals, SIGPIPE);
        posix_spawnattr_setsigdefault(&_attributes, &signals);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { posix_spawnattr_destroy(&_attributes); }
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;

    posix_spawnattr_t const* get() const { return &_attributes; }

private:
    posix_spawnattr_t _attributes;
};

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
        words.push_back(const_cast<char*>(argument.c_str())); // Only read.
    words.push_back(nullptr);
    pid_t child;
    if (::posix_spawn(&child, program.c_str(), nullptr, Attributes().get(), words.data(), environ)
        != 0)
        return std::nullopt;
    int status;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return std::nullopt; // Taken away by a host that does not care for its children's ends.
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}
