#include "kxmd/mp4/atoms/KXMP4AtomTypesPrivate.h"

#include <array>
#include <cstddef>

namespace {

struct TypeClass {
    std::string_view type;
    KXMP4AtomClass atomClass;
};

constexpr TypeClass typeClasses[] {
    { "hdlr", KXMP4AtomClass::hdlr },
    { "stco", KXMP4AtomClass::sampleTable },
    { "meta", KXMP4AtomClass::meta },
    { "covr", KXMP4AtomClass::covr },
    { "stsd", KXMP4AtomClass::stsd },
    { "esds", KXMP4AtomClass::esds },
    { "avcC", KXMP4AtomClass::avcC },
    { "d263", KXMP4AtomClass::d263 },
};

struct TypeListClass {
    KXCodeList const& types;
    KXMP4AtomClass atomClass;
};

constexpr TypeListClass typeListClasses[] {
    { soundTypesAAC, KXMP4AtomClass::soundSD },
    { soundTypesALAC, KXMP4AtomClass::soundSD },
    { soundTypesAMR, KXMP4AtomClass::soundSD },
    { soundTypesAMRWB, KXMP4AtomClass::soundSD },
    { videoTypesMP4Visual, KXMP4AtomClass::videoSD },
    { videoTypesAVC, KXMP4AtomClass::videoSD },
    { videoTypesH263, KXMP4AtomClass::videoSD },
};

constexpr KXMP4AtomClass classOfType(std::string_view type)
{
    for (auto const& typeClass : typeClasses) {
        if (type == typeClass.type)
            return typeClass.atomClass;
    }
    for (auto const& typeListClass : typeListClasses) {
        if (typeListClass.types.contains(type))
            return typeListClass.atomClass;
    }
    return KXMP4AtomClass::plain;
}

struct TagRule {
    KXCodeList const& tags;
    KXMP4ContainerRule rule;
};

// Of the sound entries only AAC's: those of the other codecs keep no children, on purpose.
constexpr TagRule tagRules[] {
    { containerTypes, KXMP4ContainerRule::always },
    { sampleDescriptionTableTypes, KXMP4ContainerRule::inMediaTracks },
    { videoTypesMP4Visual, KXMP4ContainerRule::onceRootIsParsed },
    { videoTypesAVC, KXMP4ContainerRule::onceRootIsParsed },
    { videoTypesH263, KXMP4ContainerRule::onceRootIsParsed },
    { soundTypesAAC, KXMP4ContainerRule::onceRootIsParsed },
};

constexpr KXMP4ContainerRule ruleOfTag(std::string_view tag)
{
    for (auto const& [tags, rule] : tagRules) {
        if (tags.contains(tag))
            return rule;
    }
    return KXMP4ContainerRule::never;
}

/// Every type that has a class or a rule of its own, found by its hash.
class TraitsTable {
public:
    consteval TraitsTable()
    {
        for (auto const& typeClass : typeClasses)
            add(typeClass.type);
        for (auto const& typeListClass : typeListClasses)
            addEveryCodeOf(typeListClass.types);
        for (auto const& tagRule : tagRules)
            addEveryCodeOf(tagRule.tags);
        addEveryCodeOf(tagTypes);
    }

    KXMP4TypeTraits traitsOfType(KXFourCharacterCode type) const
    {
        std::size_t slot = hashOfCode(type.value());
        while (_slots[slot].type != type) {
            if (_slots[slot].type.isNone())
                return {};
            slot = (slot + 1) % _slots.size();
        }
        return _slots[slot].traits;
    }

private:
    struct Slot {
        KXFourCharacterCode type; ///< No list holds a zero byte: none marks a free slot.
        KXMP4TypeTraits traits;
    };

    consteval void add(std::string_view code)
    {
        auto const type = KXFourCharacterCode::codeOfText(code).value();
        std::size_t slot = hashOfCode(type.value());
        while (!_slots[slot].type.isNone() && _slots[slot].type != type)
            slot = (slot + 1) % _slots.size();
        _slots[slot] = { type, { classOfType(code), ruleOfTag(code), tagTypes.contains(code) } };
    }

    /// Includes codes that straddle a comma: they belong to the list like any other.
    consteval void addEveryCodeOf(KXCodeList const& list)
    {
        constexpr std::size_t longestCode = 2 * KXFourCharacterCode::length; // In UTF-8.
        std::string_view const codes = list.codes();
        for (std::size_t i = 0; i < codes.size(); ++i) {
            for (std::size_t length = KXFourCharacterCode::length; length <= longestCode;
                 ++length) {
                std::string_view const code = codes.substr(i, length);
                if (code.size() == length && KXFourCharacterCode::codeOfText(code))
                    add(code);
            }
        }
    }

    std::array<Slot, noOfCodeHashes> _slots {}; // One for each hash, and room to move on.
};

constexpr TraitsTable traitsTable;

}

KXMP4ContainerRule containerRuleOfTag(std::string_view tag) { return ruleOfTag(tag); }

KXMP4TypeTraits traitsOfType(KXFourCharacterCode type) { return traitsTable.traitsOfType(type); }
