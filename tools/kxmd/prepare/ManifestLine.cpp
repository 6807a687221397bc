#include "ManifestLine.h"

#include "tools/kxmd/Base64.h"
#include "tools/kxmd/JSONLine.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

namespace {

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

// Reading takes the values as the parser comes upon them: a collection has many lines.

/// Collects what a line says; the parser calls it.
class Reader final : public nlohmann::json_sax<JSON> {
public:
    ManifestLine takeLine()
    {
        if (_isOfRules)
            _line.rules = std::move(_rules);
        return std::move(_line);
    }

    bool null() override { return true; }
    bool boolean(bool value) override
    {
        takeFlag(value);
        return true;
    }
    bool number_integer(std::int64_t value) override
    {
        takeNumber(value);
        return true;
    }
    bool number_unsigned(std::uint64_t value) override
    {
        constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        takeNumber(static_cast<std::int64_t>(std::min(value, most)));
        return true;
    }
    bool number_float(double value, std::string const&) override
    {
        takeDuration(value);
        return true;
    }
    bool string(std::string& value) override
    {
        takeText(value);
        return true;
    }
    bool binary(JSON::binary_t&) override { return false; }
    bool start_object(std::size_t) override
    {
        _isInSong = _depth == 1 && _key == "song";
        if (_isInSong)
            _line.entry.song.emplace();
        return ++_depth <= deepest;
    }
    bool key(std::string& value) override
    {
        _key.swap(value);
        _isOfRules |= _depth == 1 && _key == "manifest";
        return true;
    }
    bool end_object() override
    {
        --_depth;
        _isInSong = false;
        return true;
    }
    bool start_array(std::size_t) override { return false; } // Nothing of ours.
    bool end_array() override { return false; }
    bool parse_error(std::size_t, std::string const&, nlohmann::detail::exception const&) override
    {
        return false;
    }

private:
    static constexpr int deepest = 2; ///< A song within a line.
    static constexpr std::size_t shortestLimit = 64; ///< Bytes; no file system has less.

    void takeFlag(bool value)
    {
        if (_isInSong)
            _line.entry.song->isProtected |= value && _key == "protected";
        else if (_key == "removed")
            _line.isRemoval = value;
        else if (_key == "playlist")
            _line.entry.isPlaylist = value;
        else if (_key == "refusesEnds")
            _rules.refusesEnds = value;
        else if (_key == "refusesDevices")
            _rules.refusesDevices = value;
        else if (_key == "refusesBytes")
            _rules.refusesBytes = value;
        else if (_key == "tellsCase")
            _rules.tellsCase = value;
    }

    void takeNumber(std::int64_t value)
    {
        auto const size = static_cast<std::uint64_t>(std::max<std::int64_t>(value, 0));
        if (_isInSong)
            takeSongNumber(size);
        else if (_key == "size")
            _line.entry.size = size;
        else if (_key == "modified")
            _line.entry.modified = value;
        else if (_key == "inode")
            _line.entry.inode = value;
        else if (_key == "manifest")
            _line.version = value;
        else if (_key == "targetSize")
            _line.entry.targetSize = size;
        else if (_key == "longest")
            _rules.longest = std::clamp(size, shortestLimit, NameRules().longest);
    }

    void takeSongNumber(std::uint64_t value)
    {
        constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
        if (_key == "disc")
            _line.entry.song->disc = static_cast<std::uint32_t>(std::min(value, most));
        else if (_key == "track")
            _line.entry.song->track = static_cast<std::uint32_t>(std::min(value, most));
        else
            takeDuration(static_cast<double>(value));
    }

    void takeDuration(double value)
    {
        if (!_isInSong || _key != "duration")
            return;
        _line.entry.song->isProbed = true;
        _line.entry.song->duration = value;
    }

    void takeText(std::string& value)
    {
        ManifestEntry& entry = _line.entry;
        if (_isInSong) {
            if (_key == "title")
                entry.song->title.swap(value);
            else if (_key == "artist")
                entry.song->artist.swap(value);
        } else if (_key == "source")
            entry.source.swap(value);
        else if (_key == "sourceBytes")
            entry.source = bytesOfBase64(value);
        else if (_key == "target")
            entry.target.swap(value);
        else if (_key == "targetBytes")
            entry.target = bytesOfBase64(value);
        else if (_key == "cover")
            entry.cover = std::move(value);
        else if (_key == "coverBytes")
            entry.cover = bytesOfBase64(value);
        else if (_key == "album")
            entry.album.swap(value);
        else if (_key == "options")
            entry.options.swap(value);
        else if (_key == "version")
            entry.version.swap(value);
        else if (_key == "sha256")
            entry.checksum.swap(value);
        else if (_key == "refused")
            takeRefused(value);
    }

