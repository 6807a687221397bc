#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"

#include "kxmd/host/KXLog.h"
#include "kxmd/host/KXPath.h"
#include "kxmd/mp4/KXMP4Atom.h"
#include "kxmd/mp4/KXMP4PathsPrivate.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"

#include <string_view>
#include <utility>

namespace {

KXMP4Atom::List uselessAtoms(KXMP4Atom& root)
{
    KXMP4Atom::List atoms;
    for (std::string_view const path : cleanedPaths) {
        auto const found = root.allAtomsWithPath(path);
        atoms.insert(atoms.end(), found.begin(), found.end());
    }
    return atoms;
}

/// How many useless atoms the file that `data` reads has; 0 if there are too many to remove.
std::size_t countOfRemovableAtoms(KXAbstractData& data)
{
    auto const root = KXMP4Atom::atomWithAbstractData(data);
    std::size_t const count = uselessAtoms(*root).size();
    if (canRemoveInGoodTime(count, *root))
        return count;
    KXLog("Metadata", "KXMDFileProcessorCleanIPhoneVideo->too much user data, none is removed");
    return 0;
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

/// Removes the useless atoms, `count` of them, one after another; whether any bytes went. Sizes
/// that contradict each other may bring up more, again and again; these stay.
bool removeUselessAtoms(std::size_t count, KXMutableData::Ref const& data)
{
    std::uint64_t const length = data->length();
    for (std::string_view const path : cleanedPaths) {
        while (count
            && removeFirstAtomWithPath(
                path, *data, *KXMutableAbstractData::abstractDataWithData(data)))
            --count;
    }
    return data->length() != length;
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
    std::size_t const count = source ? countOfRemovableAtoms(*source) : 0;
    if (!count)
        return {};
    auto const data = _platform->fileManager->mutableDataWithContentsOfFile(path);
    if (!data || !removeUselessAtoms(count, data))
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
    for (auto const& atom : uselessAtoms(*KXMP4Atom::atomWithAbstractData(*source)))
        filesize -= atom->size();
    return filesize;
}
