#include "Manifest.h"

#include "ManifestLine.h"
#include "shared/AtomicFile.h"
#include "shared/RangeCopy.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr mode_t permissions = 0600; // It tells where its owner keeps files.

/// An open file.
class Descriptor {
public:
    Descriptor(std::string const& path, int flags)
        : _file(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, permissions))
    {
    }
    ~Descriptor()
    {
        if (_file >= 0)
            ::close(_file);
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    bool isOpen() const { return _file >= 0; }
    bool isFile() const
    {
        struct stat status;
        return ::fstat(_file, &status) == 0 && S_ISREG(status.st_mode);
    }
    int get() const { return _file; }

private:
    int const _file;
};

/// All that is in a file; false, `errno` tells why, when it cannot be read.
bool readAll(int file, std::string& text)
{
    std::array<char, 64 * 1024> piece;
    for (;;) {
        ssize_t const count = ::read(file, piece.data(), piece.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count == 0)
            return true;
        if (count > 0)
            text.append(piece.data(), static_cast<std::size_t>(count));
    }
}

std::span<std::uint8_t const> bytesOf(std::string const& text)
{
    return { reinterpret_cast<std::uint8_t const*>(text.data()), text.size() };
}

/// Whether a path stays below the folder that it is meant for: it is followed, and its file
/// removed.
bool isBelow(std::string_view path)
{
    auto const components = KXPathComponents(path);
    return !path.empty() && path.front() != '/' && path.find('\0') == std::string_view::npos
        && std::ranges::none_of(components,
            [](std::string_view component) { return component == ".." || component == "."; });
}

/// Puts `entry` into `entries` in place of the one that has the same text there, which it gives
/// back; null without one.
Manifest::Entry put(Manifest::Entry const& entry, auto& entries)
{
    auto const [place, isNew] = entries.insert(entry);
    if (isNew)
        return nullptr;
    auto node = entries.extract(place);
    auto former = std::exchange(node.value(), entry);
    entries.insert(std::move(node));
    return former;
}

/// How many folders a relative path names.
auto foldersIn(std::string_view path) { return std::ranges::count(path, '/'); }

}

Manifest::Manifest(std::string const& folder)
    : _path(folder + '/' + std::string(fileName))
{
}

