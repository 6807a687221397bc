#include "kxmd/mp4/KXMP4EditPlanPrivate.h"

#include <algorithm>
#include <iterator>
#include <utility>

void KXMP4EditPlan::remove(KXMP4Atom::Ref atom)
{
    auto const position = atom->offset(), size = atom->size();
    _edits.push_back({ .atom = std::move(atom), .position = position, .removed = size });
}

void KXMP4EditPlan::insertBefore(KXMP4Atom::Ref atom, std::uint64_t size)
{
    auto const position = atom->offset();
    _edits.push_back({ .atom = std::move(atom), .position = position, .inserted = size });
}

bool KXMP4EditPlan::finishForFileLength(std::uint64_t fileLength)
{
    _fileLength = fileLength;
    std::ranges::sort(_edits, {}, &Edit::position);
    std::int64_t moved = 0;
    for (std::size_t i = 0; i < _edits.size(); ++i) {
        Edit const& edit = _edits[i];
        if (i + 1 < _edits.size()) {
            std::uint64_t const room = _edits[i + 1].position - edit.position;
            if (room == 0 || room < edit.removed)
                return false;
        }
        moved += static_cast<std::int64_t>(edit.inserted - edit.removed);
        _movedBy.push_back(moved);
    }
    return true;
}

/// How many edits begin at `position` or in front of it.
std::size_t KXMP4EditPlan::editsUpTo(std::uint64_t position) const
{
    auto const next = std::ranges::upper_bound(_edits, position, {}, &Edit::position);
    return static_cast<std::size_t>(std::distance(_edits.begin(), next));
}

std::int64_t KXMP4EditPlan::movedBy(std::uint64_t position) const
{
    std::size_t const count = editsUpTo(position);
    return count ? _movedBy[count - 1] : 0;
}

bool KXMP4EditPlan::isRemoved(std::uint64_t position) const
{
    std::size_t const count = editsUpTo(position);
    return count && position - _edits[count - 1].position < _edits[count - 1].removed;
}

std::size_t KXMP4EditPlan::editsWithin(std::uint64_t begin, std::uint64_t end) const
{
    if (begin >= end)
        return 0;
    std::size_t const inFrontOfEnd = editsUpTo(end - 1);
    std::size_t const upToBegin = editsUpTo(begin);
    return inFrontOfEnd - upToBegin + (isRemoved(begin) ? 1 : 0);
}

bool KXMP4EditPlan::isKept(std::uint64_t position) const
{
    std::int64_t const growth = _movedBy.empty() ? 0 : _movedBy.back();
    std::uint64_t const lengthAfter = _fileLength + static_cast<std::uint64_t>(growth);
    if (position >= std::max(_fileLength, lengthAfter))
        return true;
    return movedBy(position) == 0 && !isRemoved(position);
}
