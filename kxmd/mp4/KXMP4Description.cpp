#include "kxmd/mp4/KXMP4DescriptionPrivate.h"

#include "kxmd/mp4/KXMP4InnerAtomsPrivate.h"
#include "kxmd/mp4/KXMP4KeyNamesPrivate.h"
#include "kxmd/mp4/KXMP4TextFieldPrivate.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace {

// The tag list of iTunes. Not what cameras and their programs write: the program (©too), the day,
// a comment, the place; nor a cover, since drones put a frame of their own there.
constexpr KXFourCharacterCode textTags[] { "©nam", "©ART", "©art", "©alb", "aART", "©wrt", "©gen",
    "©grp", "©dir", "©prd", "tvsh", "tven", "tvnn", "desc", "ldes", "sdes" };
constexpr KXFourCharacterCode numberTags[] { "gnre", "tvsn", "tves" };

// QuickTime File Format, "User data text strings and language codes". Not the description, where
// cameras have a text of their own.
constexpr KXFourCharacterCode userDataTexts[] { "©nam", "©ART", "©art", "©alb", "©wrt", "©com",
    "©gen", "©dir", "©prd", "©prf", "©aut" };
// 3GPP TS 26.244, 8. Nor the place (loci), the year and the copyright, which phones write.
constexpr KXFourCharacterCode assetTexts[] { "titl", "auth", "perf", "albm", "gnre" };

constexpr KXFourCharacterCode valueType { "data" };

/// The type as it stands in the file: numbers of keys are no text.
KXFourCharacterCode typeOf(KXMP4Atom const& atom, KXAbstractData& data)
{
    data.setOffset(atom.offset() + 4);
    return KXFourCharacterCode(data.readUInt32OrZero(KXSwap::yes));
}

std::uint64_t endOf(KXMP4Atom const& atom) { return atom.offset() + atom.size(); }

/// Whether any value of a tag is more than spaces or, of a number, more than 0.
bool hasTagValue(KXMP4Atom const& tag, bool isNumber, KXAbstractData& data)
{
    constexpr std::uint64_t valueHeaderSize = 8; // Type indicator and locale.
    constexpr std::uint32_t utf16 = 2; // QuickTime File Format, "Well-known types".
    bool isFound = false;
    visitInnerAtoms(data, tag.offset() + atomHeaderSize, endOf(tag), [&](auto const& value) {
        if (value.type != valueType || value.payloadLength() < valueHeaderSize)
            return true;
        data.setOffset(value.payload);
        auto const kind = data.readUInt32OrZero(KXSwap::yes) == utf16 ? KXMP4TextKind::utf16
                                                                      : KXMP4TextKind::any;
        std::uint64_t const start = value.payload + valueHeaderSize;
        isFound = isNumber ? hasNumberOtherThanZero(data, start, value.end)
                           : isDescriptiveText(data, start, value.end, kind);
        return !isFound;
    });
    return isFound;
}

bool isTagListDescriptive(KXMP4Atom& tagList, KXAbstractData& data)
{
    return std::ranges::any_of(tagList.children(), [&data](auto const& tag) {
        auto const type = typeOf(*tag, data);
        bool const isNumber = isOneOf(numberTags, type);
        return (isNumber || isOneOf(textTags, type)) && hasTagValue(*tag, isNumber, data);
    });
}

/// The same for a list whose tags are numbers of keys, counted from 1.
bool isKeyedListDescriptive(
    KXMP4Atom& tagList, std::vector<bool> const& isKeyDescriptive, KXAbstractData& data)
{
    return std::ranges::any_of(tagList.children(), [&](auto const& tag) {
        std::uint32_t const number = typeOf(*tag, data).value();
        return number && number <= isKeyDescriptive.size() && isKeyDescriptive[number - 1]
            && hasTagValue(*tag, false, data);
    });
}

bool isMetadataDescriptive(KXMP4Atom& meta, KXAbstractData& data)
{
    auto const keys = meta.allAtomsWithPath("meta/keys");
    auto const isKeyDescriptive
        = keys.empty() ? std::vector<bool>() : descriptiveKeys(data, *keys.front());
    return std::ranges::any_of(meta.allAtomsWithPath("meta/ilst"), [&](auto const& tagList) {
        return keys.empty() ? isTagListDescriptive(*tagList, data)
                            : isKeyedListDescriptive(*tagList, isKeyDescriptive, data);
    });
}

/// Whether one of the texts is not empty: each follows its length and language, 16 bits each.
bool hasUserDataText(KXMP4Atom const& atom, KXAbstractData& data)
{
    constexpr std::uint64_t headerSize = 4;
    std::uint64_t position = atom.offset() + atomHeaderSize;
    while (position + headerSize < endOf(atom) && data.budget().takeStep()) {
        data.setOffset(position);
        std::uint64_t const length = data.readUInt16OrZero(KXSwap::yes);
        position += headerSize;
        std::uint64_t const end = std::min(position + length, endOf(atom));
        if (isDescriptiveText(data, position, end, KXMP4TextKind::any))
            return true;
        position = end;
    }
    return false;
}

/// Whether a text after version, flags and a language is not empty.
bool hasAssetText(KXMP4Atom const& atom, KXAbstractData& data)
{
    constexpr std::uint64_t textOffset = atomHeaderSize + 6;
    return atom.size() > textOffset
        && isDescriptiveText(data, atom.offset() + textOffset, endOf(atom), KXMP4TextKind::any);
}

bool hasChapters(KXMP4Atom const& list, KXAbstractData& data)
{
    // The list has no standard. Its first version has four more bytes before the count.
    data.setOffset(list.offset() + atomHeaderSize);
    bool const isFirstVersion = data.readUInt8OrZero() != 0;
    std::uint64_t const countOffset = atomHeaderSize + (isFirstVersion ? 8 : 4);
    data.setOffset(list.offset() + countOffset);
    return list.size() > countOffset && data.readUInt8OrZero() != 0;
}

bool isUserDatumDescriptive(KXMP4Atom const& atom, KXAbstractData& data)
{
    auto const type = typeOf(atom, data);
    if (isOneOf(userDataTexts, type)) // Some programs write values as in the tag list of iTunes.
        return hasTagValue(atom, false, data) || hasUserDataText(atom, data);
    if (isOneOf(assetTexts, type))
        return hasAssetText(atom, data);
    return type == KXFourCharacterCode("chpl") && hasChapters(atom, data);
}

}

bool isMovieDescribed(KXMP4Atom& root, KXAbstractData& data)
{
    for (std::string_view const path : { "moov/meta", "moov/udta/meta" }) {
        for (auto const& meta : root.allAtomsWithPath(path)) {
            if (isMetadataDescriptive(*meta, data))
                return true;
        }
    }
    for (std::string_view const path : { "moov/udta", "moov/trak/udta" }) {
        for (auto const& userData : root.allAtomsWithPath(path)) {
            auto const isDescriptive
                = [&data](auto const& atom) { return isUserDatumDescriptive(*atom, data); };
            if (std::ranges::any_of(userData->children(), isDescriptive))
                return true;
        }
    }
    return false;
}
