// Covers of any bytes: put in, predicted, taken out again. Whatever an edit answers, the buffer is
// parsed afterwards.

#include "FuzzTarget.h"

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"

#include <algorithm>

namespace {

// The size field of an ID3v2 tag, which is written anew without the bits that do not count.
constexpr std::ptrdiff_t tagSizeAt = 6, tagSizeEnd = 10;

bool areSameButForTheTagSize(KXMutableData const& data, std::vector<std::uint8_t> const& original)
{
    auto const bytes = data.bytes();
    return bytes.size() == original.size()
        && std::equal(bytes.begin(), bytes.begin() + tagSizeAt, original.begin())
        && std::equal(bytes.begin() + tagSizeEnd, bytes.end(), original.begin() + tagSizeEnd);
}

/// Whether the chunk offset tables of the tree have no more entries than the file has room for. An
/// edit refuses more, which only tables that it reads several times have: those of atoms that
/// overlap. The file with a cover has more room, so it may get one that cannot be taken back.
bool haveTablesRoom(KXMP4Atom& root, std::uint64_t length)
{
    constexpr std::uint64_t entrySize = 4;
    std::uint64_t entries = 0;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t) {
        if (auto const* const table = dynamic_cast<KXMP4AtomSampleTable const*>(&atom)) {
            std::uint64_t const room = (length - std::min(table->offset(), length)) / entrySize;
            entries += std::min<std::uint64_t>(table->noOfEntries(), room);
        }
        return true;
    });
    return entries <= length / entrySize;
}

/// Whether an edit is one of those that can be taken back.
bool canBeTakenBack(
    KXMDFileMeta const& meta, KXMutableData::Ref const& data, std::uint64_t coverSize)
{
    if (meta.albumCoverSizeForEmbeddedTags())
        return false;
    if (auto const* const mp3 = dynamic_cast<KXMDFileMetaMP3 const*>(&meta)) {
        // The new size stays within its 28 bits, and no frame is so short (sizes wrap) that its
        // header reaches into the next one.
        return data->bytes()[tagSizeAt] < 0x20
            && std::ranges::all_of(*mp3->frames(),
                [](auto const& frame) { return frame->size() >= frame->headerSize(); });
    }
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    for (auto const& list : meta.mp4Atom()->allAtomsWithPath("moov/udta/meta/ilst")) {
        if (!std::ranges::all_of(
                list->children(), [](auto const& atom) { return atom->size() >= 8; }))
            return false; // Nor any tag.
    }
    return haveTablesRoom(*meta.mp4Atom(), data->length())
        && !KXMP4EditSafety(*reader).reasonAgainstAddingAlbumCoverOfSize(coverSize);
}

void removeLastFrame(std::vector<std::uint8_t> bytes)
{
    auto const data = std::make_shared<KXMutableData>(std::move(bytes));
    KXMDFileMetaMP3 meta;
    if (!meta.parseAbstractData(*KXMutableAbstractData::abstractDataWithData(data)))
        return;
    std::uint64_t const before = data->length();
    auto const frames = meta.frames();
    if (!frames->empty() && frames->back()->removeSelfFromMutableData(*data))
        KXMD_REQUIRE(data->length() + frames->back()->size() == before);
}

void removeUserData(std::vector<std::uint8_t> bytes)
{
    auto const data = std::make_shared<KXMutableData>(std::move(bytes));
    auto const root
        = KXMP4Atom::atomWithAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
    auto const atoms = root->allAtomsWithPath("moov/udta");
    std::uint64_t const before = data->length();
    if (!atoms.empty() && atoms.front()->removeSelfFromMutableData(*data))
        KXMD_REQUIRE(data->length() + atoms.front()->size() == before);
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    static KXData const picture(std::vector<std::uint8_t>(300, 'p'));
    std::vector<std::uint8_t> const original(bytes, bytes + length);
    removeUserData(original);
    removeLastFrame(original);

    auto const data = std::make_shared<KXMutableData>(original);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(
        *KXMutableAbstractData::abstractDataWithData(data));
    if (!meta || !meta->canInsertAlbumCover())
        return 0;
    std::uint64_t const coverSize = meta->albumCoverSizeForEncodedImage(picture);
    bool const isReversible = canBeTakenBack(*meta, data, coverSize);
    bool const isAdded = meta->addEncodedAlbumCoverToData(picture, data);
    if (!isAdded || !isReversible)
        return 0;
    KXMD_REQUIRE(data->length() == length + coverSize);
    KXMD_REQUIRE(meta->removeAlbumCoverFromData(data));
    KXMD_REQUIRE(meta->metaType() == KXMDMetaTypeMP3 ? areSameButForTheTagSize(*data, original)
                                                     : std::ranges::equal(data->bytes(), original));
    return 0;
}
