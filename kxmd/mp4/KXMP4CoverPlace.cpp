#include "kxmd/mp4/KXMP4CoverPlacePrivate.h"

#include "kxmd/base/KXByteBuilderPrivate.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"

#include <algorithm>
#include <initializer_list>
#include <span>

namespace {

constexpr std::uint64_t atomHeaderSize = 8;

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

/// A place in a file for new bytes, and the atom around them.
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
    return lastPlaceIn(movies.front(), atomOf("udta", { metadata() }));
}

bool insertAt(Place const& place, KXMP4Atom& root, KXMutableData& data)
{
    if (!data.insertBytesAt(place.bytes.bytes(), place.position))
        return false;
    auto const difference = static_cast<std::int64_t>(place.bytes.length());
    bool const areSizesCorrect = place.parent->adjustSizeInMutableData(difference, data);
    return root.adjustOffsetInMutableData(difference, place.position, data) && areSizesCorrect;
}

}

bool hasPlaceForMP4Cover(KXMP4Atom& root) { return placeOfCover(root) != nullptr; }

bool makePlaceForMP4Cover(KXMutableData& data, KXAbstractData& reader)
{
    auto const root = KXMP4Atom::atomWithAbstractData(reader);
    if (hasPlaceForMP4Cover(*root))
        return false;
    auto const place = placeOfWhatIsMissing(*root, reader);
    return place && insertAt(*place, *root, data);
}
