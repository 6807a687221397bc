#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"

#include "kxmd/host/KXPath.h"
#include "kxmd/mp4/KXMP4Atom.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"

#include <string_view>
#include <utility>

namespace {

bool hasUselessAtoms(KXMP4Atom& root)
{
    for (std::string_view const path : cleanedPaths) {
        if (!root.allAtomsWithPath(path).empty())
            return true;
    }
    return false;
}

/// Removes the first atom at `path` from the file in `data`; whether any bytes went.
bool removeFirstAtomWithPath(std::string_view path, KXMutableData& data, KXAbstractData& reader)
{
    auto const root = KXMP4Atom::atomWithAbstractData(reader);
    auto const atoms = root->allAtomsWithPath(path);
    std::uint64_t const length = data.length();
    // An offset that cannot be corrected is no reason to keep the atom, so the answer is not asked.
    if (!atoms.empty())
        static_cast<void>(atoms.front()->removeSelfFromMutableData(data));
    return data.length() != length; // One that is still there would be found again and again.
}

/// Removes the useless atoms one after another; whether there was any.
bool removeUselessAtoms(KXMutableData::Ref const& data)
{
    std::size_t removals = 0;
    for (std::string_view const path : cleanedPaths) {
        while (removals < mostCleanedAtoms
            && removeFirstAtomWithPath(
                path, *data, *KXMutableAbstractData::abstractDataWithData(data)))
            ++removals;
    }
    return removals > 0;
}

}

KXMDFileProcessorCleanIPhoneVideo::KXMDFileProcessorCleanIPhoneVideo(KXPlatform::Ref platform)
    : _platform(std::move(platform))
{
}

KXAbstractData::Ref KXMDFileProcessorCleanIPhoneVideo::processedFileDataForPath(
    std::string const& path) const
{
    std::string const copy = pathOfCleanedCopy(path);
    return KXAbstractData::abstractDataWithPath(copy.empty() ? path : copy);
}

/// Cleans the file into a temporary folder; empty when there is nothing to clean or no way to.
std::string KXMDFileProcessorCleanIPhoneVideo::pathOfCleanedCopy(std::string const& path) const
{
    auto const source = KXAbstractData::abstractDataWithPath(path);
    if (!source || !hasUselessAtoms(*KXMP4Atom::atomWithAbstractData(*source)))
        return {};
    auto const data = _platform->fileManager->mutableDataWithContentsOfFile(path);
    if (!data || !removeUselessAtoms(data))
        return {};
    std::string const folder
        = _platform->temporaryFolders->applicationUniqueTempFolderWithPrefix("metadata-video");
    if (folder.empty())
        return {};
    std::string copy = folder + '/' + std::string(lastPathComponent(path));
    return _platform->fileManager->writeBytesToFile(data->bytes(), copy) ? copy : std::string();
}

KXAbstractData::Ref KXMDFileProcessorCleanIPhoneVideo::processedFileDataForFileProxy(
    KXDCFileProxy const& fileProxy, KXAbstractData::Ref) const
{
    return processedFileDataForPath(fileProxy.file()->sourcePath());
}

std::uint64_t KXMDFileProcessorCleanIPhoneVideo::processedFilesizeForFileProxy(
    KXDCFileProxy const& fileProxy, std::uint64_t filesize) const
{
    auto const source = KXAbstractData::abstractDataWithPath(fileProxy.file()->sourcePath());
    if (!source)
        return filesize;
    auto const root = KXMP4Atom::atomWithAbstractData(*source);
    for (std::string_view const path : cleanedPaths) {
        for (auto const& atom : root->allAtomsWithPath(path))
            filesize -= atom->size();
    }
    return filesize;
}
