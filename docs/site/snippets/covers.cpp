// What the rules say of the covers of a few files.

#include <kxmd/kxmd.h>

#include <iostream>

namespace {

void show(char const* path)
{
    //! [rules]
    auto const meta = KXMDFileMeta::fileMetaWithSourcePath(path);
    std::cout << path << ": " << (meta->hasValidAlbumCover() ? "valid, " : "not valid, ")
              << meta->albumCoverSizeForEmbeddedTags() << " bytes of covers, "
              << (meta->canInsertAlbumCover() ? "takes one\n" : "has no place for one\n");
    //! [rules]
}

void decode()
{
    //! [decode]
    auto const data = KXAbstractData::abstractDataWithPath("song.m4a");
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*data);
    if (auto const cover = meta->albumCoverFromData(*data)) // Decoded in another process.
        std::cout << "the cover is " << cover->pixelWidth() << " pixels wide\n";
    //! [decode]
}

void makePlace()
{
    //! [place]
    auto const source = KXAbstractData::abstractDataWithPath("bare.mp3");
    if (KXMDCoverPlace::canMakeInData(*source)
        && !KXMDCoverPlace::reasonAgainstMakingInData(*source)) {
        auto const buffer = std::make_shared<KXMutableData>(source);
        if (KXMDCoverPlace::makeInData(buffer)) {
            auto const reader = KXMutableAbstractData::abstractDataWithData(buffer);
            auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
            std::cout << (meta->canInsertAlbumCover() ? "now it takes one\n"
                                                      : "still no place\n");
        }
    }
    //! [place]
}

}

int main()
{
    for (auto const* path : { "song.m4a", "tiny-cover.m4a", "song.mp3", "bare.mp3" })
        show(path);
    decode();
    makePlace();
}
