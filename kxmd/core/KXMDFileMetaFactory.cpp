// Which class reads a file, by its first bytes: the one place where the base class of file metadata
// meets the classes derived from it.

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp4/KXMDFileMetaMP4.h"

#include <array>
#include <cerrno>
#include <string_view>

namespace {

/// Whether these bytes stand there; at most four.
bool startsWith(KXAbstractData& data, std::uint64_t offset, std::string_view signature)
{
    std::array<char, 4> bytes;
    data.setOffset(offset);
    return data.readBytesTo(reinterpret_cast<std::uint8_t*>(bytes.data()), signature.size())
        && std::string_view(bytes.data(), signature.size()) == signature;
}

KXMDMetaType detectedType(KXAbstractData& data)
{
    if (startsWith(data, 0, "ID3"))
        return KXMDMetaTypeMP3;
    if (startsWith(data, 4, "ftyp") || startsWith(data, 4, "moov"))
        return KXMDMetaTypeMP4;
    return startsWith(data, 0, signatureOfJPEG) ? KXMDMetaTypeJPEG : KXMDMetaTypeUnknown;
}

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

KXMDMetaType KXMDFileMeta::metaTypeForData(KXAbstractData& data)
{
    KXMDMetaType const type = detectedType(data);
    data.setOffset(0);
    return type;
}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithAbstractData(KXAbstractData& data)
{
    Ref const meta = emptyMetaOfType(metaTypeForData(data));
    bool const isParsed = meta->parseAbstractData(data);
    meta->_readError = data.readError();
    return isParsed ? meta : nullptr;
}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithAnyAbstractData(KXAbstractData& data)
{
    if (Ref meta = fileMetaWithAbstractData(data))
        return meta;
    auto const empty = std::make_shared<KXMDFileMetaEmpty>();
    empty->parseAbstractData(data);
    empty->_readError = data.readError();
    return empty;
}

KXMDFileMeta::Ref KXMDFileMeta::fileMetaWithSourcePath(std::string const& path)
{
    errno = 0;
    if (auto const data = KXAbstractData::abstractDataWithPath(path))
        return fileMetaWithAnyAbstractData(*data);
    int const error = errno; // None where there is a folder or device.
    auto const empty = std::make_shared<KXMDFileMetaEmpty>();
    empty->_readError = { error, std::system_category() };
    return empty;
}
