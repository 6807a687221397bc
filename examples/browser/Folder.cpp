#include "Folder.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace {

// A folder's picture is worth so many attempts: some folders hold thousands of files without one.
constexpr std::size_t mostAttempts = 32;
constexpr std::size_t picturesInComposite = 4;
constexpr double markPart = 3; // The mark of a folder takes a third of its picture's side.

/// Folders before files, and "2" before "10".
bool isBefore(KXDCFile::Ref const& one, KXDCFile::Ref const& other)
{
    if (one->isFolder() != other->isFolder())
        return one->isFolder();
    return ::strverscmp(one->sourcePath().c_str(), other->sourcePath().c_str()) < 0;
}

}

std::optional<Files> filesInFolder(std::string const& path)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    Files files;
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (entry->path().filename().native().starts_with('.'))
            continue;
        std::error_code ignored; // A link to nowhere is neither of the two.
        bool const isFolder = entry->is_directory(ignored);
        if (!isFolder && !entry->is_regular_file(ignored))
            continue;
        auto const file = std::make_shared<KXDCSimpleFile>(entry->path().native());
        file->setIsFolder(isFolder);
        files.push_back(file);
    }
    if (error)
        return std::nullopt;
    std::ranges::sort(files, isBefore);
    return files;
}

KXImage::Ref pictureOfFolder(
    std::string const& path, KXMDThumbnailController& controller, KXSize size)
{
    auto files = filesInFolder(path).value_or(Files());
    std::erase_if(files, [](KXDCFile::Ref const& file) { return file->isFolder(); });
    files.resize(std::min(files.size(), mostAttempts));
    // A file without a picture would leave a hole in the composite. The controller keeps the
    // pictures, so none is made twice.
    Files shown;
    for (auto const& file : files) {
        if (shown.size() < picturesInComposite && controller.thumbnailForFile(*file, size))
            shown.push_back(file);
    }
    if (shown.empty())
        return nullptr;
    auto composite = controller.compositeThumbnailForFiles(shown, size);
    auto const marked = KXImage::imageWithSize(size);
    if (!composite || !marked)
        return composite;
    // A small folder in the corner tells it from a picture. The composite belongs to the cache, so
    // it is drawn on a picture of our own.
    marked->drawImageFromRectInRect(*composite, { 0, 0, size }, { 0, 0, size });
    KXSize const corner { size.width / markPart, size.height / markPart };
    KXDCSimpleFile folder(path);
    folder.setIsFolder(true);
    if (auto const icon = controller.iconForFile(folder, size)) {
        marked->drawImageFromRectInRect(
            *icon, { 0, 0, size }, { size.width - corner.width, 0, corner });
    }
    return marked;
}
