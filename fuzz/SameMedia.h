#pragma once

#include "FuzzTarget.h"
#include "MovieReferences.h"

#include "kxmd/base/KXMutableData.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// Where a byte of the file is after its edits.
inline std::optional<std::uint64_t> placeAfter(std::uint64_t place, KXMutableData const& edited)
{
    for (auto const& kept : edited.keptBytes()) {
        if (place - kept.origin < kept.length)
            return kept.position + (place - kept.origin);
    }
    return std::nullopt;
}

/// Whether media that begins at these places is the same.
inline bool isSameMedia(MovieReferences const& before, std::uint64_t place,
    std::span<std::uint8_t const> file, std::uint64_t placeNow, KXMutableData const& edited)
{
    if (place >= file.size())
        return placeNow >= edited.length();
    auto const end = before.endOfMediaAt(place);
    std::uint64_t const length = std::min<std::uint64_t>(end.value_or(place) - place, 16);
    std::vector<std::uint8_t> now(length);
    return placeAfter(place, edited) == placeNow
        && edited.readBytesToAt(now.data(), length, placeNow)
        && std::equal(now.begin(), now.end(), file.begin() + static_cast<std::ptrdiff_t>(place));
}

/// Ends the program unless every reference that is still there leads to the same media.
inline void requireSameMedia(
    MovieReferences const& before, std::span<std::uint8_t const> file, KXMutableData const& edited)
{
    MovieReferences const after(edited.bytes());
    KXMD_REQUIRE(after.isClear());
    auto now = after.references().begin();
    for (auto const& reference : before.references()) {
        if (!placeAfter(reference.box, edited))
            continue; // Removed with its box.
        KXMD_REQUIRE(now != after.references().end());
        KXMD_REQUIRE(now->isForeign == reference.isForeign);
        KXMD_REQUIRE(reference.isForeign
                ? now->place == reference.place
                : isSameMedia(before, reference.place, file, now->place, edited));
        ++now;
    }
    KXMD_REQUIRE(now == after.references().end());
}
