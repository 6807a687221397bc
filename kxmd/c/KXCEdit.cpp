#include "kxmd/c/KXCEditPrivate.h"

#include "kxmd/base/KXMutableAbstractData.h"
#include "kxmd/base/KXStandardFilesPrivate.h"
#include "kxmd/c/KXCBytesPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCImagePrivate.h"
#include "kxmd/core/KXMDCoverPlace.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/image/KXPictureSizePrivate.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "shared/AtomicFile.h"
#include "shared/CoverSafety.h"
#include "shared/EditedCopy.h"
#include "shared/PathWithoutLinks.h"
#include "shared/SourceFile.h"

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

bool isJPEG(KXData const& file)
{
    auto const reader = KXAbstractData::abstractDataWithData(file);
    return formatOfPictureWithHead(headOfPicture(*reader, reader->length()))
        == KXPictureFormat::jpeg
        && sizeOfEncodedPictureInData(*reader, reader->length());
}

/// Makes a place in the whole file in `data`, and puts a cover there.
bool addWithPlace(KXData const& jpeg, KXMutableData::Ref const& data)
{
    if (!KXMDCoverPlace::makeInData(data))
        return false;
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*reader);
    return meta && meta->addEncodedAlbumCoverToData(jpeg, data);
}

KXCEdit insertionWithPlace(KXData const& jpeg, KXAbstractData::Ref const& reader)
{
    auto const edit = [jpeg](KXMutableData::Ref const& data) { return addWithPlace(jpeg, data); };
    auto const reason = [reader, edit]() -> std::optional<std::string> {
        bool const isMP4 = KXMDFileMeta::metaTypeForData(*reader) == KXMDMetaTypeMP4;
        // An MP3 file keeps no places of its media.
        return isMP4 ? KXMP4EditSafety(*reader).reasonAgainstEdit(edit) : std::nullopt;
    };
    return { reader, edit, reason, "no cover can be inserted", true };
}

/// Fails for the reason why a file was not written.
[[noreturn]] void failToWrite(AtomicFile const& file)
{
    if (file.readError())
        throw KXCFailure::ofReading(file.readError());
    if (file.error().empty())
        throw KXCFailure(KXMD_ERROR_CHANGED, "changed while it was read");
    throw KXCFailure(KXMD_ERROR_WRITE, file.errorWithPath(), file.systemError());
}

}

void KXCRequireWholeRead(KXAbstractData const& reader)
{
    if (reader.readError())
        throw KXCFailure::ofReading(reader.readError());
}

void KXCEdit::check() const
{
    auto const found = reason();
    KXCRequireWholeRead(*reader);
    if (found)
        throw KXCFailure(KXMD_ERROR_NOT_SAFE, *found);
}

KXMutableData::Ref KXCEdit::made() const
{
    auto edited = std::make_shared<KXMutableData>(reader);
    makeIn(edited);
    return edited;
}

void KXCEdit::makeIn(KXMutableData::Ref const& data) const
{
    bool const isMade = edit(data);
    KXCRequireWholeRead(*reader);
    if (!isMade)
        throw KXCFailure(KXMD_ERROR_NOT_POSSIBLE, refusal);
}

KXCEdit KXCInsertionOf(KXData const& jpeg, KXAbstractData::Ref const& reader,
    KXMDFileMeta::Ref const& meta, bool makesPlace)
{
    if (makesPlace && KXMDCoverPlace::canMakeInData(*reader))
        return insertionWithPlace(jpeg, reader);
    char const* const refusal
        = meta->canInsertAlbumCover() ? "no cover can be inserted" : "has no place for a cover";
    auto const edit = [meta, jpeg](KXMutableData::Ref const& data) {
        return meta->addEncodedAlbumCoverToData(jpeg, data);
    };
    auto const reason
        = [reader, meta, jpeg] { return reasonAgainstAddingCover(*meta, jpeg, *reader); };
    return { reader, edit, reason, refusal };
}

KXData KXCAsJPEG(void const* picture, std::size_t length)
{
    KXCRequire(picture && length, "there is no picture");
    if (length > mostPictureBytes)
        throw KXCFailure(KXMD_ERROR_NOT_POSSIBLE, "the picture is too large");
    KXData given = KXCCopyOfBytes(picture, length);
    return isJPEG(given) ? given : KXCEncodedPicture(*KXCDecodedPicture(given), KXMD_PICTURE_JPEG);
}

void KXCWriteEdited(KXMutableData const& data, SourceFile const* base, KXCTarget const& target)
{
    KXStandardFiles const standardFiles;
    auto const place = pathWithoutLinks(target.path);
    if (!place)
        throw KXCFailure(KXMD_ERROR_WRITE,
            "cannot be written to " + target.path + ": " + std::strerror(ELOOP), ELOOP);
    AtomicFile file(*place);
    if (target.modificationTime)
        file.setModificationTime(*target.modificationTime);
    bool const isWritten = file.open(target.permissions)
        && (base ? appendEdited(data, base->descriptor(), file) && !base->hasChanged()
                 : file.write(data.bytes()))
        && file.commit();
    if (!isWritten)
        failToWrite(file);
}
