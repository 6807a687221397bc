#include "kxmd/mp4/KXMP4CoverPlacePrivate.h"

#include "kxmd/base/KXByteBuilderPrivate.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp4/KXMP4InnerAtomsPrivate.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"

#include <algorithm>
#include <initializer_list>
#include <span>
#include <utility>
#include <vector>

namespace {

KXData atomOf(KXFourCharacterCode type, std::initializer_list<KXData> parts)
{
    std::uint64_t size = atomHeaderSize;
    for (KXData const& part : parts)
        size += part.length();
    KXByteBuilder atom(size);
    atom.appendUInt32(static_cast<std::uint32_t>(size));
    atom.appendCode(type);
    for (KXData const& part : parts)
        atom.appendBytes(part.bytes());
    return atom.takeData();
}

KXData versionAndFlags() { return KXData(std::vector<std::uint8_t>(4)); }

/// The tag of least meaning: 0 for gapless music, as iTunes writes it.
KXData firstTag()
{
    constexpr std::uint32_t isInteger = 21; // QuickTime File Format, "Well-known types".
    constexpr std::size_t valueSize = 9;
    KXByteBuilder value(valueSize);
    value.appendUInt32(isInteger);
    value.appendUInt32(0); // Locale.
    value.appendUInt8(0);
    return atomOf("pgap", { atomOf("data", { value.takeData() }) });
}

KXData tagList() { return atomOf("ilst", { firstTag() }); }

/// The handler that says whose tags these are (ISO/IEC 14496-12, 8.4.3 and 8.11.1).
KXData handler()
{
    constexpr std::size_t fieldsSize = 25;
    KXByteBuilder fields(fieldsSize);
    fields.appendUInt32(0); // Version and flags.
    fields.appendUInt32(0); // Pre-defined.
    fields.appendCode("mdir");
    fields.appendCode("appl"); // Reserved elsewhere; without it, some programs see no tags.
    fields.appendNumber(0, 8); // Reserved.
    fields.appendUInt8(0); // No name.
    return atomOf("hdlr", { fields.takeData() });
}

KXData metadata() { return atomOf("meta", { versionAndFlags(), handler(), tagList() }); }

/// What is missing, the atom that it belongs in, and where in the file; the movie has no such
/// place.
struct Place {
    KXMP4Atom::Ref parent;
    std::uint64_t position { 0 };
    KXData bytes;
};

/// After the last child of `parent`: what follows may be a zero that ends user data.
Place lastPlaceIn(KXMP4Atom::Ref const& parent, KXData bytes)
{
    auto const children = parent->children();
    std::uint64_t const position = children.empty()
        ? parent->offset() + atomHeaderSize
        : children.back()->offset() + children.back()->size();
    return { parent, position, std::move(bytes) };
}

Place placeInEmptyMetadata(KXMP4Atom::Ref const& meta, KXAbstractData& reader)
{
    constexpr std::uint64_t fieldsSize = 4;
    reader.setOffset(meta->offset() + atomHeaderSize);
    bool const hasFields = meta->size() >= atomHeaderSize + fieldsSize
        && reader.remainingLength() >= fieldsSize && !reader.readUInt32OrZero(KXSwap::yes);
    KXByteBuilder bytes(0);
    if (!hasFields)
        bytes.appendBytes(versionAndFlags().bytes());
    bytes.appendBytes(handler().bytes());
    bytes.appendBytes(tagList().bytes());
    std::uint64_t const start = meta->offset() + atomHeaderSize;
    return { meta, hasFields ? start + fieldsSize : start, bytes.takeData() };
}

/// Absent when the metadata is of another kind.
std::optional<Place> placeInMetadata(KXMP4Atom::Ref const& meta, KXAbstractData& reader)
{
    auto const children = meta->children();
    if (children.empty())
        return placeInEmptyMetadata(meta, reader);
    // The places of items would have to be corrected, and music has none.
    if (std::ranges::find(children, "iloc", &KXMP4Atom::tag) != children.end())
        return std::nullopt;
    auto const found = std::ranges::find(children, "hdlr", &KXMP4Atom::tag);
    if (found == children.end()) {
        KXByteBuilder bytes(0);
        bytes.appendBytes(handler().bytes());
        bytes.appendBytes(tagList().bytes());
        return Place { meta, children.front()->offset(), bytes.takeData() };
    }
    auto const* const given = dynamic_cast<KXMP4AtomHdlr const*>(found->get());
    if (!given || given->mediaHandlerType() != "mdir")
        return std::nullopt;
    return Place { meta, given->offset() + given->size(), tagList() };
}

std::optional<Place> placeOfWhatIsMissing(KXMP4Atom& root, KXAbstractData& reader)
{
    auto const tagLists = root.allAtomsWithPath(tagListPath);
    if (!tagLists.empty())
        return lastPlaceIn(tagLists.back(), firstTag());
    auto const metas = root.allAtomsWithPath("moov/udta/meta");
    if (!metas.empty())
        return placeInMetadata(metas.back(), reader);
    auto const userData = root.allAtomsWithPath("moov/udta");
    if (!userData.empty())
        return lastPlaceIn(userData.back(), metadata());
    auto const movies = root.allAtomsWithPath("moov");
    if (movies.empty())
        return std::nullopt;
    return Place { movies.front(), 0, atomOf("udta", { metadata() }) };
}

/// The user data around a place; null when it is the movie that lacks it.
KXMP4Atom* userDataAround(Place const& place)
{
    KXMP4Atom* atom = place.parent.get();
    while (atom && atom->tag() != "udta")
        atom = atom->parent();
    return atom;
}

/// The bytes of the user data with what is missing in its place; none when they are not all there.
std::vector<std::uint8_t> completedUserData(
    KXMP4Atom const& userData, Place const& place, KXAbstractData& reader)
{
    std::uint64_t const start = userData.offset(), end = start + userData.size();
    if (end > reader.length() || place.position < start || place.position > end)
        return {};
    std::vector<std::uint8_t> bytes(userData.size());
    reader.setOffset(start);
    if (!reader.readBytesTo(bytes.data(), bytes.size()))
        return {};
    KXMutableData completed(std::move(bytes));
    auto const length = place.bytes.length();
    bool isDone = completed.insertBytesAt(place.bytes.bytes(), place.position - start);
    for (KXMP4Atom* atom = place.parent.get();; atom = atom->parent()) {
        isDone = isDone && atom->offset() >= start && atom->offset() < place.position
            && completed.replaceUInt32AtWith(
                atom->offset() - start, static_cast<std::uint32_t>(atom->size() + length));
        if (!isDone || atom == &userData)
            break;
    }
    auto const all = completed.bytes();
    return isDone ? std::vector<std::uint8_t>(all.begin(), all.end()) : std::vector<std::uint8_t>();
}

/// Inserts user data before the child of the movie that has this number, or before the last one.
/// Never at the movie's end, where nothing would tell whether it still belongs to the movie.
bool insertUserData(std::span<std::uint8_t const> userData, KXMP4Atom const& movie,
    std::size_t number, KXMutableData& data)
{
    auto const children = movie.children();
    return !children.empty()
        && children[std::min(number, children.size() - 1)]->insertBeforeSelfInMutableData(
            data, userData);
}

/// Puts user data in the place of another.
bool replaceUserData(
    KXMP4Atom& old, std::span<std::uint8_t const> userData, KXMutableData::Ref const& data)
{
    auto const siblings = old.parent()->children();
    auto const found = std::ranges::find(siblings, &old, &KXMP4Atom::Ref::get);
    auto const number = static_cast<std::size_t>(found - siblings.begin());
    std::uint64_t const movieOffset = old.parent()->offset();
    if (!old.removeSelfFromMutableData(*data))
        return false;
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const root = KXMP4Atom::atomWithAbstractData(*reader);
    auto const movies = root->allAtomsWithPath("moov");
    auto const movie = std::ranges::find(movies, movieOffset, &KXMP4Atom::offset);
    return movie != movies.end() && insertUserData(userData, **movie, number, *data);
}

}

bool hasPlaceForMP4Cover(KXMP4Atom& root) { return placeOfCover(root) != nullptr; }

bool makePlaceForMP4Cover(KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const root = KXMP4Atom::atomWithAbstractData(*reader);
    auto const place
        = hasPlaceForMP4Cover(*root) ? std::nullopt : placeOfWhatIsMissing(*root, *reader);
    if (!place)
        return false;
    KXMP4Atom* const old = userDataAround(*place);
    if (!old)
        return insertUserData(
            place->bytes.bytes(), *place->parent, place->parent->children().size(), *data);
    auto const userData = completedUserData(*old, *place, *reader);
    return !userData.empty() && replaceUserData(*old, userData, data);
}
