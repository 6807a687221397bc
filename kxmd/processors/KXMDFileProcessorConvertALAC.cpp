#include "kxmd/processors/KXMDFileProcessorConvertALAC.h"

#include <utility>

KXMDFileProcessorConvertALAC::KXMDFileProcessorConvertALAC(KXPlatform::Ref platform)
    : _platform(platform ? std::move(platform) : KXPlatform::shared())
{
}

std::string KXMDFileProcessorConvertALAC::pathToCacheForFile(KXDCFile const& file) const
{
    std::string const sourcePath = file.sourcePath();
    if (sourcePath.empty())
        return {};
    std::string const folder = _platform->temporaryFolders->applicationTempFolder();
    _platform->fileManager->createFolderAtPath(folder); // Without it the conversion fails.
    return folder + '/' + _platform->textDigest->sha1HexString(sourcePath);
}

KXAbstractData::Ref KXMDFileProcessorConvertALAC::processedFileDataForFileProxy(
    KXDCFileProxy const& fileProxy, KXAbstractData::Ref) const
{
    auto const file = fileProxy.file();
    std::string const cachePath = file ? pathToCacheForFile(*file) : std::string();
    if (cachePath.empty())
        return nullptr;
    auto const status = _platform->taskRunner->runToolAtPath("/usr/bin/afconvert",
        { "-f", "m4af", "-d", "aac", "-b", "256000", file->sourcePath(), cachePath });
    return status == 0 ? KXAbstractData::abstractDataWithPath(cachePath) : nullptr;
}

std::uint64_t KXMDFileProcessorConvertALAC::processedFilesizeForFileProxy(
    KXDCFileProxy const& fileProxy, std::uint64_t filesize) const
{
    auto const file = fileProxy.file();
    std::string const cachePath = file ? pathToCacheForFile(*file) : std::string();
    if (cachePath.empty())
        return filesize;
    return _platform->fileManager->sizeOfFileAtPath(cachePath).value_or(filesize);
}
