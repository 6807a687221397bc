// Pictures of files, while the caller waits, and the names that they are kept under.

#include <kxmd/kxmd.h>

#include <iostream>

int main()
{
    //! [make]
    auto const& controller = KXMDThumbnailController::sharedController();
    auto const picture = controller->thumbnailForPath("holiday.mp4", { 256, 256 });
    if (!picture)
        return 1; // Nothing can be shown of it.
    std::cout << picture->pixelWidth() << " x " << picture->pixelHeight() << '\n';
    //! [make]

    //! [save]
    auto const& platform = *KXPlatform::shared();
    auto const png = platform.pictureLoader->pngRepresentation(*picture);
    bool const isWritten = platform.fileManager->writeBytesToFile(png.bytes(), "holiday.png");
    //! [save]
    std::cout << (isWritten ? "written\n" : "not written\n");

    //! [names]
    KXDCSimpleFile first("Sines/01.m4a"), second("Sines/02.mp3");
    for (auto* file : { &first, &second }) {
        file->setMetadataForKey("The Oscillators", KXMDMetadataKeyArtist);
        file->setMetadataForKey("Sines", KXMDMetadataKeyAlbum);
    }
    KXSize const size { 256, 256 };
    std::cout << controller->cacheNameForFile(first, size) << '\n'
              << controller->cacheNameForFile(second, size) << '\n'
              << controller->cacheNameForPath("The Oscillators_Sines", size) << '\n';
    //! [names]
}
