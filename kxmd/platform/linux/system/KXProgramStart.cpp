#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>

namespace {

/// Attributes of the process to be.
class Attributes {
public:
    explicit Attributes(bool isApart)
    {
        posix_spawnattr_init(&_attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&_attributes, &signals);
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (isApart) {
            sigfillset(&signals);
            flags |= POSIX_SPAWN_SETPGROUP; // Of its own: attributes begin with none.
        } else {
            sigaddset(&signals, SIGPIPE);
            sigaddset(&signals, SIGCHLD);
        }
        posix_spawnattr_setsigdefault(&_attributes, &signals);
        posix_spawnattr_setflags(&_attributes, static_cast<short>(flags));
    }
    ~Attributes() { posix_spawnattr_destroy(&_attributes); }
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;

    posix_spawnattr_t const* get() const { return &_attributes; }

private:
    posix_spawnattr_t _attributes;
};

/// Files of the process to be.
class FileActions {
public:
    FileActions(int target, int stream)
    {
        posix_spawn_file_actions_init(&_actions);
        // First of all: in a host that closed its standard files it may be one of these numbers.
        posix_spawn_file_actions_adddup2(&_actions, target, stream);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        int const other = stream == STDOUT_FILENO ? STDERR_FILENO : STDOUT_FILENO;
        posix_spawn_file_actions_addopen(&_actions, other, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&_actions, STDERR_FILENO + 1);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&_actions); }
    FileActions(FileActions const&) = delete;
    FileActions& operator=(FileActions const&) = delete;

    posix_spawn_file_actions_t const* get() const { return &_actions; }

private:
    posix_spawn_file_actions_t _actions;
};

/// As programs get their words: up to a null.
std::vector<char*> pointersTo(std::vector<std::string> const& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string const& word : words)
        pointers.push_back(const_cast<char*>(word.c_str())); // Only read.
    pointers.push_back(nullptr);
    return pointers;
}

/// Our environment with `variable` in place of another of its name.
std::vector<char*> environmentWith(std::string const& variable)
{
    std::string_view const assignment
        = std::string_view(variable).substr(0, variable.find('=') + 1);
    std::vector<char*> variables;
    for (char** ours = environ; ours && *ours; ++ours) {
        if (variable.empty() || !std::string_view(*ours).starts_with(assignment))
            variables.push_back(*ours);
    }
    if (!variable.empty())
        variables.push_back(const_cast<char*>(variable.c_str())); // Only read.
    variables.push_back(nullptr);
    return variables;
}

}

std::optional<pid_t> KXProgramStart::start() const
{
    auto const words = pointersTo(arguments);
    auto const variables = environment ? pointersTo(*environment) : environmentWith(variable);
    pid_t process;
    int const problem = ::posix_spawn(&process, words[0], FileActions(target, stream).get(),
        Attributes(isApart).get(), words.data(), variables.data());
    return problem == 0 ? std::optional(process) : std::nullopt;
}
