#include "FileWalk.h"

#include "Session.h"

#include <kxmd/base/KXFolder.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

class Walk {
public:
    Walk(std::vector<std::string> const& paths, fs::path leftOut, Links links, Session& session)
        : _leftOut(std::move(leftOut))
        , _links(links)
        , _session(session)
    {
        std::error_code ignored; // What is not there is reported when it is searched.
        for (std::string const& path : paths)
            _searched.push_back(fs::canonical(path, ignored));
    }

    void addPath(fs::path const& path)
    {
        std::error_code error;
        if (fs::equivalent(path, _leftOut, error))
            _session.reportError(path.string(), "is the folder that is written to");
        else if (fs::is_directory(path, error))
            addFolder(path);
        else
            addFile(path, path.filename().string());
    }

    std::vector<FoundFile> takeFiles() { return std::move(_files); }

private:
    struct Pending {
        fs::directory_entry entry;
        std::string relativePath;
    };

    void addFolder(fs::path const& folder)
    {
        std::vector<Pending> pending; // The next one last.
        pushEntriesOf(folder, "", pending);
        while (!pending.empty()) {
            Pending const next = std::move(pending.back());
            pending.pop_back();
            std::error_code ignored;
            bool const isLink = next.entry.is_symlink(ignored);
            if (next.entry.is_directory(ignored)) {
                if (!isLink || _links == Links::all)
                    pushEntriesOf(next.entry.path(), next.relativePath + '/', pending);
            } else if (isLink && next.entry.exists(ignored) && !isFollowed(next.entry.path())) {
                _session.reportError(
                    next.entry.path().string(), "is a link to a file elsewhere, and not followed");
            } else {
                addFile(next.entry.path(), next.relativePath);
            }
        }
    }

    bool isFollowed(fs::path const& link) const
    {
        std::error_code error;
        auto const file = fs::canonical(link, error);
        return _links == Links::all
            || std::ranges::any_of(_searched, [&file](fs::path const& searched) {
                   auto const differing = std::ranges::mismatch(searched, file);
                   return !searched.empty() && differing.in1 == searched.end();
               });
    }

    /// Whether a folder was not entered by now: links may lead back to one.
    bool isNew(fs::path const& folder)
    {
        struct stat status;
        return ::stat(folder.c_str(), &status) != 0
            || _entered.emplace(status.st_dev, status.st_ino).second;
    }

    void pushEntriesOf(
        fs::path const& folder, std::string const& prefix, std::vector<Pending>& pending)
    {
        std::error_code error;
        if (fs::equivalent(folder, _leftOut, error) || (_links == Links::all && !isNew(folder)))
            return;
        std::vector<Pending> entries;
        for (std::string const& name : KXNamesInFolder(folder, error)) {
            std::error_code ignored; // Told when it is looked at.
            Pending& found = entries.emplace_back();
            found.relativePath = prefix + name;
            found.entry.assign(folder / name, ignored); // Keeps the path of what it cannot see.
        }
        if (error)
            _session.reportError(folder.string(), error.message());
        std::ranges::sort(entries, std::greater(), &Pending::relativePath);
        std::ranges::move(entries, std::back_inserter(pending));
    }

    void addFile(fs::path const& path, std::string relativePath)
    {
        std::error_code error;
        auto const status = fs::status(path, error);
        if (!fs::is_regular_file(status)) {
            _session.reportError(path.string(), error ? error.message() : "is not a regular file");
            return;
        }
        auto const size = fs::file_size(path, error);
        _files.push_back({ path.string(), std::move(relativePath), error ? 0 : size });
    }

    std::vector<fs::path> _searched; ///< Without links; empty where there is nothing.
    fs::path const _leftOut;
    Links const _links;
    std::set<std::pair<dev_t, ino_t>> _entered;
    Session& _session;
    std::vector<FoundFile> _files;
};

}

std::vector<FoundFile> foundFiles(std::vector<std::string> const& paths, std::string const& leftOut,
    Links links, Session& session)
{
    Walk walk(paths, leftOut, links, session);
    for (std::string const& path : paths)
        walk.addPath(path);
    return walk.takeFiles();
}
