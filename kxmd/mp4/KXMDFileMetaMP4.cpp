#include "kxmd/mp4/KXMDFileMetaMP4.h"

#include "kxmd/core/KXAlbumCoverRulePrivate.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"
#include "kxmd/mp4/atoms/KXMP4AtomStsd.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

struct TagKey {
    std::string_view tag;
    std::string_view key;
};

// In the order in which they are applied: the upper-case artist wins.
constexpr TagKey tagKeys[] {
    { "©alb", KXMDMetadataKeyAlbum },
    { "aART", KXMDMetadataKeyAlbumArtist },
    { "©art", KXMDMetadataKeyArtist },
    { "©ART", KXMDMetadataKeyArtist },
    { "©nam", KXMDMetadataKeyName },
};

}

KXMDFileMetaMP4::KXMDFileMetaMP4() { setMetaType(KXMDMetaTypeMP4); }

bool KXMDFileMetaMP4::parseAbstractData(KXAbstractData& data)
{
    clearMetadata();
    auto const root = KXMP4Atom::atomWithAbstractData(data);
    setMp4Atom(root);

    // One walk over the tag lists finds the last atom of every tag.
    std::array<KXMP4Atom::Ref, std::size(tagKeys)> lastAtoms; // One for each of the tags.
    for (auto const& tagList : root->allAtomsWithPath(tagListPath)) {
        for (auto& atom : tagList->children()) {
            auto const found = std::ranges::find(tagKeys, atom->tag(), &TagKey::tag);
            if (found != std::end(tagKeys))
                lastAtoms.at(static_cast<std::size_t>(found - std::begin(tagKeys))) = atom;
        }
    }
    for (std::size_t i = 0; i < std::size(tagKeys); ++i) {
        if (lastAtoms[i])
            setMetadataForKey(lastAtoms[i]->content(), tagKeys[i].key);
    }
    setFilesize(data.length());
    return true;
}

KXMP4Atom::List KXMDFileMetaMP4::atomsWithPath(std::string_view path) const
{
    auto const root = mp4Atom();
    return root ? root->allAtomsWithPath(path) : KXMP4Atom::List();
}

bool KXMDFileMetaMP4::containsVideo() const
{
    return !atomsWithPath("moov/trak/mdia/minf/vmhd").empty();
}

KXMDCodecInfo::List KXMDFileMetaMP4::codecsInfoOfTracks(KXMP4TrackType type) const
{
    KXMDCodecInfo::List codecs;
    for (auto const& track : atomsWithPath("moov/trak")) {
        if (track->trackType() != type)
            continue;
        for (auto const& atom : track->allAtomsWithPath("trak/mdia/minf/stbl/stsd")) {
            if (auto const table = std::dynamic_pointer_cast<KXMP4AtomStsd>(atom))
                std::ranges::move(table->codecsInfo(), std::back_inserter(codecs));
        }
    }
    return codecs;
}

KXMDCodecInfo::List KXMDFileMetaMP4::videoCodecsInfo() const
{
    return codecsInfoOfTracks(KXMP4TrackTypeVideo);
}

KXMDCodecInfo::List KXMDFileMetaMP4::audioCodecsInfo() const
{
    return codecsInfoOfTracks(KXMP4TrackTypeSound);
}

bool KXMDFileMetaMP4::hasValidAlbumCover() const
{
    KXAlbumCoverRule rule;
    for (auto const& atom : atomsWithPath(coverPath)) {
        if (auto const cover = std::dynamic_pointer_cast<KXMP4AtomCovr>(atom))
            rule.addCoverOfSize(cover->albumCoverSize());
    }
    return rule.isMet();
}

bool KXMDFileMetaMP4::hasChunkOffsetTable() const
{
    return !atomsWithPath(chunkOffsetTablePath).empty();
}

bool KXMDFileMetaMP4::canInsertAlbumCover() const
{
    return hasChunkOffsetTable() && !atomsWithPath(tagListPath).empty();
}
