// What a reader, a tree of atoms and a list of frames tell.

#include <kxmd/kxmd.h>

#include <iostream>

namespace {

void readBytes()
{
    //! [bytes]
    auto const data = KXAbstractData::abstractDataWithPath("song.m4a"); // May be null.
    std::uint32_t size = 0;
    std::optional<std::string> type;
    if (data && data->readUInt32To(size, KXSwap::yes)
        && data->readStringTo(type, 4, KXStringEncodingLatin1))
        std::cout << "begins with " << *type << " of " << size << " bytes\n";
    //! [bytes]

    //! [failure]
    data->setOffset(data->length() - 2);
    if (!data->readUInt32To(size, KXSwap::yes))
        std::cout << "size is " << size << ", " << data->remainingLength()
                  << " bytes are left\n";
    //! [failure]
}

void readKinds()
{
    //! [kinds]
    for (auto const* path : { "song.mp3", "song.m4a", "photo.jpg", "missing.mp3" }) {
        auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
        std::cout << path << ": kind " << meta->metaType();
        if (auto const error = meta->readError())
            std::cout << ", " << error.message();
        std::cout << '\n';
    }
    //! [kinds]
}

void readAtoms()
{
    //! [atoms]
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath("song.m4a");
    auto const root = meta->mp4Atom(); // Null for a file that is not MP4.
    for (auto const& atom : root->allAtomsWithPath("moov/udta/meta/ilst"))
        for (auto const& tag : atom->children())
            std::cout << tag->tag() << " at " << tag->offset() << ": "
                      << tag->content().value_or("no text") << '\n';
    //! [atoms]
}

void readFrames()
{
    //! [frames]
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath("song.mp3");
    auto const mp3 = std::dynamic_pointer_cast<KXMDFileMetaMP3>(meta);
    for (auto const& frame : *mp3->frames())
        std::cout << frame->tag() << ": " << frame->content().value_or("not read") << '\n';
    //! [frames]
}

void probe()
{
    //! [probe]
    if (auto const probe = KXMediaProbe::probeWithSourcePath("song.flac")) {
        std::cout << probe->container << ", " << probe->duration << " s\n";
        for (auto const& stream : probe->streams)
            std::cout << stream.codec << " at " << stream.sampleRate << " Hz\n";
    }
    //! [probe]
}

}

int main()
{
    readBytes();
    readKinds();
    readAtoms();
    readFrames();
    probe();
}
