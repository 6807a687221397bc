// The fields of every class of atoms: what they are at first, and that each setter sets its own.

#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"
#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtEsds.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/atoms/KXMP4AtomSoundSD.h"
#include "kxmd/mp4/atoms/KXMP4AtomStsd.h"
#include "kxmd/mp4/atoms/KXMP4AtomVideoSD.h"
#include "support/Fields.h"

TEST(KXMP4Atom, HasTheseFields)
{
    using Atom = KXMP4Atom;
    static Atom parent;
    expectFields<Atom>({
        field<Atom>("offset", &Atom::offset, &Atom::setOffset, 0, 1),
        field<Atom>("size", &Atom::size, &Atom::setSize, 0, 2),
        field<Atom>("tag", &Atom::tag, &Atom::setTag, "", "moov"),
        field<Atom>("content", &Atom::content, &Atom::setContent, {}, "Blue"),
        field<Atom>("parent", &Atom::parent, &Atom::setParent, nullptr, &parent),
    });
}

TEST(KXMP4AtomCovr, HasTheseFields)
{
    using Covr = KXMP4AtomCovr;
    expectFields<Covr>({ field<Covr>(
        "albumCoverSize", &Covr::albumCoverSize, &Covr::setAlbumCoverSize, {}, { 3, 4 }) });
}

TEST(KXMP4AtomHdlr, HasTheseFields)
{
    using Hdlr = KXMP4AtomHdlr;
    expectFields<Hdlr>({ field<Hdlr>(
        "mediaHandlerType", &Hdlr::mediaHandlerType, &Hdlr::setMediaHandlerType, {}, "vide") });
}

TEST(KXMP4AtomSDExtEsds, HasTheseFields)
{
    using Esds = KXMP4AtomSDExtEsds;
    expectFields<Esds>({
        field<Esds>("profile", &Esds::profile, &Esds::setProfile, 0, 1),
        field<Esds>("level", &Esds::level, &Esds::setLevel, 0, 2),
        field<Esds>("maxBitrate", &Esds::maxBitrate, &Esds::setMaxBitrate, 0, 3),
        field<Esds>("avgBitrate", &Esds::avgBitrate, &Esds::setAvgBitrate, 0, 4),
        field<Esds>("audioChannels", &Esds::audioChannels, &Esds::setAudioChannels, 0, 5),
        field<Esds>("objectTypeIndication", &Esds::objectTypeIndication,
            &Esds::setObjectTypeIndication, 0, 6),
        field<Esds>("objFlags", &Esds::objFlags, &Esds::setObjFlags, 0, 7),
    });
}

TEST(KXMP4AtomSampleTable, HasTheseFields)
{
    using Table = KXMP4AtomSampleTable;
    expectFields<Table>(
        { field<Table>("noOfEntries", &Table::noOfEntries, &Table::setNoOfEntries, 0, 1) });
}

TEST(KXMP4AtomSoundSD, HasTheseFields)
{
    using Entry = KXMP4AtomSoundSD;
    expectFields<Entry>(
        { field<Entry>("audioChannels", &Entry::audioChannels, &Entry::setAudioChannels, 0, 1) });
}

TEST(KXMP4AtomStsd, HasTheseFields)
{
    using Stsd = KXMP4AtomStsd;
    expectFields<Stsd>({
        field<Stsd>("version", &Stsd::version, &Stsd::setVersion, 0, 1),
        field<Stsd>("noOfSampleDescriptions", &Stsd::noOfSampleDescriptions,
            &Stsd::setNoOfSampleDescriptions, 0, 2),
    });
}

TEST(KXMP4AtomVideoSD, HasTheseFields)
{
    using Entry = KXMP4AtomVideoSD;
    expectFields<Entry>({
        field<Entry>("width", &Entry::width, &Entry::setWidth, 0, 1),
        field<Entry>("height", &Entry::height, &Entry::setHeight, 0, 2),
        field<Entry>("codecName", &Entry::codecName, &Entry::setCodecName, {}, "coder"),
    });
}
