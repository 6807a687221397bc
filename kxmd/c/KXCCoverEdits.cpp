// Covers that are inserted into files and removed from them.

#include "kxmd/c/KXCBytesPrivate.h"
#include "kxmd/c/KXCEditPrivate.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCFilePrivate.h"
#include "shared/CoverSafety.h"

#include <new>
#include <unistd.h>

namespace {

constexpr unsigned allFlags = KXMD_EDIT_ANYWAY | KXMD_EDIT_MAKE_PLACE;

void requireEditable(kxmd_file const* file, unsigned flags)
{
    KXCRequire(file, "there is no file");
    KXCRequire(!(flags & ~allFlags), "there is no such flag");
}

/// Music that is read anew, since the handle's reader may have kept bytes of before.
struct Music {
    KXAbstractData::Ref reader;
    KXMDFileMeta::Ref meta; ///< Never null.

    bool isKnown() const { return meta->metaType() != KXMDMetaTypeUnknown; }
};

[[noreturn]] void failWithoutMusic()
{
    throw KXCFailure(KXMD_ERROR_NOT_MEDIA, "is neither an MP3 file with tags nor an MP4 file");
}

Music musicOf(kxmd_file const& file)
{
    if (file.source && file.source->hasChanged())
        throw KXCFailure(KXMD_ERROR_CHANGED, "changed since it was opened");
    auto reader = file.source ? KXCReaderOfPath(file.path.c_str())
                              : KXAbstractData::abstractDataWithData(file.bytes);
    auto meta = KXMDFileMeta::fileMetaWithAnyAbstractData(*reader);
    KXCRequireWholeRead(*reader);
    return { std::move(reader), std::move(meta) };
}

KXCEdit insertionInto(
    kxmd_file const& file, void const* picture, std::size_t length, unsigned flags)
{
    KXData const jpeg = KXCAsJPEG(picture, length);
    Music const music = musicOf(file);
    auto insertion = KXCInsertionOf(jpeg, music.reader, music.meta, flags & KXMD_EDIT_MAKE_PLACE);
    if (!music.isKnown() && !insertion.makesPlace)
        failWithoutMusic();
    return insertion;
}

KXCEdit removalFrom(kxmd_file const& file)
{
    Music const music = musicOf(file);
    if (!music.isKnown())
        failWithoutMusic();
    auto const edit = [meta = music.meta](KXMutableData::Ref const& data) {
        return meta->removeAlbumCoverFromData(data);
    };
    auto const reason = [reader = music.reader, meta = music.meta] {
        return reasonAgainstRemovingCover(*meta, *reader);
    };
    return { music.reader, edit, reason, "its covers cannot be removed" };
}

KXMutableData::Ref madeBy(KXCEdit const& edit, unsigned flags)
{
    if (!(flags & KXMD_EDIT_ANYWAY))
        edit.check();
    return edit.made();
}

/// More would starve whatever else runs here: a sparse file may have any size and hold nothing.
bool fitsMemory(std::uint64_t length)
{
    return length <= static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES))
        * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

/// All bytes of `edited`, for which `reader` reads.
KXData bytesOf(KXMutableData const& edited, KXAbstractData const& reader)
{
    if (!fitsMemory(edited.length()))
        throw std::bad_alloc();
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(edited.length()));
    bool const isRead = edited.readBytesToAt(bytes.data(), bytes.size(), 0);
    KXCRequireWholeRead(reader);
    if (!isRead)
        throw KXCFailure(KXMD_ERROR_CHANGED, "changed while it was read");
    return KXData(std::move(bytes));
}

/// Edits a file in memory.
template <class MakeEdit>
kxmd_bytes* editInMemory(kxmd_file const& file, unsigned flags, MakeEdit makeEdit)
{
    KXCEdit const edit = makeEdit();
    auto const edited = madeBy(edit, flags);
    KXData bytes = bytesOf(*edited, *edit.reader);
    if (file.source && file.source->hasChanged())
        throw KXCFailure(KXMD_ERROR_CHANGED, "changed while it was read");
    return KXCNew<kxmd_bytes>(std::move(bytes));
}

/// Edits a file into another, or itself.
template <class MakeEdit>
bool editInto(kxmd_file const& file, char const* target, unsigned flags, MakeEdit makeEdit)
{
    KXCRequire(target ? *target != '\0' : !file.path.empty(), "there is no target");
    KXCEdit const edit = makeEdit();
    auto const edited = madeBy(edit, flags);
    KXCTarget output { .path = target ? std::string(target) : file.path };
    if (file.source)
        output.permissions = file.source->permissions();
    KXCWriteEdited(*edited, file.source ? &*file.source : nullptr, output);
    return true;
}

}

bool kxmd_file_check_insertion(kxmd_file* file, void const* picture, size_t length, unsigned flags,
    kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, flags);
        KXCEdit const edit = insertionInto(*file, picture, length, flags);
        edit.check();
        static_cast<void>(edit.made()); // It has to be possible as well.
        return true;
    });
}

bool kxmd_file_check_removal(kxmd_file* file, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, KXMD_EDIT_SAFELY);
        KXCEdit const edit = removalFrom(*file);
        edit.check();
        static_cast<void>(edit.made());
        return true;
    });
}

bool kxmd_file_insert_cover(kxmd_file* file, void const* picture, size_t length, char const* target,
    unsigned flags, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, flags);
        return editInto(
            *file, target, flags, [&] { return insertionInto(*file, picture, length, flags); });
    });
}

kxmd_bytes* kxmd_file_insert_cover_in_memory(kxmd_file* file, void const* picture, size_t length,
    unsigned flags, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, flags);
        return editInMemory(
            *file, flags, [&] { return insertionInto(*file, picture, length, flags); });
    });
}

bool kxmd_file_remove_cover(
    kxmd_file* file, char const* target, unsigned flags, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, flags);
        return editInto(*file, target, flags, [&] { return removalFrom(*file); });
    });
}

kxmd_bytes* kxmd_file_remove_cover_in_memory(
    kxmd_file* file, unsigned flags, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        requireEditable(file, flags);
        return editInMemory(*file, flags, [&] { return removalFrom(*file); });
    });
}