std::string Manifest::read()
{
    Descriptor const file(_path, O_RDONLY);
    if (!file.isOpen())
        return errno == ENOENT || errno == ENOTDIR ? "" : std::strerror(errno);
    if (!file.isFile())
        return "is not a regular file";
    std::string text;
    if (!readAll(file.get(), text))
        return std::strerror(errno);
    constexpr std::size_t usualLine = 250; // Bytes.
    _entries.reserve(text.size() / usualLine);
    _sources.reserve(text.size() / usualLine);
    std::string_view rest = text;
    while (!rest.empty()) {
        std::size_t const end = std::min(rest.find('\n'), rest.size());
        take(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    _endsInLine = !text.empty() && text.back() != '\n';
    return _isOfLaterVersion ? "was written by a later version" : "";
}

void Manifest::take(std::string_view line)
{
    ++_lines;
    auto read = manifestLineIn(line);
    if (read && read->rules) {
        _nameRules = read->rules;
        _isOfLaterVersion |= read->version > ManifestLine::currentVersion;
    }
    if (!read || !isBelow(read->entry.target))
        return;
    if (read->isRemoval)
        erase(read->entry.target);
    else
        keep(std::move(read->entry));
}

void Manifest::keep(ManifestEntry entry)
{
    auto const kept = std::make_shared<ManifestEntry const>(std::move(entry));
    auto const former = kept->isPlaylist ? nullptr : put(kept, _sources);
    if (former && former->target != kept->target)
        _targets[kept->source].insert({ former->target, kept->target });
    put(kept, _entries);
}

bool Manifest::erase(std::string_view target)
{
    auto const found = _entries.find(target);
    if (found == _entries.end())
        return false;
    _entries.erase(found);
    return true;
}

Manifest::Entry Manifest::entryForTarget(std::string_view target) const
{
    auto const found = _entries.find(target);
    return found == _entries.end() ? nullptr : *found;
}

/// The entry for a target if it is one of that source; another one may have its target by now.
Manifest::Entry Manifest::entryFor(std::string_view source, std::string_view target) const
{
    auto entry = entryForTarget(target);
    return entry && entry->source == source ? entry : nullptr;
}

Manifest::Entry Manifest::entryForSource(
    std::string_view source, std::string_view relativePath) const
{
    auto const found = _sources.find(source);
    if (found == _sources.end())
        return nullptr;
    auto last = entryFor(source, (*found)->target);
    auto const isAlike = [relativePath](Entry const& entry) {
        // Relative paths of one source are ends of its path, and names are changed one by one.
        return entry && foldersIn(entry->target) == foldersIn(relativePath);
    };
    auto const several
        = _targets.empty() || isAlike(last) ? _targets.end() : _targets.find(std::string(source));
    if (several == _targets.end())
        return last;
    for (std::string const& target : several->second) {
        auto entry = entryFor(source, target);
        if (isAlike(entry))
            return entry;
        if (!last)
            last = std::move(entry);
    }
    return last;
}

Manifest::Entry Manifest::entryForMoved(
    std::uint64_t size, std::int64_t modified, std::int64_t inode) const
{
    auto const keyOf = [](std::uint64_t bytes, std::int64_t time, std::int64_t number) {
        return std::to_string(bytes) + '/' + std::to_string(time) + '/' + std::to_string(number);
    };
    if (_contents.empty()) {
        for (Entry const& entry : _entries)
            _contents.emplace(keyOf(entry->size, entry->modified, entry->inode), entry->target);
    }
    auto const [first, last] = _contents.equal_range(keyOf(size, modified, inode));
    return first != last && std::next(first) == last ? entryForTarget(first->second) : nullptr;
}

void Manifest::setNameRules(NameRules const& rules)
{
    _nameRules = rules;
    _areRulesNew = true;
}

void Manifest::add(ManifestEntry entry)
{
    auto const known = entryForTarget(entry.target);
    if (known && *known == entry)
        return;
    _pending += manifestLineOf(entry);
    ++_lines;
    keep(std::move(entry));
}

void Manifest::remove(std::string const& target)
{
    if (!erase(target))
        return;
    _pending += manifestLineOfRemoved(target);
    ++_lines;
}

std::string Manifest::append()
{
    Descriptor const file(_path, O_WRONLY | O_CREAT | O_APPEND);
    if (!file.isOpen())
        return std::strerror(errno);
    if (std::exchange(_endsInLine, false))
        _pending.insert(0, "\n");
    if (!writeAll(file.get(), bytesOf(_pending))) {
        _endsInLine = true; // Some of it may be there.
        return std::strerror(errno);
    }
    _pending.clear();
    return {};
}

std::string Manifest::write()
{
    if (_pending.empty())
        return {};
    if (std::exchange(_areRulesNew, false))
        _pending.insert(0, manifestLineOf(*_nameRules));
    _isChanged = true;
    return append();
}

std::string Manifest::finish()
{
    std::string error = write();
    if (!error.empty() || !_isChanged)
        return error;
    constexpr std::size_t worthIt = 100; // Lines.
    if (_lines > _entries.size() + _entries.size() / 4 + worthIt)
        return writeAnew();
    Descriptor const file(_path, O_WRONLY);
    // A file system that cannot be waited for keeps no promise, and there is none to break.
    if (file.isOpen() && ::fdatasync(file.get()) != 0 && (errno == EIO || errno == ENOSPC))
        return std::strerror(errno);
    return {};
}

std::string Manifest::writeAnew()
{
    std::vector<std::string> lines;
    lines.reserve(_entries.size());
    for (Entry const& entry : _entries)
        lines.push_back(manifestLineOf(*entry));
    std::ranges::sort(lines);
    std::string text = _nameRules ? manifestLineOf(*_nameRules) : "";
    for (std::string const& line : lines)
        text += line;
    AtomicFile file(_path);
    return file.open(permissions) && file.write(bytesOf(text)) && file.commit() ? "" : file.error();
}
