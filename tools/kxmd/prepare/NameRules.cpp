#include "NameRules.h"

#include <kxmd/base/KXFolder.h>
#include <kxmd/base/KXGuarded.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

/// The folder in which names are being tried, if any.
struct TriedNames {
    std::string folder;
    bool areOver { false };
};

KXGuarded<TriedNames>& triedNames()
{
    static KXGuarded<TriedNames> shared;
    return shared;
}

/// A folder to try names in.
class Trial {
public:
    explicit Trial(std::string const& folder)
        : _path(folder + "/.kxmd-names")
        , _isMade(make() && takes("name"))
    {
    }
    ~Trial()
    {
        auto const tried = triedNames().lock();
        KXRemoveFolder(_path);
        tried->folder.clear();
    }
    Trial(Trial const&) = delete;
    Trial& operator=(Trial const&) = delete;

    /// Whether anything can be told.
    bool isMade() const { return _isMade; }

    /// Whether a file of that name can be made, and has just that name then.
    bool takes(std::string const& name) const
    {
        auto const tried = triedNames().lock(); // The process does not end in between.
        if (tried->areOver)
            return true;
        std::string const path = _path + '/' + name;
        int const file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (file < 0)
            return errno == ENOSPC || errno == EIO; // Not for its name.
        ::close(file);
        std::error_code ignored;
        auto const names = KXNamesInFolder(_path, ignored);
        ::unlink(path.c_str());
        return std::ranges::find(names, name) != names.end();
    }

    bool tellsCase() const
    {
        auto const tried = triedNames().lock();
        if (tried->areOver)
            return true;
        std::string const lower = _path + "/case", upper = _path + "/CASE";
        int const file = ::open(lower.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (file >= 0)
            ::close(file);
        bool const isSame = ::access(upper.c_str(), F_OK) == 0;
        ::unlink(lower.c_str());
        return !isSame;
    }

private:
    bool make() const
    {
        auto const tried = triedNames().lock();
        if (tried->areOver)
            return false;
        KXRemoveFolder(_path); // Of a run that was killed.
        tried->folder = _path;
        return ::mkdir(_path.c_str(), 0700) == 0;
    }

    std::string const _path;
    bool const _isMade;
};

}

void removeTriedNamesForGood()
{
    auto const tried = triedNames().lock();
    tried->areOver = true;
    if (!tried->folder.empty())
        KXRemoveFolder(tried->folder);
}

std::optional<NameRules> nameRulesOf(std::string const& folder)
{
    Trial const trial(folder);
    if (!trial.isMade())
        return std::nullopt;
    NameRules rules;
    for (char const candidate : NameRules::candidates) {
        if (!trial.takes(std::string("a") + candidate + "b"))
            rules.refused += candidate;
    }
    rules.refusesEnds = !trial.takes("dot.") || !trial.takes("space ");
    rules.refusesDevices = !trial.takes("con");
    rules.refusesBytes = !trial.takes("\xFF");
    rules.tellsCase = trial.tellsCase();
    if (long const longest = ::pathconf(folder.c_str(), _PC_NAME_MAX); longest > 0)
        rules.longest = static_cast<std::size_t>(longest);
    return rules;
}
