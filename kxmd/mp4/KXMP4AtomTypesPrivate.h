#pragma once

#include "kxmd/host/KXCodeList.h"

// The atom types that the library knows by more than their size. Text in UTF-8, so that the byte A9
// in front of QuickTime's user data types is the sign ©.

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
inline constexpr KXCodeList videoTypesMP4Visual {
    "DIVX,Xvid,mp4s,m4s2,xvid,mp4v,fmp4,3iv2,smp4"
};
inline constexpr KXCodeList videoTypesAVC { "h264,H264,s264,AVC1,avc1,DAVC,davc,X264,VSSH" };
inline constexpr KXCodeList videoTypesH263 { "h263,s263" };
