#include "FileWalk.h"

#include "Session.h"

#include <kxmd/base/KXFolder.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

/// The name that a folder has by the path that was typed; none for "..", "/", and a path that ends
/// with a slash.
std::string nameOfFolder(fs::path const& typed)
{
    std::string name = typed.filename().string();
    return name == "." || name == ".." ? "" : name;
}

class Walk {
public:
    Walk(std::vector<std::string> const& paths, WalkOptions const& options, Session& session)
        : _options(options)
        , _session(session)
    {
        struct stat status;
        if (!options.leftOut.empty() && ::stat(options.leftOut.c_str(), &status) == 0)
            _leftOut = identityOf(status);
        std::error_code ignored; // What is not there is reported when it is searched.
        for (std::string const& path : paths)
            _searched.push_back(fs::canonical(path, ignored));
    }

    void addPath(std::string const& path)
    {
        struct stat status;
        std::size_t const before = _found.files.size();
        if (::stat(path.c_str(), &status) != 0)
            skip(path, std::strerror(errno));
        else if (isLeftOut(status))
            skip(path, "is the folder that is written to");
        else if (S_ISDIR(status.st_mode))
            addFolder(path, status);
        else
            addFile(path, fs::path(path).filename().string(), status);
        _found.isWhole = _found.isWhole && _found.files.size() > before;
    }

    FoundFiles takeFound() { return std::move(_found); }

private:
    struct Pending {
        std::string path;
        std::string relativePath;
    };

    void addFolder(std::string const& folder, struct stat const& status)
    {
        std::vector<Pending> pending; // The next one last.
        std::string const name = _options.keepsNames ? nameOfFolder(folder) : "";
        pushEntriesOf(folder, name.empty() ? "" : name + '/', status, pending);
        while (!pending.empty()) {
            Pending const next = std::move(pending.back());
            pending.pop_back();
            addEntry(next, pending);
        }
    }

    void addEntry(Pending const& entry, std::vector<Pending>& pending)
    {
        struct stat status;
        if (::lstat(entry.path.c_str(), &status) != 0)
            return skipUnreadable(entry.path);
        bool const isLink = S_ISLNK(status.st_mode);
        if (isLink && ::stat(entry.path.c_str(), &status) != 0) {
            _found.unseen.push_back(entry.path);
            return skip(entry.path, std::strerror(errno));
        }
        bool const isFolder = S_ISDIR(status.st_mode);
        if (isLink && isFolder && _options.links != Links::all)
            return skipLinkToFolder(entry.path);
        if (isLink && !isFolder && !isFollowed(entry.path))
            return skip(entry.path, "is a link to a file elsewhere, and not followed");
        if (isFolder)
            pushEntriesOf(entry.path, entry.relativePath + '/', status, pending);
        else
            addFile(entry.path, entry.relativePath, status);
    }

    bool isFollowed(fs::path const& link) const
    {
        std::error_code error;
        auto const file = fs::canonical(link, error);
        return _options.links == Links::all
            || std::ranges::any_of(_searched, [&file](fs::path const& searched) {
                   auto const differing = std::ranges::mismatch(searched, file);
                   return !searched.empty() && differing.in1 == searched.end();
               });
    }

    bool isLeftOut(struct stat const& status) const { return identityOf(status) == _leftOut; }

    /// Whether a folder was not entered by now: links may lead back to one.
    bool isNew(struct stat const& status)
    {
        return _options.links != Links::all || _entered.insert(identityOf(status)).second;
    }

    void pushEntriesOf(std::string const& folder, std::string const& prefix,
        struct stat const& status, std::vector<Pending>& pending)
    {
        if (isLeftOut(status) || !isNew(status))
            return;
        std::error_code error;
        auto names = KXNamesInFolder(folder, error);
        if (error) {
            skip(folder, error.message());
            _found.isWhole = false;
            _found.unseen.push_back(folder);
        }
        std::ranges::sort(names, std::greater());
        std::string const start = folder.ends_with('/') ? folder : folder + '/';
        if (_options.sawFolder)
            _options.sawFolder(start.substr(0, start.size() - 1), names);
        for (std::string const& name : names) {
            std::string relativePath = prefix + name;
            if (!_options.isWanted || _options.isWanted(relativePath))
                pending.push_back({ start + name, std::move(relativePath) });
        }
    }

    void addFile(std::string const& path, std::string relativePath, struct stat const& status)
    {
        if (!S_ISREG(status.st_mode))
            return skip(path, "is not a regular file");
        _found.files.push_back({ .path = path,
            .relativePath = std::move(relativePath),
            .size = static_cast<std::uint64_t>(status.st_size),
            .modified = modificationTimeOf(status),
            .identity = identityOf(status) });
    }

    /// People keep such links by intent, so it is no failure that they are not followed.
    void skipLinkToFolder(std::string const& path)
    {
        _session.reportRemark(path, "is a link to a folder, and not followed");
        ++_found.skipped;
    }

    void skipUnreadable(std::string const& path)
    {
        _found.isWhole = false;
        skip(path, std::strerror(errno));
    }

    void skip(std::string const& path, std::string const& problem)
    {
        _session.reportError(path, problem);
        ++_found.skipped;
    }

    WalkOptions const& _options;
    std::vector<fs::path> _searched; ///< Without links; empty where there is nothing.
    std::optional<FileIdentity> _leftOut;
    std::set<FileIdentity> _entered;
    Session& _session;
    FoundFiles _found;
};

}

FoundFiles foundFiles(
    std::vector<std::string> const& paths, WalkOptions const& options, Session& session)
{
    Walk walk(paths, options, session);
    for (std::string const& path : paths)
        walk.addPath(path);
    return walk.takeFound();
}