    void takeRefused(std::string_view characters)
    {
        for (char const character : characters) {
            if (NameRules::candidates.find(character) != std::string_view::npos)
                _rules.refused += character;
        }
    }

    ManifestLine _line;
    NameRules _rules;
    std::string _key;
    int _depth { 0 };
    bool _isInSong { false };
    bool _isOfRules { false };
};

/// Reads lines of the very form that is written here, without escapes, much faster than a parser of
/// all of JSON can. Tells its reader what it finds, in the manner of that parser.
class PlainLine {
public:
    PlainLine(std::string_view line, Reader& reader)
        : _rest(line)
        , _reader(reader)
    {
    }

    /// False when the line has another form, whatever was told by then.
    bool read()
    {
        bool isRead = takeCharacter('{') && _reader.start_object(0);
        for (int depth = 1; isRead && depth > 0;) {
            isRead = takeText(_text) && _reader.key(_text) && takeCharacter(':');
            if (isRead && takeCharacter('{')) {
                isRead = _reader.start_object(0);
                ++depth;
                continue;
            }
            isRead = isRead && takeValue();
            while (isRead && depth > 0 && takeCharacter('}')) {
                isRead = _reader.end_object();
                --depth;
            }
            isRead = isRead && (depth == 0 || takeCharacter(','));
        }
        return isRead && _rest.empty();
    }

private:
    bool takeCharacter(char character)
    {
        bool const isThere = _rest.starts_with(character);
        _rest.remove_prefix(isThere);
        return isThere;
    }

    bool takeText(std::string& text)
    {
        if (!takeCharacter('"'))
            return false;
        std::size_t const end = _rest.find('"');
        if (end == std::string_view::npos || _rest.substr(0, end).find('\\') != _rest.npos)
            return false;
        text = _rest.substr(0, end);
        _rest.remove_prefix(end + 1);
        return true;
    }

    bool takeWord(std::string_view word)
    {
        bool const isThere = _rest.starts_with(word);
        _rest.remove_prefix(isThere ? word.size() : 0);
        return isThere;
    }

    bool takeValue()
    {
        if (takeText(_text))
            return _reader.string(_text);
        if (takeWord("true"))
            return _reader.boolean(true);
        if (takeWord("false"))
            return _reader.boolean(false);
        std::int64_t number;
        auto const [end, error]
            = std::from_chars(_rest.data(), _rest.data() + _rest.size(), number);
        if (error != std::errc())
            return false;
        _rest.remove_prefix(static_cast<std::size_t>(end - _rest.data()));
        return _reader.number_integer(number); // A fraction is left, and no part of this form.
    }

    std::string_view _rest;
    std::string _text;
    Reader& _reader;
};

}

std::string manifestLineOf(ManifestEntry const& entry)
{
    JSON object = JSON::object();
    if (entry.isPlaylist) {
        addPath(object, "target", "targetBytes", entry.target);
        object["targetSize"] = entry.targetSize;
        object["playlist"] = true;
        return jsonLine(object);
    }
    addPath(object, "source", "sourceBytes", entry.source);
    object["size"] = entry.size;
    object["modified"] = entry.modified;
    object["inode"] = entry.inode;
    if (!entry.checksum.empty())
        object["sha256"] = entry.checksum;
    if (entry.cover)
        addPath(object, "cover", "coverBytes", *entry.cover);
    if (!entry.album.empty())
        object["album"] = entry.album;
    object["options"] = entry.options;
    object["version"] = entry.version;
    addPath(object, "target", "targetBytes", entry.target);
    object["targetSize"] = entry.targetSize;
    if (entry.song)
        object["song"] = jsonOfSong(*entry.song);
    return jsonLine(object);
}

std::string manifestLineOf(NameRules const& rules)
{
    return jsonLine({ { "manifest", ManifestLine::currentVersion }, { "refused", rules.refused },
        { "refusesEnds", rules.refusesEnds }, { "refusesDevices", rules.refusesDevices },
        { "refusesBytes", rules.refusesBytes }, { "tellsCase", rules.tellsCase },
        { "longest", rules.longest } });
}

std::string manifestLineOfRemoved(std::string const& target)
{
    JSON object = JSON::object();
    addPath(object, "target", "targetBytes", target);
    object["removed"] = true;
    return jsonLine(object);
}

std::optional<ManifestLine> manifestLineIn(std::string_view line)
{
    Reader plain;
    if (PlainLine(line, plain).read())
        return plain.takeLine();
    Reader reader;
    if (!line.starts_with('{') || !JSON::sax_parse(line, &reader))
        return std::nullopt;
    return reader.takeLine();
}
