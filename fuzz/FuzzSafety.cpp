// Edits of MP4 files that are called safe: the media is found afterwards, by a reader of our own
// that goes by the standards.

#include "FuzzTarget.h"
#include "MovieMaker.h"
#include "SameMedia.h"

#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"

#include <algorithm>
#include <array>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Data = KXMutableData::Ref;
using Reason = std::optional<std::string>;

/// An edit, and what is said of it.
struct Edit {
    KXMP4EditSafety::Edit make;
    Reason reason;
};

/// The metadata of a movie; null for a file that nobody would take for one.
KXMDFileMeta::Ref movieIn(Data const& data)
{
    auto meta = KXMDFileMeta::fileMetaWithAbstractData(
        *KXMutableAbstractData::abstractDataWithData(data));
    return meta && meta->metaType() == KXMDMetaTypeMP4 ? meta : nullptr;
}

Edit addingCover(KXMP4EditSafety const& safety, std::uint16_t pictureSize)
{
    KXData const picture(Bytes(pictureSize, 'p'));
    return { [picture](Data const& data) {
                auto const meta = movieIn(data);
                return meta && meta->addEncodedAlbumCoverToData(picture, data);
            },
        safety.reasonAgainstAddingAlbumCoverOfSize(
            KXMDFileMetaMP4().albumCoverSizeForEncodedImage(picture)) };
}

Edit removingCover(KXMP4EditSafety const& safety)
{
    return { [](Data const& data) {
                auto const meta = movieIn(data);
                return meta && meta->removeAlbumCoverFromData(data);
            },
        safety.reasonAgainstRemovingAlbumCover() };
}

Edit cleaning(KXAbstractData& source)
{
    return { &KXMDFileProcessorCleanIPhoneVideo::cleanData,
        KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(source) };
}

KXMP4Atom* atomAt(std::uint64_t position, std::optional<std::uint64_t> size, KXMP4Atom& root)
{
    KXMP4Atom* found = nullptr;
    root.visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth && atom.offset() == position && size.value_or(atom.size()) == atom.size())
            found = &atom;
        return !found;
    });
    return found;
}

/// Whether without this atom others mean something else.
bool isReadByOthers(KXMP4Atom& atom)
{
    return atom.tag() == "tfhd" || atom.tag() == "dref" || atom.tag() == "dinf";
}

/// Removes an atom that the fuzzer chooses, or inserts one of `inserted` bytes before it.
Edit editOfAtom(KXMP4EditSafety const& safety, KXAbstractData& source, std::uint16_t choice,
    std::uint64_t inserted)
{
    auto const root = KXMP4Atom::atomWithAbstractData(source);
    KXMP4Atom::List atoms;
    root->visitDepthFirst([&](KXMP4Atom& atom, std::size_t depth) {
        if (depth && (inserted || !isReadByOthers(atom)))
            atoms.push_back(atom.shared_from_this());
        return true;
    });
    if (atoms.empty())
        return { [](Data const&) { return true; }, {} };
    std::uint64_t const position = atoms[choice % atoms.size()]->offset();
    std::uint64_t const size = atoms[choice % atoms.size()]->size();
    auto const removed = inserted ? std::nullopt : std::optional(size);
    auto const difference = static_cast<std::int64_t>(inserted ? inserted : 0 - size);
    auto const make = [=](Data const& data) {
        auto const tree
            = KXMP4Atom::atomWithAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
        KXMP4Atom* const atom = atomAt(position, removed, *tree);
        if (!atom || removed)
            return !difference || (atom && atom->removeSelfFromMutableData(*data));
        Bytes bytes(inserted, 'i');
        bytes[0] = bytes[1] = 0;
        bytes[2] = static_cast<std::uint8_t>(inserted >> 8);
        bytes[3] = static_cast<std::uint8_t>(inserted);
        return atom->insertBeforeSelfInMutableData(*data, bytes);
    };
    return { make, safety.reasonAgainstEditAt(position, difference) };
}

Edit chosenEdit(KXMP4EditSafety const& safety, KXAbstractData& source, Choices& choices)
{
    auto const kind = choices.next<std::uint8_t>() % 5;
    auto const number = choices.next<std::uint16_t>();
    switch (kind) {
    case 0:
        return addingCover(safety, number % 1024);
    case 1:
        return removingCover(safety);
    case 2:
        return cleaning(source);
    case 3:
        return editOfAtom(safety, source, number, 0);
    default:
        return editOfAtom(safety, source, number, 8 + number % 512);
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    Choices choices(bytes, length);
    Choices ofEdit = choices;
    static_cast<void>(choices.next<std::array<std::uint8_t, 3>>());
    bool const isMade = choices.next<std::uint8_t>() % 4;
    auto const rest = choices.rest();
    Bytes const file = isMade ? MovieMaker(choices).movie() : Bytes(rest.begin(), rest.end());

    auto const source = immutableReader(file.data(), file.size());
    KXMP4EditSafety const safety(*source);
    auto const [make, reason] = chosenEdit(safety, *source, ofEdit);
    auto const data = std::make_shared<KXMutableData>(file);
    bool const isMadeInMemory = make(data);
    auto const overSource = std::make_shared<KXMutableData>(source);
    KXMD_REQUIRE(make(overSource) == isMadeInMemory);
    KXMD_REQUIRE(std::ranges::equal(data->bytes(), overSource->bytes()));
    KXMD_REQUIRE(data->keptBytes() == overSource->keptBytes());
    KXMD_REQUIRE(safety.reasonAgainstEdit(make) == safety.reasonAgainstEdit(make));
    MovieReferences const before(file);
    if (!reason && before.isClear())
        requireSameMedia(before, file, *data);
    return 0;
}
