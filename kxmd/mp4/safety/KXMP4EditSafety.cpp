#include "kxmd/mp4/safety/KXMP4EditSafety.h"

#include "kxmd/base/KXByteBuilderPrivate.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditCheckPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditComparisonPrivate.h"
#include "kxmd/mp4/safety/KXMP4EditReasonsPrivate.h"

#include <algorithm>

namespace {

KXMP4Atom::Ref treeOf(KXMutableData::Ref const& data)
{
    return KXMP4Atom::atomWithAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
}

/// The atom at `position`, of `size` bytes unless any will do; null without one.
KXMP4Atom* atomAt(std::uint64_t position, std::optional<std::uint64_t> size, KXMP4Atom& root)
{
    KXMP4Atom* found = nullptr;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth && atom.offset() == position && size.value_or(atom.size()) == atom.size())
            found = &atom;
        return !found;
    });
    return found;
}

/// Inserts an atom of which only the size is known before `atom`, as
/// `insertBeforeSelfInMutableData:atomData:` does with a whole one.
bool insertUnknownAtomBefore(KXMP4Atom& atom, std::uint64_t size, KXMutableData& data)
{
    KXByteBuilder builder(sizeof(std::uint32_t));
    builder.appendUInt32(static_cast<std::uint32_t>(size));
    KXData const sizeField = builder.takeData(); // Nobody looks at the type of what is new.
    std::uint64_t const position = atom.offset();
    std::uint64_t const known = std::min<std::uint64_t>(size, sizeField.length());
    bool isDone = data.insertUnknownBytesAt(size - known, position)
        && data.insertBytesAt(sizeField.bytes().first(known), position);
    auto const difference = static_cast<std::int64_t>(size);
    if (KXMP4Atom* const parent = atom.parent())
        isDone &= parent->adjustSizeInMutableData(difference, data);
    isDone &= atom.rootAtom()->adjustOffsetInMutableData(difference, position, data);
    return isDone;
}

bool isChanged(KXMutableData const& edited, std::uint64_t lengthBefore)
{
    auto const kept = edited.keptBytes();
    bool const isWhole
        = kept.empty() ? !lengthBefore : kept.front() == KXMutableData::Kept { 0, 0, lengthBefore };
    return !isWhole || edited.length() != lengthBefore || !edited.overwrittenOrigins().empty();
}

}

std::optional<std::string> reasonAgainstEditByTree(
    KXMP4EditSafety::Edit const& edit, KXAbstractData& data, KXMP4Atom& root, bool isWhole)
{
    KXAbstractData::Ref const unowned(KXAbstractData::Ref(), &data);
    auto const edited = std::make_shared<KXMutableData>(unowned);
    bool const isFinished = edit(edited);
    if (isFinished && !isChanged(*edited, data.length()))
        return {};
    if (!isWhole)
        return std::string(reasons::tooManyAtoms);
    auto const reason = KXMP4EditComparison(data, edited, root).reason(isFinished);
    return reason.empty() ? std::nullopt : std::optional(std::string(reason));
}

KXMP4EditSafety::KXMP4EditSafety(KXAbstractData& data)
    : _data(data)
    , _isMP4(KXMDFileMeta::metaTypeForData(data) == KXMDMetaTypeMP4)
    , _root(KXMP4Atom::atomWithAbstractData(data))
    , _isWhole(data.budget().takeNode("KXMP4EditSafety->too many atoms"))
{
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstEdit(Edit const& edit) const
{
    return reasonAgainstEditByTree(edit, _data, *_root, _isWhole);
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstEditAt(
    std::uint64_t position, std::int64_t difference) const
{
    if (difference == 0)
        return {};
    auto const number = static_cast<std::uint64_t>(difference);
    auto const removed = difference < 0 ? std::optional(0 - number) : std::nullopt;
    if (!atomAt(position, removed, *_root))
        return std::string(reasons::noSuchAtom);
    return reasonAgainstEdit([&](KXMutableData::Ref const& data) {
        auto const root = treeOf(data);
        KXMP4Atom* const atom = atomAt(position, removed, *root);
        return atom
            && (removed ? atom->removeSelfFromMutableData(*data)
                        : insertUnknownAtomBefore(*atom, number, *data));
    });
}

/// Whether the operations on covers touch the file at all.
bool KXMP4EditSafety::areCoversEdited() const
{
    return _isMP4 && !_root->allAtomsWithPath(chunkOffsetTablePath).empty()
        && canRemoveInGoodTime(_root->allAtomsWithPath(coverPath).size(), *_root);
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstRemovingAlbumCover() const
{
    if (!areCoversEdited())
        return {};
    return reasonAgainstEdit([](KXMutableData::Ref const& data) {
        return KXMDFileMetaMP4().removeAlbumCoverFromData(data);
    });
}

std::optional<std::string> KXMP4EditSafety::reasonAgainstAddingAlbumCoverOfSize(
    std::uint64_t atomSize) const
{
    if (!areCoversEdited())
        return {};
    return reasonAgainstEdit([atomSize](KXMutableData::Ref const& data) {
        if (!KXMDFileMetaMP4().removeAlbumCoverFromData(data))
            return false;
        auto const root = treeOf(data);
        auto const place = placeOfCover(*root);
        if (!place || !atomSize || root->allAtomsWithPath(chunkOffsetTablePath).empty())
            return true; // The operation inserts nothing either.
        return insertUnknownAtomBefore(*place, atomSize, *data);
    });
}
