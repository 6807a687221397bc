#include "shared/EditedCopy.h"

#include "shared/AtomicFile.h"

#include <kxmd/base/KXAbstractData.h>
#include <kxmd/base/KXMutableData.h>

#include <algorithm>
#include <span>
#include <vector>

namespace {

using Kept = KXMutableData::Kept;
using Range = KXMutableData::Range;

/// The part of `kept` from its byte `begin` to before `end`, both counted in the source.
Kept partOf(Kept const& kept, std::uint64_t begin, std::uint64_t end)
{
    return {
        .origin = begin, .position = kept.position + (begin - kept.origin), .length = end - begin
    };
}

/// The stretches of the source that are in `data` as they were, in order. Edits move none past
/// another.
std::vector<Kept> unchangedParts(KXMutableData const& data)
{
    std::vector<Range> overwritten(
        data.overwrittenOrigins().begin(), data.overwrittenOrigins().end());
    std::ranges::sort(overwritten, {}, &Range::position);
    std::vector<Kept> parts;
    auto next = overwritten.begin();
    std::uint64_t origin = 0; // What is before it is done, or overwritten.
    for (Kept const& kept : data.keptBytes()) {
        std::uint64_t const end = kept.origin + kept.length;
        origin = std::max(origin, kept.origin);
        for (; next != overwritten.end() && next->position < end; ++next) {
            if (next->position > origin)
                parts.push_back(partOf(kept, origin, next->position));
            origin = std::max(origin, next->position + next->length);
        }
        if (origin < end)
            parts.push_back(partOf(kept, origin, end));
    }
    return parts;
}

/// Appends the bytes of `data` from `begin` to before `end`, which are in memory.
bool appendBytes(
    KXMutableData const& data, std::uint64_t begin, std::uint64_t end, AtomicFile& file)
{
    constexpr std::uint64_t pieceLength = 64 * 1024;
    std::vector<std::uint8_t> piece(std::min(pieceLength, end - begin));
    for (std::uint64_t count; begin < end; begin += count) {
        count = std::min<std::uint64_t>(piece.size(), end - begin);
        if (!data.readBytesToAt(piece.data(), count, begin)
            || !file.write(std::span(piece).first(count)))
            return false;
    }
    return true;
}

}

bool appendData(KXAbstractData& data, AtomicFile& file)
{
    constexpr std::size_t pieceLength = 1 << 20;
    std::vector<std::uint8_t> piece(std::min<std::uint64_t>(pieceLength, data.length()));
    data.setOffset(0);
    while (data.remainingLength()) {
        std::uint64_t const count = data.readBytesToMaxLength(piece.data(), piece.size());
        if (!count || !file.write(std::span(piece).first(count)))
            return false;
    }
    return true;
}

bool appendEdited(KXMutableData const& data, int descriptor, AtomicFile& file)
{
    std::uint64_t position = 0;
    for (Kept const& part : unchangedParts(data)) {
        if (!appendBytes(data, position, part.position, file)
            || !file.writeRangeOf(descriptor, part.origin, part.length))
            return false;
        position = part.position + part.length;
    }
    return appendBytes(data, position, data.length(), file);
}
