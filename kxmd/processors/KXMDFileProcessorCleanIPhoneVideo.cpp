#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/base/KXPath.h"
#include "kxmd/mp4/KXMP4RemovalLimitPrivate.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

// What is removed, in this order.
constexpr std::string_view cleanedPaths[] {
    "moov/udta",
    "moov/trak/mdia/minf/stbl/stsd/mp4a/wave/mp4a",
};

KXMP4Atom::Ref treeOf(KXMutableData::Ref const& data)
{
    return KXMP4Atom::atomWithAbstractData(*KXMutableAbstractData::abstractDataWithData(data));
}

/// The atoms that are to be removed; absent, and logged, if they are too many.
std::optional<KXMP4Atom::List> removableAtoms(KXMP4Atom& root)
{
    KXMP4Atom::List atoms;
    for (std::string_view const path : cleanedPaths)
        std::ranges::move(root.allAtomsWithPath(path), std::back_inserter(atoms));
    if (canRemoveInGoodTime(atoms.size(), root))
        return atoms;
    KXLog("Metadata", "KXMDFileProcessorCleanIPhoneVideo->too much user data, none is removed");
    return std::nullopt;
}

/// How many bytes the atoms that are to be removed claim to have, which may wrap.
std::uint64_t removableBytes(KXAbstractData& data)
{
    std::uint64_t bytes = 0;
    auto const atoms = removableAtoms(*KXMP4Atom::atomWithAbstractData(data));
    for (auto const& atom : atoms.value_or(KXMP4Atom::List()))
        bytes += atom->size();
    return bytes;
}

/// Removes the first atom at `path`; whether any bytes went.
bool removeFirstAtomWithPath(std::string_view path, KXMutableData::Ref const& data)
{
    auto const root = treeOf(data);
    auto const atoms = root->allAtomsWithPath(path);
    std::uint64_t const length = data->length();
    // The atom goes even if an offset cannot be corrected, so the answer is ignored.
    if (!atoms.empty())
        static_cast<void>(atoms.front()->removeSelfFromMutableData(*data));
    return data->length() != length; // One that is still there would be found again and again.
}

}

KXMDFileProcessorCleanIPhoneVideo::KXMDFileProcessorCleanIPhoneVideo(KXPlatform::Ref platform)
    : _platform(platform ? std::move(platform) : KXPlatform::shared())
{
}

KXAbstractData::Ref KXMDFileProcessorCleanIPhoneVideo::processedFileDataForPath(
    std::string const& path) const
{
    std::string const copy = pathOfCleanedCopy(path);
    return KXAbstractData::abstractDataWithPath(copy.empty() ? path : copy);
}

bool KXMDFileProcessorCleanIPhoneVideo::cleanData(KXMutableData::Ref const& data)
{
    auto const atoms = data ? removableAtoms(*treeOf(data)) : std::nullopt;
    if (!atoms)
        return false;
    // Sizes that contradict each other may bring up more atoms, again and again; these stay.
    std::size_t left = atoms->size();
    for (std::string_view const path : cleanedPaths) {
        while (left && removeFirstAtomWithPath(path, data))
            --left;
    }
    return !left;
}

std::optional<std::string> KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(
    KXAbstractData& data)
{
    if (!removableAtoms(*KXMP4Atom::atomWithAbstractData(data)))
        return "the file has too much user data";
    return KXMP4EditSafety(data).reasonAgainstEdit(&cleanData);
}

/// Cleans the file into a temporary folder; empty when there is nothing to clean or no way to.
std::string KXMDFileProcessorCleanIPhoneVideo::pathOfCleanedCopy(std::string const& path) const
{
    auto const source = KXAbstractData::abstractDataWithPath(path);
    auto const atoms
        = source ? removableAtoms(*KXMP4Atom::atomWithAbstractData(*source)) : std::nullopt;
    if (!atoms || atoms->empty())
        return {};
    auto const& files = *_platform->fileManager;
    auto const data = files.mutableDataWithContentsOfFile(path);
    if (!data)
        return {};
    static_cast<void>(cleanData(data)); // What could be removed goes, if not all.
    if (data->length() == source->length())
        return {};
    std::string const folder
        = _platform->temporaryFolders->applicationUniqueTempFolderWithPrefix("metadata-video");
    if (folder.empty())
        return {};
    try {
        std::string copy = folder + '/' + std::string(KXLastPathComponent(path));
        if (files.writeBytesToFile(data->bytes(), copy))
            return copy;
    } catch (...) { // From the host's file manager, or for want of memory.
        files.removeEmptyFolderAtPath(folder);
        throw;
    }
    files.removeEmptyFolderAtPath(folder);
    return {};
}

KXAbstractData::Ref KXMDFileProcessorCleanIPhoneVideo::processedFileDataForFileProxy(
    KXDCFileProxy const& fileProxy, KXAbstractData::Ref) const
{
    auto const file = fileProxy.file();
    return file ? processedFileDataForPath(file->sourcePath()) : nullptr;
}

std::uint64_t KXMDFileProcessorCleanIPhoneVideo::processedFilesizeForFileProxy(
    KXDCFileProxy const& fileProxy, std::uint64_t filesize) const
{
    auto const file = fileProxy.file();
    auto const source = file ? KXAbstractData::abstractDataWithPath(file->sourcePath()) : nullptr;
    return source ? filesize - removableBytes(*source) : filesize;
}

std::uint64_t KXMDFileProcessorCleanIPhoneVideo::cleanedSizeOfData(KXAbstractData& data)
{
    return data.length() - removableBytes(data);
}
