// Decoders within limits, and a platform with one service replaced.

#include <kxmd/kxmd.h>

#include <iostream>

//! [service]
// Shows a grey square for each file, and decodes nothing.
class GreyThumbnails final : public KXThumbnailService {
public:
    KXImage::Ref imageForPath(std::string const&, KXSize maximumSize) const override
    {
        auto const side
            = static_cast<std::size_t>(std::min(maximumSize.width, maximumSize.height));
        std::vector<std::uint8_t> pixels(side * side * KXImage::bytesPerPixel, 0x80);
        return KXImage::imageWithPixels(std::move(pixels), side, side);
    }
};
//! [service]

int main()
{
    //! [limits]
    KXDecodingLimits limits;
    limits.pictureTime = std::chrono::milliseconds(500);
    limits.memory = std::uint64_t { 256 } << 20;
    limits.requiresConfinement = true; // Rather no picture than one by an unconfined decoder.
    auto const machine = KXPlatform::platformOfThisMachine(limits);
    //! [limits]

    //! [platform]
    auto platform = std::make_shared<KXPlatform>(*machine); // All members are shared pointers.
    platform->thumbnailService = std::make_shared<GreyThumbnails>();
    auto const controller = KXMDThumbnailController::createWithPlatform(platform);
    auto const picture = controller->thumbnailForPath("song.mp3", { 64, 64 });
    std::cout << "grey: " << static_cast<int>(picture->pixels()[0]) << '\n';
    //! [platform]

    //! [report]
    auto const report = KXMachineReport::reportOfThisMachine();
    std::cout << "pictures: " << (report.pictures.isThere ? "yes" : "no")
              << ", movies: " << (report.movies.isThere ? "yes" : "no") << '\n';
    //! [report]

    //! [log]
    KXSetLogSink([](std::string_view category, std::string_view text) {
        std::cout << category << " says: " << text << '\n';
    });
    KXLog("Metadata", "%d files", 3);
    KXSetLogSink({}); // No log at all.
    //! [log]
}
