#include "kxmd/platform/linux/thumbnails/KXDocumentThumbnailerPrivate.h"

#include "kxmd/base/KXFolder.h"
#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/KXLibraryFolderPrivate.h"
#include "kxmd/platform/linux/system/KXChildProcessPrivate.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <glib.h>
#include <utility>

namespace {

/// A folder for one thumbnail, removed with everything in it.
class ScratchFolder {
public:
    explicit ScratchFolder(KXTemporaryFolders const& folders)
        : _path(folders.applicationUniqueTempFolderWithPrefix("thumbnail"))
    {
    }
    ~ScratchFolder()
    {
        if (!_path.empty())
            KXRemoveFolder(_path);
    }
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    std::string const& path() const { return _path; }

private:
    std::string const _path;
};

/// The side of the square that other programs are asked to fill, in pixels.
int sideLengthFor(KXSize maximumSize)
{
    constexpr double smallest = 16, largest = 2048;
    double const wanted = std::max(maximumSize.width, maximumSize.height);
    return static_cast<int>(std::clamp(std::ceil(wanted), smallest, largest));
}

}

KXDocumentThumbnailer::Places KXDocumentThumbnailer::Places::ofThisMachine()
{
    Places places;
    GAllocated<gchar> const pdfProgram(g_find_program_in_path("pdftoppm"));
    places.pdfProgram = pdfProgram ? pdfProgram.get() : "";
    places.sharedThumbnails = std::string(g_get_user_cache_dir()) + "/thumbnails";
    places.thumbnailers.push_back(std::string(g_get_user_data_dir()) + "/thumbnailers");
    for (char const* const* folder = g_get_system_data_dirs(); *folder; ++folder)
        places.thumbnailers.push_back(std::string(*folder) + "/thumbnailers");
    places.launcher = pathBesideLibrary(KXMD_CONFINED);
    return places;
}

KXDocumentThumbnailer::KXDocumentThumbnailer(Places places,
    std::shared_ptr<KXPictureLoader const> pictureLoader,
    std::shared_ptr<KXTemporaryFolders const> temporaryFolders)
    : _launcher(std::move(places.launcher))
    , _pdfProgram(std::move(places.pdfProgram))
    , _sharedThumbnails(std::move(places.sharedThumbnails))
    , _thumbnailers(std::move(places.thumbnailers))
    , _pictureLoader(std::move(pictureLoader))
    , _temporaryFolders(std::move(temporaryFolders))
{
}

KXImage::Ref KXDocumentThumbnailer::imageOfPDF(std::string const& path, KXSize maximumSize) const
{
    if (_pdfProgram.empty())
        return nullptr;
    // Without a name to write to, the page goes to the standard output.
    auto const page
        = outputOf({ _pdfProgram, "-singlefile", "-cropbox", "-f", "1", "-l", "1", "-scale-to",
                       std::to_string(sideLengthFor(maximumSize)), "-png", path },
            path, {});
    if (!page)
        return nullptr;
    auto const data = KXAbstractData::abstractDataWithData(*page);
    return _pictureLoader->imageInData(*data, data->length(), maximumSize);
}

KXImage::Ref KXDocumentThumbnailer::imageOfDocument(
    std::string const& path, std::string const& contentType, KXSize maximumSize) const
{
    int const sideLength = sideLengthFor(maximumSize);
    auto const shared = _sharedThumbnails.entryForPath(path, sideLength);
    if (shared && shared->sideLength >= sideLength) {
        if (auto image = imageInFile(shared->path, maximumSize))
            return image;
    }
    if (auto image = imageByThumbnailer(path, contentType, maximumSize))
        return image;
    return shared ? imageInFile(shared->path, maximumSize) : nullptr;
}

KXImage::Ref KXDocumentThumbnailer::imageByThumbnailer(
    std::string const& path, std::string const& contentType, KXSize maximumSize) const
{
    KXDesktopThumbnailers::Task task { path, {}, sideLengthFor(maximumSize) };
    if (_thumbnailers.commandForType(contentType, task).empty())
        return nullptr; // Most files: no folder needs to be made.
    ScratchFolder const folder(*_temporaryFolders);
    if (folder.path().empty())
        return nullptr;
    task.outputPath = folder.path() + "/thumbnail.png";
    bool const isMade
        = outputOf(_thumbnailers.commandForType(contentType, task), path, folder.path())
              .has_value();
    return isMade ? imageInFile(task.outputPath, maximumSize) : nullptr;
}

/// What a program prints that shows the file at `path` and may write into `folder`; absent when it
/// failed.
std::optional<KXData> KXDocumentThumbnailer::outputOf(
    std::vector<std::string> command, std::string const& path, std::string const& folder) const
{
    if (!_launcher.empty())
        command.insert(command.begin(), { _launcher, path, folder });
    KXChildProcess process { .arguments = std::move(command) };
    if (KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER)
        process.mostMemoryBytes = 0; // The launcher's own sanitizer wants terabytes.
    return process.run();
}

/// The picture in a file that another program wrote.
KXImage::Ref KXDocumentThumbnailer::imageInFile(std::string const& path, KXSize maximumSize) const
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    std::array<std::uint8_t, longestContentHead> head;
    std::uint64_t const count = data ? data->readBytesToMaxLength(head.data(), head.size()) : 0;
    if (contentOfFileWithHead(std::span(head).first(static_cast<std::size_t>(count)))
        != KXFileContent::picture)
        return nullptr;
    data->setOffset(0);
    return _pictureLoader->imageInData(*data, data->length(), maximumSize);
}
