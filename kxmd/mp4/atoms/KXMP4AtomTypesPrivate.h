#pragma once

#include "kxmd/base/KXCodeListPrivate.h"
#include "kxmd/base/KXFourCharacterCodePrivate.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <cstdint>
#include <string_view>

// The atom types that the library knows by more than their size. Text in UTF-8, so that the byte A9
// that QuickTime's user data types begin with is the sign ©.

inline constexpr KXCodeList containerTypes {
    "moov,udta,meta,ilst,trak,tapt,edts,mdia,minf,dinf,stbl,wave"
};
inline constexpr KXCodeList sampleDescriptionTableTypes { "stsd" };
inline constexpr KXCodeList tagTypes { "©alb,aART,©art,©ART,©nam" };

// Sample entries.
inline constexpr KXCodeList soundTypesAAC { "mp4a" };
inline constexpr KXCodeList soundTypesALAC { "alac" };
inline constexpr KXCodeList soundTypesAMR { "samr" };
inline constexpr KXCodeList soundTypesAMRWB { "sawb" };
inline constexpr KXCodeList videoTypesMP4Visual { "DIVX,Xvid,mp4s,m4s2,xvid,mp4v,fmp4,3iv2,smp4" };
inline constexpr KXCodeList videoTypesAVC { "h264,H264,s264,AVC1,avc1,DAVC,davc,X264,VSSH" };
inline constexpr KXCodeList videoTypesH263 { "h263,s263" };

/// When an atom's payload is read as atoms.
enum class KXMP4ContainerRule : std::uint8_t {
    never,
    always,
    onceRootIsParsed, ///< Sample entries, in the second pass.
    inMediaTracks, ///< Sample description tables, in the second pass over video and sound tracks.
};

/// The classes that atoms are made of.
enum class KXMP4AtomClass : std::uint8_t {
    plain,
    hdlr,
    sampleTable,
    meta,
    covr,
    stsd,
    esds,
    avcC,
    d263,
    soundSD,
    videoSD,
};

/// How an atom of a type is treated.
struct KXMP4TypeTraits {
    KXMP4AtomClass atomClass { KXMP4AtomClass::plain };
    KXMP4ContainerRule containerRule { KXMP4ContainerRule::never };
    bool hasText { false }; ///< Whether it is a tag whose value is a text.
};

/// Whether the payload of an atom under `rule` is read as atoms. The other two are called only when
/// the answer depends on them.
template <class RootIsParsed, class TrackType>
bool isContainerUnderRule(KXMP4ContainerRule rule, RootIsParsed rootIsParsed, TrackType trackType)
{
    switch (rule) {
    case KXMP4ContainerRule::always:
        return true;
    case KXMP4ContainerRule::onceRootIsParsed:
        return rootIsParsed();
    case KXMP4ContainerRule::inMediaTracks:
        return rootIsParsed() && trackType() != KXMP4TrackTypeNone;
    case KXMP4ContainerRule::never:
        break;
    }
    return false;
}

/// By the tag of an atom, whatever text it is.
KXMP4ContainerRule containerRuleOfTag(std::string_view tag);

/// The traits of a type read from a file: one table lookup instead of a search through every list.
KXMP4TypeTraits traitsOfType(KXFourCharacterCode type);
