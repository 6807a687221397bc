#include "Playlists.h"

#include "TargetNames.h"
#include "shared/AtomicFile.h"
#include "tools/kxmd/OutputFile.h"
#include "tools/kxmd/Session.h"
#include "tools/kxmd/Targets.h"
#include "tools/kxmd/UTF8.h"

#include <kxmd/base/KXAbstractData.h>
#include <kxmd/base/KXPath.h>
#include <kxmd/processors/KXMDFileProcessorCreateM3U.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

bool hasLineBreak(std::string_view text) { return text.find_first_of("\r\n") != text.npos; }

std::string onOneLine(std::string text)
{
    std::ranges::replace_if(
        text, [](char character) { return static_cast<unsigned char>(character) < 0x20; }, ' ');
    return text;
}

/// All that is in a file; absent when it cannot be read.
std::optional<std::string> textIn(KXAbstractData::Ref const& file)
{
    std::string text(file ? file->length() : 0, '\0');
    bool const isRead
        = file && file->readBytesTo(reinterpret_cast<std::uint8_t*>(text.data()), text.size());
    return isRead ? std::optional(std::move(text)) : std::nullopt;
}

/// By the processor, whose lines have the form ".\Album\01.mp3".
template <class Members> std::string textOfM3U(std::string const& path, Members const& members)
{
    KXDCFileProxy::List proxies;
    for (auto const& member : members) {
        auto const song = std::make_shared<KXDCSimpleFile>(member.source);
        song->setHasDRM(member.song.isProtected);
        proxies.push_back(std::make_shared<KXDCSimpleFileProxy>(song, member.target));
    }
    auto const file = std::make_shared<KXDCSimpleFile>(path);
    file->setFileKind(KXDCFileKindPlaylist);
    KXDCSimpleFileProxy const proxy(file, path, std::move(proxies));
    auto const data = KXMDFileProcessorCreateM3U().createPlaylistDataForFileProxy(proxy);
    return textIn(data).value_or("");
}

/// A line such as "#EXTINF:241,Artist - Title"; the duration is -1 where it is not known.
std::string informationOn(PreparedSong const& song, std::string_view name)
{
    constexpr double longest = 1e9; // Seconds.
    long const seconds = song.duration > 0 ? std::lround(std::min(song.duration, longest)) : -1;
    std::string title = song.title.empty() ? std::string(name) : song.title;
    if (!song.artist.empty())
        title = song.artist + " - " + title;
    return "#EXTINF:" + std::to_string(seconds) + ',' + onOneLine(std::move(title)) + '\n';
}

template <class Members> std::string textOfM3U8(std::string const& path, Members const& members)
{
    std::size_t const folder = KXPathByDeletingLastPathComponent(path).size() + 1;
    std::string text = "#EXTM3U\n";
    for (auto const& member : members) {
        if (member.song.isProtected)
            continue;
        text += informationOn(member.song, KXLastPathComponent(member.target));
        // A line that begins with "#" would be a comment.
        std::string const relative = member.target.substr(folder);
        text += (relative.starts_with('#') ? "./" : "") + relative + '\n';
    }
    return text;
}

bool holds(std::string const& path, std::string const& text)
{
    auto const file = KXAbstractData::abstractDataWithPath(path);
    return file && file->length() == text.size() && textIn(file) == text;
}

std::string errorOfWriting(std::string const& text, std::string const& path, Targets& targets)
{
    AtomicFile list(path);
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
    if (!list.open() || !list.write(std::span(bytes, text.size())))
        return list.error();
    Targets::Arrival arrival { list };
    targets.place({ &arrival, 1 });
    return arrival.error;
}

}

Playlists::Playlists(std::string folder, PlaylistOptions const& options)
    : _folder(std::move(folder))
    , _options(options)
{
    if (!_options.name.empty())
        _path = _folder + '/' + _options.name + extension();
}

std::string Playlists::extension() const
{
    return _options.format == PlaylistOptions::Format::m3u ? ".m3u" : ".m3u8";
}

void Playlists::claim(NameRules const& rules, Targets& targets, Session& session)
{
    if (!_path.empty())
        _path = _folder + '/' + TargetNames(rules).pathFor(_options.name + extension());
    std::string const refusal = _path.empty() ? "" : targets.claim(_path);
    if (refusal.empty())
        return;
    session.reportError(_path, refusal);
    _path.clear();
}

std::string Playlists::pathForFolder(std::string const& folder) const
{
    return folder + '/' + std::string(KXLastPathComponent(folder)) + extension();
}

bool Playlists::areWrittenTo(std::string const& path, std::set<std::string> const& folders) const
{
    if (path == _path)
        return !folders.empty();
    std::string const folder(KXPathByDeletingLastPathComponent(path));
    return _options.isForEachFolder && path == pathForFolder(folder) && folders.contains(folder);
}

