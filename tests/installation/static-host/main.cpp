// An application that the library is part of, and this machine's services with it.

#include <kxmd/kxmd.h>

#include <cstdint>
#include <fstream>
#include <iostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

bool check(bool isTrue, char const* what)
{
    if (!isTrue)
        std::cerr << "Not so: " << what << '\n';
    return isTrue;
}

/// Whether this process has loaded a library or module of ours.
bool hasLoadedOurs()
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("libkxmd") != line.npos || line.find("kxmd-platform") != line.npos)
            return true;
    }
    return false;
}

bool writesOneLog()
{
    std::string written;
    KXSetLogSink([&written](std::string_view, std::string_view text) { written += text; });
    std::uint8_t const byte = 0;
    bool const isFailed
        = !KXPlatform::shared()->fileManager->writeBytesToFile({ &byte, 1 }, "/nowhere/file");
    KXSetLogSink({});
    return isFailed && written.find("KXFileManager->") != written.npos;
}

/// By a program in a process of its own, which has to be found.
bool encodesPictures()
{
    constexpr std::size_t side = 4;
    std::vector<std::uint8_t> pixels(side * side * KXImage::bytesPerPixel, 0xFF);
    auto const picture = KXImage::imageWithPixels(std::move(pixels), side, side);
    auto const file
        = KXMDThumbnailController::sharedController()->jpgRepresentationOfImage(picture);
    auto const reader = KXAbstractData::abstractDataWithData(file);
    auto const read = KXPlatform::shared()->pictureLoader->imageInData(*reader, file.length(), {});
    return read && read->pixelWidth() == side;
}

}

int main()
{
    bool const isGood = check(KXPlatform::shared() == KXPlatform::shared(), "there is one platform")
        && check(writesOneLog(), "its log lines go where the program wants them")
        && check(encodesPictures(), "the programs that it starts are found")
        && check(!KXMachineReport::reportOfThisMachine().pictures.formats.empty(),
            "the machine can be asked")
        && check(!hasLoadedOurs(), "nothing of the library is loaded beside the program");
    return isGood ? 0 : 1;
}
