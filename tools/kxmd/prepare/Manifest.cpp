#include "Manifest.h"

#include "tools/kxmd/JSONLine.h"
#include "tools/shared/AtomicFile.h"

#include <kxmd/base/KXPath.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <memory>
#include <span>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int formatVersion = 1;
constexpr mode_t permissions = 0600; // It tells where its owner keeps files.

/// An open file.
class Descriptor {
public:
    Descriptor(std::string const& path, int flags)
        : _file(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, permissions))
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

bool writeAll(int file, std::string_view text)
{
    while (!text.empty()) {
        ssize_t const count = ::write(file, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

JSON jsonOfSong(PreparedSong const& song)
{
    JSON object = JSON::object();
    if (song.isProtected)
        object["protected"] = true;
    object["title"] = song.title;
    object["artist"] = song.artist;
    if (song.isProbed) {
        object["disc"] = song.disc;
        object["track"] = song.track;
        object["duration"] = jsonNumber(song.duration);
    }
    return object;
}

std::string lineOf(ManifestEntry const& entry)
{
    JSON object = JSON::object();
    addPath(object, "source", "sourceBytes", entry.source);
    object["size"] = entry.size;
    object["modified"] = entry.modified;
    if (!entry.checksum.empty())
        object["sha256"] = entry.checksum;
    if (entry.cover)
        addPath(object, "cover", "coverBytes", *entry.cover);
    object["options"] = entry.options;
    object["version"] = entry.version;
    addPath(object, "target", "targetBytes", entry.target);
    object["targetSize"] = entry.targetSize;
    if (entry.song)
        object["song"] = jsonOfSong(*entry.song);
    return jsonLine(object);
}

std::string lineOf(NameRules const& rules)
{
    return jsonLine({ { "manifest", formatVersion }, { "refused", rules.refused },
        { "refusesEnds", rules.refusesEnds }, { "refusesDevices", rules.refusesDevices },
        { "refusesBytes", rules.refusesBytes }, { "tellsCase", rules.tellsCase },
        { "longest", rules.longest } });
}

std::string lineOfRemoved(std::string const& target)
{
    JSON object = JSON::object();
    addPath(object, "target", "targetBytes", target);
    object["removed"] = true;
    return jsonLine(object);
}

// Reading. A value of another type than ours is no value.

std::string textIn(JSON const& object, char const* key)
{
    auto const found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

template <class Number> Number numberIn(JSON const& object, char const* key, Number otherwise = 0)
{
    auto const found = object.find(key);
    return found != object.end() && found->is_number() ? found->get<Number>() : otherwise;
}

bool flagIn(JSON const& object, char const* key, bool otherwise = false)
{
    auto const found = object.find(key);
    return found != object.end() && found->is_boolean() ? found->get<bool>() : otherwise;
}

std::string pathIn(JSON const& object, char const* key, char const* bytesKey)
{
    std::string const encoded = textIn(object, bytesKey);
    if (encoded.empty())
        return textIn(object, key);
    gsize length = 0;
    g_autofree guchar* bytes = g_base64_decode(encoded.c_str(), &length);
    return { reinterpret_cast<char const*>(bytes), length };
}

PreparedSong songIn(JSON const& object)
{
    return { .isProtected = flagIn(object, "protected"),
        .isProbed = object.contains("duration"),
        .title = textIn(object, "title"),
        .artist = textIn(object, "artist"),
        .disc = numberIn<std::uint32_t>(object, "disc"),
        .track = numberIn<std::uint32_t>(object, "track"),
        .duration = numberIn<double>(object, "duration") };
}

ManifestEntry entryIn(JSON const& object)
{
    ManifestEntry entry { .source = pathIn(object, "source", "sourceBytes"),
        .size = numberIn<std::uint64_t>(object, "size"),
        .modified = numberIn<std::int64_t>(object, "modified"),
        .checksum = textIn(object, "sha256"),
        .cover = {},
        .options = textIn(object, "options"),
        .version = textIn(object, "version"),
        .target = pathIn(object, "target", "targetBytes"),
        .targetSize = numberIn<std::uint64_t>(object, "targetSize"),
        .song = {} };
    if (object.contains("cover"))
        entry.cover = pathIn(object, "cover", "coverBytes");
    if (auto const song = object.find("song"); song != object.end() && song->is_object())
        entry.song = songIn(*song);
    return entry;
}

NameRules rulesIn(JSON const& object)
{
    NameRules const usual;
    return { .refused = textIn(object, "refused"),
        .refusesEnds = flagIn(object, "refusesEnds"),
        .refusesDevices = flagIn(object, "refusesDevices"),
        .refusesBytes = flagIn(object, "refusesBytes"),
        .tellsCase = flagIn(object, "tellsCase", true),
        .longest = numberIn<std::size_t>(object, "longest", usual.longest) };
}

/// Whether a path stays below the folder that it is meant for: it is followed, and its file
/// removed.
bool isBelow(std::string_view path)
{
    auto const components = KXPathComponents(path);
    return !path.empty() && path.front() != '/'
        && std::ranges::none_of(components,
            [](std::string_view component) { return component == ".." || component == "."; });
}

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
    std::string text;
    if (!readAll(file.get(), text))
        return std::strerror(errno);
    std::string_view rest = text;
    while (!rest.empty()) {
        std::size_t const end = std::min(rest.find('\n'), rest.size());
        take(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    _endsInLine = !text.empty() && text.back() != '\n';
    return {};
}

void Manifest::take(std::string_view line)
{
    ++_lines;
    JSON const object = JSON::parse(line, nullptr, false);
    if (!object.is_object())
        return;
    if (object.contains("manifest")) {
        _nameRules = rulesIn(object);
        return;
    }
    auto entry = entryIn(object);
    if (!isBelow(entry.target))
        return;
    _entries.erase(entry.target);
    if (!flagIn(object, "removed"))
        index(_entries.emplace(entry.target, std::move(entry)).first->second);
}

void Manifest::index(ManifestEntry const& entry)
{
    _targets.insert_or_assign(entry.source, entry.target);
}

ManifestEntry const* Manifest::entryForTarget(std::string const& target) const
{
    auto const found = _entries.find(target);
    return found == _entries.end() ? nullptr : &found->second;
}

ManifestEntry const* Manifest::entryForSource(std::string const& source) const
{
    auto const target = _targets.find(source);
    auto const* const entry = target == _targets.end() ? nullptr : entryForTarget(target->second);
    return entry && entry->source == source ? entry : nullptr; // Another one may have its target.
}

ManifestEntry const* Manifest::entryForContent(
    std::string_view name, std::uint64_t size, std::int64_t modified) const
{
    auto const keyOf = [](std::string_view path, std::uint64_t bytes, std::int64_t time) {
        return std::to_string(bytes) + '/' + std::to_string(time) + '/'
            + std::string(KXLastPathComponent(path));
    };
    if (_contents.empty()) {
        for (auto const& [target, entry] : _entries)
            _contents.emplace(keyOf(entry.source, entry.size, entry.modified), target);
    }
    auto const [first, last] = _contents.equal_range(keyOf(name, size, modified));
    return first != last && std::next(first) == last ? entryForTarget(first->second) : nullptr;
}

void Manifest::setNameRules(NameRules const& rules)
{
    _nameRules = rules;
    _areRulesNew = true;
}

void Manifest::add(ManifestEntry entry)
{
    auto const known = _entries.find(entry.target);
    if (known != _entries.end() && known->second == entry)
        return;
    _pending += lineOf(entry);
    ++_lines;
    auto& kept = _entries[entry.target];
    kept = std::move(entry);
    index(kept);
}

void Manifest::remove(std::string const& target)
{
    if (!_entries.erase(target))
        return;
    _pending += lineOfRemoved(target);
    ++_lines;
}

std::string Manifest::append()
{
    Descriptor const file(_path, O_WRONLY | O_CREAT | O_APPEND);
    if (!file.isOpen())
        return std::strerror(errno);
    if (std::exchange(_endsInLine, false))
        _pending.insert(0, "\n");
    if (!writeAll(file.get(), _pending))
        return std::strerror(errno);
    _pending.clear();
    return {};
}

std::string Manifest::write()
{
    if (_pending.empty())
        return {};
    if (std::exchange(_areRulesNew, false))
        _pending.insert(0, lineOf(*_nameRules));
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
    for (auto const& [target, entry] : _entries)
        lines.push_back(lineOf(entry));
    std::ranges::sort(lines);
    std::string text = _nameRules ? lineOf(*_nameRules) : "";
    for (std::string const& line : lines)
        text += line;
    AtomicFile file(_path);
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
    return file.open(permissions) && file.write(std::span(bytes, text.size())) && file.commit()
        ? ""
        : file.error();
}