void Playlists::add(std::string const& source, std::string const& target, PreparedSong const& song)
{
    if (_options.areWanted())
        _members.push_back({ source, target, song });
}

/// Lines are UTF-8, and a backslash in a name looks like a folder's end.
bool Playlists::canBeListed(Member const& member) const
{
    std::string_view const name = std::string_view(member.target).substr(_folder.size() + 1);
    bool const isAmbiguous = _options.format == PlaylistOptions::Format::m3u
        && name.find('\\') != std::string_view::npos;
    return isUTF8(name) && !hasLineBreak(name) && !isAmbiguous;
}

std::string Playlists::textOf(std::string const& path, Members const& members) const
{
    bool const isAnyListed = std::ranges::any_of(
        members, [](Member const& member) { return !member.song.isProtected; });
    if (!isAnyListed)
        return {};
    return _options.format == PlaylistOptions::Format::m3u ? textOfM3U(path, members)
                                                           : textOfM3U8(path, members);
}

std::optional<Playlists::Written> Playlists::write(
    std::string const& path, Members const& members, Targets& targets, Session& session) const
{
    std::string const text = textOf(path, members);
    std::string error = text.empty() ? "there is no audio to list" : "";
    if (error.empty() && !holds(path, text))
        error = errorOfWriting(text, path, targets);
    if (error.empty())
        return Written { path, text.size() };
    session.reportError(path, error);
    return std::nullopt;
}

/// Folder by folder, in the order of their first names.
void Playlists::sortMembers()
{
    std::map<std::string_view, std::string_view> firstNames;
    for (Member const& member : _members) {
        std::string_view const target = member.target;
        auto const folder = KXPathByDeletingLastPathComponent(target);
        auto const [first, isNew] = firstNames.try_emplace(folder, target);
        first->second = isNew ? target : std::min(first->second, target);
    }
    std::vector<std::size_t> order(_members.size());
    std::iota(order.begin(), order.end(), std::size_t { 0 });
    std::ranges::sort(order, {}, [&](std::size_t i) {
        std::string_view const target = _members[i].target;
        PreparedSong const& song = _members[i].song;
        return std::tuple(firstNames.at(KXPathByDeletingLastPathComponent(target)), song.disc,
            song.track, target);
    });
    Members sorted;
    for (std::size_t const i : order)
        sorted.push_back(std::move(_members[i]));
    _members.swap(sorted);
}

std::vector<Playlists::Written> Playlists::write(Targets& targets, Session& session)
{
    std::vector<Written> written;
    auto const add = [&](std::string const& path, Members const& members) {
        if (auto list = write(path, members, targets, session))
            written.push_back(std::move(*list));
    };
    auto const unlisted = std::stable_partition(_members.begin(), _members.end(),
        [this](Member const& member) { return canBeListed(member); });
    for (auto member = unlisted; member != _members.end(); ++member)
        session.reportRemark(member->target, "cannot be listed by its name");
    _members.erase(unlisted, _members.end());
    sortMembers();
    if (!_path.empty())
        add(_path, _members);
    if (!_options.isForEachFolder)
        return written;
    std::map<std::string, Members> folders;
    for (Member const& member : _members) {
        if (!member.song.isProtected)
            folders[std::string(KXPathByDeletingLastPathComponent(member.target))].push_back(
                member);
    }
    for (auto const& [folder, members] : folders) {
        std::string const path = pathForFolder(folder);
        std::string const refusal = targets.claim(path);
        if (refusal.empty())
            add(path, members);
        else // Most likely a playlist of the album's own.
            session.reportRemark(path, "is not written: " + refusal);
    }
    return written;
}

std::optional<std::vector<std::string>> songsOfPlaylist(std::string const& path)
{
    constexpr std::uint64_t largest = 64 << 20; // Bytes; half a million songs take fewer.
    auto const file = KXAbstractData::abstractDataWithPath(path);
    auto const text = file && file->length() <= largest ? textIn(file) : std::nullopt;
    if (!text)
        return std::nullopt;
    std::string const folder = std::string(KXPathByDeletingLastPathComponent(path)) + '/';
    bool const hasBackslashes = !path.ends_with(".m3u8");
    std::vector<std::string> songs;
    for (std::string_view rest = *text; !rest.empty();) {
        std::size_t const end = std::min(rest.find('\n'), rest.size());
        std::string line(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.ends_with('\r'))
            line.pop_back();
        if (hasBackslashes)
            std::ranges::replace(line, '\\', '/');
        if (!line.empty() && !line.starts_with('#'))
            songs.push_back(folder + line.substr(line.starts_with("./") ? 2 : 0));
    }
    return songs;
}
