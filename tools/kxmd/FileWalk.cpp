#include "FileWalk.h"

#include "Session.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

class Walk {
public:
    Walk(fs::path leftOut, Session& session)
        : _leftOut(std::move(leftOut))
        , _session(session)
    {
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
            if (next.entry.is_directory(ignored) && !next.entry.is_symlink(ignored))
                pushEntriesOf(next.entry.path(), next.relativePath + '/', pending);
            else if (!next.entry.is_directory(ignored))
                addFile(next.entry.path(), next.relativePath);
        }
    }

    void pushEntriesOf(
        fs::path const& folder, std::string const& prefix, std::vector<Pending>& pending)
    {
        std::error_code error;
        if (fs::equivalent(folder, _leftOut, error))
            return;
        std::vector<Pending> entries;
        fs::directory_iterator entry(folder, error);
        for (; !error && entry != fs::directory_iterator(); entry.increment(error))
            entries.push_back({ *entry, prefix + entry->path().filename().string() });
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

    fs::path const _leftOut;
    Session& _session;
    std::vector<FoundFile> _files;
};

}

std::vector<FoundFile> foundFiles(
    std::vector<std::string> const& paths, std::string const& leftOut, Session& session)
{
    Walk walk(leftOut, session);
    for (std::string const& path : paths)
        walk.addPath(path);
    return walk.takeFiles();
}
