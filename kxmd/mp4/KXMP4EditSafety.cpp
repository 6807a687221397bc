#include "kxmd/mp4/KXMP4EditSafety.h"

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/KXMP4EditReasonsPrivate.h"
#include "kxmd/mp4/KXMP4MediaOffsetCheckPrivate.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

/// The last tag of the file's last tag list that is no cover; null when there is none.
KXMP4Atom::Ref lastTagOf(KXMP4Atom& root)
{
    auto const tagLists = root.allAtomsWithPath(tagListPath);
    if (tagLists.empty())
        return nullptr;
    auto const tags = tagLists.back()->children();
    auto const last = std::find_if(
        tags.rbegin(), tags.rend(), [](auto const& tag) { return tag->tag() != "covr"; });
    return last != tags.rend() ? *last : nullptr;
}

}

KXMP4EditSafety::KXMP4EditSafety(KXAbstractData& data)
    : _data(data)
    , _isMP4(KXMDFileMeta::metaTypeForData(data) == KXMDMetaTypeMP4)
    , _root(KXMP4Atom::atomWithAbstractData(data))
    , _isWhole(data.budget().takeNode("KXMP4EditSafety->too many atoms"))
{
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstEditAt(
    std::uint64_t position, std::int64_t difference) const
{
    if (difference == 0)
        return {};
    auto const size = difference < 0 ? 0 - static_cast<std::uint64_t>(difference)
                                     : static_cast<std::uint64_t>(difference);
    KXMP4Atom* found = nullptr;
    _root->visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth && atom.offset() == position && (difference > 0 || atom.size() == size))
            found = &atom;
        return !found;
    });
    if (!found)
        return std::string(reasons::noSuchAtom);
    KXMP4EditPlan plan;
    if (difference < 0)
        plan.remove(found->shared_from_this());
    else
        plan.insertBefore(found->shared_from_this(), size);
    return reasonAgainst(std::move(plan));
}

/// Whether the covers are removed at all; a file without a 32-bit chunk offset table is refused.
bool KXMP4EditSafety::addRemovalOfAlbumCovers(KXMP4EditPlan& plan) const
{
    auto const covers = _root->allAtomsWithPath(coverPath);
    if (!_isMP4 || !canRemoveInGoodTime(covers.size(), *_root)
        || _root->allAtomsWithPath(chunkOffsetTablePath).empty())
        return false;
    for (auto const& cover : covers)
        plan.remove(cover);
    return true;
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstRemovingAlbumCover() const
{
    KXMP4EditPlan plan;
    if (!addRemovalOfAlbumCovers(plan))
        return {};
    return reasonAgainst(std::move(plan));
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstAddingAlbumCoverOfSize(
    std::uint64_t atomSize) const
{
    KXMP4EditPlan plan;
    auto const tag = lastTagOf(*_root);
    if (!addRemovalOfAlbumCovers(plan))
        return {};
    if (tag && atomSize)
        plan.insertBefore(tag, atomSize);
    return reasonAgainst(std::move(plan));
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstCleaning() const
{
    KXMP4EditPlan plan;
    std::size_t count = 0;
    for (std::string_view const path : cleanedPaths) {
        for (auto const& atom : _root->allAtomsWithPath(path)) {
            plan.remove(atom);
            ++count;
        }
    }
    if (!canRemoveInGoodTime(count, *_root))
        return std::string(reasons::tooManyAtoms);
    return reasonAgainst(std::move(plan));
}

std::optional<std::string> KXMP4EditSafety::reasonAgainst(KXMP4EditPlan plan) const
{
    if (plan.isEmpty())
        return {};
    if (!_isWhole)
        return std::string(reasons::tooManyAtoms);
    for (auto const& edit : plan.edits()) {
        if (edit.removed > _data.length() || edit.position > _data.length() - edit.removed)
            return std::string(reasons::pastTheEnd);
    }
    if (!plan.finishForFileLength(_data.length()))
        return std::string(reasons::sizesDoNotNest);
    KXMP4EditOutline outline;
    auto reason = outline.takePlanOfTree(plan, *_root);
    if (reason.empty())
        reason = KXMP4MediaOffsetCheck(_data, plan, outline).reason();
    return reason.empty() ? std::nullopt : std::optional(std::string(reason));
}
