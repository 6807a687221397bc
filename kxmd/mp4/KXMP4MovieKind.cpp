#include "kxmd/mp4/KXMP4MovieKind.h"

#include "kxmd/mp4/KXMP4DescriptionPrivate.h"
#include "kxmd/mp4/KXMP4InnerAtomsPrivate.h"
#include "kxmd/mp4/KXMP4LargeAtomsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtEsds.h"

#include <algorithm>
#include <span>
#include <vector>

namespace {

using Code = KXFourCharacterCode;

constexpr Code fileType { "ftyp" };
// What QuickTime files without a file type begin with.
constexpr Code firstTypes[] { "moov", "mdat", "wide", "free", "skip", "pnot" };
// Pictures and sequences of them: ISO/IEC 23008-12, 10, AVIF, and raw photographs.
constexpr Code pictureBrands[] { "mif1", "mif2", "msf1", "heic", "heix", "heim", "heis", "hevc",
    "hevx", "hevm", "hevs", "avif", "avis", "avci", "avcs", "crx " };
constexpr Code audioBrands[] { "M4A ", "M4B ", "M4P " };

constexpr Code pictureEntries[] { "jpeg", "mjpa", "mjpb", "mjpg", "mjp2", "png ", "gif ", "tiff" };
constexpr Code protectedEntries[] { "enca", "encv", "enct", "encs", // ISO/IEC 14496-12, 8.12.
    "drms", "drmi", "drmt", "aavd" }; // Before that.

Code codeAt(std::uint64_t position, KXAbstractData& data)
{
    data.setOffset(position);
    return Code(data.readUInt32OrZero(KXSwap::yes));
}

/// The brand of a file with a file type atom; none without one.
Code majorBrand(KXAbstractData& data)
{
    constexpr std::uint64_t typeOffset = 4, brandOffset = 8;
    return codeAt(typeOffset, data) == fileType ? codeAt(brandOffset, data) : Code();
}

bool isMovieFile(KXMP4Atom& root, KXAbstractData& data)
{
    Code const firstType = codeAt(4, data);
    if (firstType == fileType)
        return !isOneOf(pictureBrands, majorBrand(data));
    return isOneOf(firstTypes, firstType) && !root.allAtomsWithPath("moov").empty();
}

/// The tracks that a track names as its chapters (QuickTime File Format, "Chapter lists").
void appendChapterTracks(std::vector<std::uint32_t>& ids, KXMP4Atom& track, KXAbstractData& data)
{
    constexpr std::uint64_t idSize = 4;
    for (auto const& references : track.allAtomsWithPath("trak/tref")) {
        std::uint64_t const begin = references->offset() + atomHeaderSize;
        std::uint64_t const end = references->offset() + references->size();
        visitInnerAtoms(data, begin, end, [&](auto const& reference) {
            bool const areChapters = reference.type == Code("chap");
            data.setOffset(reference.payload);
            for (std::uint64_t left = reference.payloadLength();
                 areChapters && left >= idSize && data.budget().takeStep(); left -= idSize) {
                if (std::uint32_t const id = data.readUInt32OrZero(KXSwap::yes))
                    ids.push_back(id);
            }
            return true;
        });
    }
}

std::uint32_t idOfTrack(KXMP4Atom& track, KXAbstractData& data)
{
    // ISO/IEC 14496-12, 8.3.2: version 1 has wider times before it.
    constexpr std::uint64_t versionOffset = 8, idOffset = 20, wideIDOffset = 28;
    auto const headers = track.allAtomsWithPath("trak/tkhd");
    if (headers.empty())
        return 0;
    std::uint64_t const start = headers.front()->offset();
    data.setOffset(start + versionOffset);
    bool const isWide = data.readUInt8OrZero() == 1;
    return codeAt(start + (isWide ? wideIDOffset : idOffset), data).value();
}

/// Whether a sample entry of the track is of one of these types.
bool hasEntryOf(std::span<Code const> types, KXMP4Atom& track, KXAbstractData& data)
{
    constexpr std::uint64_t entriesOffset = 16; // ISO/IEC 14496-12, 8.5.2.
    bool isFound = false;
    for (auto const& table : track.allAtomsWithPath("trak/mdia/minf/stbl/stsd")) {
        std::uint64_t const begin = table->offset() + entriesOffset;
        visitInnerAtoms(data, begin, table->offset() + table->size(), [&](auto const& entry) {
            isFound = isFound || isOneOf(types, entry.type);
            return !isFound;
        });
    }
    return isFound;
}

/// Whether the track's entry says, as some programs do, that its MPEG-4 video is a picture.
bool hasPictureDescriptor(KXMP4Atom& track)
{
    constexpr std::int32_t jpeg = 0x6C, png = 0x6D; // Object types: ISO/IEC 14496-1, 7.2.6.6.
    auto const descriptors = track.allAtomsWithPath("trak/mdia/minf/stbl/stsd/mp4v/esds");
    return std::ranges::any_of(descriptors, [](auto const& atom) {
        auto const* const descriptor = dynamic_cast<KXMP4AtomSDExtEsds const*>(atom.get());
        return descriptor
            && (descriptor->objectTypeIndication() == jpeg
                || descriptor->objectTypeIndication() == png);
    });
}

bool isOfMeasurements(KXMP4Atom& track, KXAbstractData& data)
{
    constexpr Code timedMetadata { "meta" };
    constexpr std::uint64_t handlerTypeOffset = 16; // ISO/IEC 14496-12, 8.4.3.
    return std::ranges::any_of(track.allAtomsWithPath("trak/mdia/hdlr"), [&](auto const& handler) {
        return codeAt(handler->offset() + handlerTypeOffset, data) == timedMetadata;
    });
}

bool isStill(KXMP4Atom& track, KXAbstractData& data)
{
    constexpr std::uint64_t sampleCountOffset = 16; // ISO/IEC 14496-12, 8.7.3, of both tables.
    auto const isOfOneSample = [&data](auto const& table) {
        return codeAt(table->offset() + sampleCountOffset, data).value() == 1;
    };
    bool const hasOneSample
        = std::ranges::any_of(track.allAtomsWithPath("trak/mdia/minf/stbl/stsz"), isOfOneSample)
        || std::ranges::any_of(track.allAtomsWithPath("trak/mdia/minf/stbl/stz2"), isOfOneSample);
    return hasOneSample && (hasEntryOf(pictureEntries, track, data) || hasPictureDescriptor(track));
}

}

