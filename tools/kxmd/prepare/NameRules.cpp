#include "NameRules.h"

#include "NearestFolder.h"

#include <kxmd/base/KXFolder.h>
#include <kxmd/base/KXGuarded.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <linux/magic.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
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

// Kinds of file systems, as statfs(2) tells them, that <linux/magic.h> does not know everywhere.
constexpr std::uint32_t exFAT = 0x2011BAB0;
constexpr std::uint32_t bcachefs = 0xCA451A4E;
constexpr std::uint32_t zfs = 0x2FC12FC1;

constexpr std::array<std::uint32_t, 2> kindsOfCards { MSDOS_SUPER_MAGIC, exFAT };
/// They take every name.
constexpr std::array<std::uint32_t, 9> kindsOfDisks { EXT4_SUPER_MAGIC, BTRFS_SUPER_MAGIC,
    XFS_SUPER_MAGIC, F2FS_SUPER_MAGIC, TMPFS_MAGIC, OVERLAYFS_SUPER_MAGIC, REISERFS_SUPER_MAGIC,
    bcachefs, zfs };

}

NameRules nameRulesOfCards()
{
    return { .refused = std::string(NameRules::candidates),
        .refusesEnds = true,
        .refusesBytes = true,
        .tellsCase = false };
}

std::optional<NameRules> nameRulesByKindOf(std::string const& folder)
{
    struct statfs status;
    if (::statfs(nearestFolder(folder).c_str(), &status) != 0)
        return std::nullopt;
    auto const kind = static_cast<std::uint32_t>(status.f_type); // Sign-extended by some systems.
    if (std::ranges::find(kindsOfCards, kind) != kindsOfCards.end())
        return nameRulesOfCards();
    bool const isDisk = std::ranges::find(kindsOfDisks, kind) != kindsOfDisks.end();
    return isDisk ? std::optional(NameRules()) : std::nullopt;
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
