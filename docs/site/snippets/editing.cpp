// Gives a song another cover, in a copy.

#include <kxmd/kxmd.h>

#include <iostream>

namespace {

//! [contents]
KXData contentsOf(std::string const& path)
{
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    std::vector<std::uint8_t> bytes(reader ? reader->length() : 0);
    if (!reader || !reader->readBytesTo(bytes.data(), bytes.size()))
        return {};
    return KXData(std::move(bytes));
}
//! [contents]

//! [reason]
std::optional<std::string> reasonAgainstCover(
    KXMDFileMeta const& meta, KXAbstractData& data, KXData const& picture)
{
    auto const size = meta.albumCoverSizeForEncodedImage(picture);
    if (meta.metaType() == KXMDMetaTypeMP4)
        return KXMP4EditSafety(data).reasonAgainstAddingAlbumCoverOfSize(size);
    if (meta.metaType() == KXMDMetaTypeMP3)
        return KXMP3EditSafety(data).reasonAgainstAddingAlbumCoverOfSize(size);
    return "it is neither MP3 nor MP4";
}
//! [reason]

//! [edit]
bool writeWithCover(std::string const& path, KXData const& picture, std::string const& target)
{
    auto const source = KXAbstractData::abstractDataWithPath(path);
    auto const meta = source ? KXMDFileMeta::fileMetaWithAbstractData(*source) : nullptr;
    if (!meta || !meta->canInsertAlbumCover())
        return false;
    if (auto const reason = reasonAgainstCover(*meta, *source, picture)) {
        std::cout << path << ": " << *reason << '\n';
        return false;
    }
    auto const buffer = std::make_shared<KXMutableData>(source); // The file stays as it is.
    return meta->addEncodedAlbumCoverToData(picture, buffer)
        && KXPlatform::shared()->fileManager->writeBytesToFile(buffer->bytes(), target);
}
//! [edit]

void editBytes()
{
    //! [buffer]
    auto const source = KXAbstractData::abstractDataWithPath("song.mp3");
    KXMutableData buffer(source);
    std::vector<std::uint8_t> const bytes(20);
    if (buffer.insertBytesAt(bytes, 10) && buffer.removeBytesAt(100, 4))
        std::cout << buffer.length() - source->length() << " bytes more than the file\n";
    for (auto const& kept : buffer.keptBytes())
        std::cout << "bytes from " << kept.origin << " on are at " << kept.position << '\n';
    //! [buffer]
}

}

int main()
{
    auto const picture = contentsOf("cover.jpg");
    for (auto const* path : { "song.m4a", "song.mp3", "fragmented.m4a" }) {
        if (writeWithCover(path, picture, "edited"))
            std::cout << path << " has another cover\n";
    }
    editBytes();
}
