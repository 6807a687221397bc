// The one place where the base class of file metadata meets the classes derived from it.

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"

namespace {

KXMDFileMeta::Ref emptyMetaOfType(KXMDMetaType type)
{
    switch (type) {
    case KXMDMetaTypeMP4:
        return std::make_shared<KXMDFileMetaMP4>();
    case KXMDMetaTypeMP3:
        return std::make_shared<KXMDFileMetaMP3>();
    case KXMDMetaTypeJPEG:
    case KXMDMetaTypeUnknown:
        break;
    }
    return std::make_shared<KXMDFileMetaEmpty>();
}

}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithAbstractData(KXAbstractData& data)
{
    Ref const meta = emptyMetaOfType(metaTypeForData(data));
    return meta->parseAbstractData(data) ? meta : nullptr;
}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithAnyAbstractData(KXAbstractData& data)
{
    if (Ref meta = fileMetaWithAbstractData(data))
        return meta;
    auto const empty = std::make_shared<KXMDFileMetaEmpty>();
    empty->parseAbstractData(data);
    return empty;
}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithSourcePath(std::string const& path)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    return data ? fileMetaWithAnyAbstractData(*data) : std::make_shared<KXMDFileMetaEmpty>();
}
