#pragma once

#include <string_view>

/// Why an edit would lose media, each as a part of a sentence.
namespace reasons {

inline constexpr std::string_view noSuchAtom
    = "no atom of that size begins at the place of the edit";
inline constexpr std::string_view pastTheEnd
    = "an atom to be removed runs past the end of the file";
inline constexpr std::string_view tooManyAtoms = "the file has too many atoms";
inline constexpr std::string_view largeSize = "an atom within the movie has a 64-bit size";
inline constexpr std::string_view sizesDoNotNest
    = "the sizes of the atoms around the edit contradict each other";
inline constexpr std::string_view sizePast4GiB = "an atom would grow past 4 GiB";
inline constexpr std::string_view sizeNotCorrected
    = "the size of an atom around the edit would not be corrected";
inline constexpr std::string_view tableNotCorrected = "a chunk offset table would not be corrected";
inline constexpr std::string_view straddlingTable
    = "a chunk offset table has entries before the edit ahead of entries after it";
inline constexpr std::string_view table64 = "a 64-bit chunk offset table would not be corrected";
inline constexpr std::string_view offsetPast4GiB = "a chunk offset would pass 4 GiB";
inline constexpr std::string_view mediaRemoved = "media would be removed";
inline constexpr std::string_view tableTooLong
    = "a chunk offset table claims more entries than it holds, and what follows would be changed";
inline constexpr std::string_view noTable
    = "bytes that are not a chunk offset table would be changed as if they were";
inline constexpr std::string_view mediaElsewhere
    = "the chunk offsets of media in another file would be changed";
inline constexpr std::string_view auxiliary
    = "the offsets of sample auxiliary information would not be corrected";
inline constexpr std::string_view fragment
    = "the offsets of a movie fragment would not be corrected";
inline constexpr std::string_view fragmentIndex
    = "the index of the movie fragments would not be corrected";
inline constexpr std::string_view segmentIndex = "a segment index would not be corrected";
inline constexpr std::string_view items = "the places of items would not be corrected";

}
