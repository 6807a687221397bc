#pragma once

#include "kxmd/base/KXMutableData.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Where the bytes of a file are after its edits.
class KXMP4EditMap {
public:
    explicit KXMP4EditMap(KXMutableData const& edited);

    /// Where the byte at `position` of the edited file was before; absent for an inserted one.
    std::optional<std::uint64_t> originOf(std::uint64_t position) const;
    /// Where the byte that was at `origin` is now; absent when it was removed.
    std::optional<std::uint64_t> positionOf(std::uint64_t origin) const;
    /// Where the last byte that is left of those before `origin` ends now.
    std::uint64_t endOfBytesBefore(std::uint64_t origin) const;
    /// Whether nothing was removed or inserted between the bytes of a range.
    bool isOneStretch(std::uint64_t begin, std::uint64_t end) const;

private:
    using Kept = KXMutableData::Kept;

    Kept const* lastFrom(std::uint64_t place, std::uint64_t Kept::*start) const;

    std::vector<Kept> const _kept;
};
