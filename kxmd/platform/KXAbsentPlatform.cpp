#include "kxmd/platform/KXAbsentPlatformPrivate.h"

#include "kxmd/base/KXSerialQueue.h"
#include "kxmd/platform/KXSHA1TextDigestPrivate.h"

namespace {

class AbsentPictureLoader final : public KXPictureLoader {
    KXImage::Ref imageInData(KXAbstractData&, std::uint64_t, KXSize) const override
    {
        return nullptr;
    }
    KXData jpgRepresentation(KXImage const&) const override { return {}; }
    KXData pngRepresentation(KXImage const&) const override { return {}; }
};

class AbsentMovieLoader final : public KXMovieLoader {
    std::unique_ptr<KXMovie> movieWithData(KXAbstractData&) const override { return nullptr; }
};

class AbsentThumbnailService final : public KXThumbnailService {
    KXImage::Ref imageForPath(std::string const&, KXSize) const override { return nullptr; }
};

class AbsentIconProvider final : public KXIconProvider {
    KXImage::Ref iconForFileType(std::string const&, KXSize) const override { return nullptr; }
};

class AbsentTemporaryFolders final : public KXTemporaryFolders {
    std::string applicationTempFolder() const override { return {}; }
    std::string applicationUniqueTempFolderWithPrefix(std::string_view) const override
    {
        return {};
    }
};

class AbsentFileManager final : public KXFileManager {
    KXMutableData::Ref mutableDataWithContentsOfFile(std::string const&) const override
    {
        return nullptr;
    }
    bool writeBytesToFile(std::span<std::uint8_t const>, std::string const&) const override
    {
        return false;
    }
    bool createFolderAtPath(std::string const&) const override { return false; }
    void removeEmptyFolderAtPath(std::string const&) const override { }
    std::optional<std::uint64_t> sizeOfFileAtPath(std::string const&) const override
    {
        return std::nullopt;
    }
};

class AbsentTaskRunner final : public KXTaskRunner {
    std::optional<int> runToolAtPath(
        std::string const&, std::vector<std::string> const&) const override
    {
        return std::nullopt;
    }
};

class AbsentMemoryPressure final : public KXMemoryPressure {
    Registration addObserver(Observer) const override { return nullptr; }
};

}

KXPlatform::Ref absentPlatform()
{
    return std::make_shared<KXPlatform const>(KXPlatform {
        .pictureLoader = std::make_shared<AbsentPictureLoader const>(),
        .movieLoader = std::make_shared<AbsentMovieLoader const>(),
        .thumbnailService = std::make_shared<AbsentThumbnailService const>(),
        .iconProvider = std::make_shared<AbsentIconProvider const>(),
        .mainQueue = std::make_shared<KXSerialQueue>("org.kxmd.main"),
        .textDigest = std::make_shared<KXSHA1TextDigest const>(),
        .temporaryFolders = std::make_shared<AbsentTemporaryFolders const>(),
        .fileManager = std::make_shared<AbsentFileManager const>(),
        .taskRunner = std::make_shared<AbsentTaskRunner const>(),
        .memoryPressure = std::make_shared<AbsentMemoryPressure const>(),
    });
}
