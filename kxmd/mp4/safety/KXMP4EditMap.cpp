#include "kxmd/mp4/safety/KXMP4EditMapPrivate.h"

#include <algorithm>
#include <iterator>

KXMP4EditMap::KXMP4EditMap(KXMutableData const& edited)
    : _kept(edited.keptBytes())
{
}

/// The last stretch that starts at `place` or before it, by its places before or after the edits;
/// null without one.
KXMP4EditMap::Kept const* KXMP4EditMap::lastFrom(
    std::uint64_t place, std::uint64_t Kept::*start) const
{
    auto const next = std::ranges::upper_bound(_kept, place, {}, start);
    return next == _kept.begin() ? nullptr : &*std::prev(next);
}

std::optional<std::uint64_t> KXMP4EditMap::originOf(std::uint64_t position) const
{
    Kept const* const kept = lastFrom(position, &Kept::position);
    if (!kept || position - kept->position >= kept->length)
        return std::nullopt;
    return kept->origin + (position - kept->position);
}

std::optional<std::uint64_t> KXMP4EditMap::positionOf(std::uint64_t origin) const
{
    Kept const* const kept = lastFrom(origin, &Kept::origin);
    if (!kept || origin - kept->origin >= kept->length)
        return std::nullopt;
    return kept->position + (origin - kept->origin);
}

std::uint64_t KXMP4EditMap::endOfBytesBefore(std::uint64_t origin) const
{
    Kept const* const kept = origin ? lastFrom(origin - 1, &Kept::origin) : nullptr;
    return kept ? kept->position + std::min(kept->length, origin - kept->origin) : 0;
}

bool KXMP4EditMap::isOneStretch(std::uint64_t begin, std::uint64_t end) const
{
    Kept const* const kept = lastFrom(begin, &Kept::origin);
    return begin >= end || (kept && end - kept->origin <= kept->length);
}