std::optional<KXMP4MovieKind> KXMP4MovieKind::kindOfData(KXAbstractData& data)
{
    auto const root = treeWithLargeAtoms(data);
    std::optional<KXMP4MovieKind> kind;
    if (isMovieFile(*root, data)) {
        kind.emplace();
        auto const tracks = root->allAtomsWithPath("moov/trak");
        std::vector<std::uint32_t> chapters;
        for (auto const& track : tracks)
            appendChapterTracks(chapters, *track, data);
        std::ranges::sort(chapters);
        bool hasSound = false;
        for (auto const& track : tracks) {
            auto const type = track->trackType();
            hasSound |= type == KXMP4TrackTypeSound;
            kind->hasMovingPictures |= type == KXMP4TrackTypeVideo && !isStill(*track, data)
                && !std::ranges::binary_search(chapters, idOfTrack(*track, data));
            kind->hasMeasurements |= isOfMeasurements(*track, data);
            kind->isProtected |= hasEntryOf(protectedEntries, *track, data);
        }
        bool const isAudioFile = isOneOf(audioBrands, majorBrand(data));
        kind->isMusic = hasSound && (!kind->hasMovingPictures || isAudioFile);
        kind->isDescribed = !chapters.empty() || isMovieDescribed(*root, data);
    }
    data.setOffset(0);
    return kind;
}
