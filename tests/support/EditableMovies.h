#pragma once

#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "support/Builders.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Movies with a cover, and what the safety check says of editing them.
namespace editable {

using namespace build;

inline constexpr std::uint32_t mediaLength = 64;

inline Bytes const cover = covr(13, jpeg(8, 8, 100));
inline Bytes const title = tagAtom("\xA9nam", "Title");
inline Bytes const userData = userDataWithTags(join(cover, title));

/// The movie atom before its media, whose position `moovFor` is given.
inline Bytes moovFirst(std::function<Bytes(std::uint32_t media)> const& moovFor)
{
    auto const position = static_cast<std::uint32_t>(ftyp().size() + moovFor(0).size() + 8);
    return join(ftyp(), moovFor(position), atom("mdat", filled(mediaLength, 'm')));
}

/// The media before the movie atom.
inline Bytes moovLast(std::function<Bytes(std::uint32_t media)> const& moovFor)
{
    auto const position = static_cast<std::uint32_t>(ftyp().size() + 8);
    return join(ftyp(), atom("mdat", filled(mediaLength, 'm')), moovFor(position));
}

/// A sound track with the atoms of its sample table, and what it has instead of data information.
inline Bytes trackWithTables(Bytes const& tables, Bytes const& dataInformation = {})
{
    return atom("trak",
        atom("mdia", hdlr("soun"),
            atom("minf", atom("smhd", zeros(8)), dataInformation,
                atom("stbl", stsd(soundEntry("mp4a")), tables))));
}

inline Bytes moovWithTables(Bytes const& tables, Bytes const& dataInformation = {})
{
    return atom("moov", trackWithTables(tables, dataInformation), userData);
}

inline Bytes co64(std::vector<std::uint64_t> const& offsets)
{
    Bytes entries;
    for (std::uint64_t const offset : offsets)
        entries = join(std::move(entries), u64(offset));
    return atom("co64", u32(0), u32(static_cast<std::uint32_t>(offsets.size())), entries);
}

inline Bytes largeAtom(std::string_view type, Bytes const& payload)
{
    return join(u32(1), text(type), u64(payload.size() + 16), payload);
}

/// The reason against adding a cover; empty when there is none.
inline std::string reasonAgainstAdding(Bytes const& file, std::uint64_t size = 1000)
{
    auto const data = reader(file);
    return KXMP4EditSafety(*data).reasonAgainstAddingAlbumCoverOfSize(size).value_or("");
}

inline std::string reasonAgainstRemoving(Bytes const& file)
{
    auto const data = reader(file);
    return KXMP4EditSafety(*data).reasonAgainstRemovingAlbumCover().value_or("");
}

inline std::string reasonAgainstCleaning(Bytes const& file)
{
    auto const data = reader(file);
    return KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*data).value_or("");
}

}
