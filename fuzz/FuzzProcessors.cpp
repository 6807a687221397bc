// What the processors make of any bytes: the sizes that they predict, what they leave alone, and
// that an edit which is called safe is.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/host/KXDCFileProxy.h"
#include "kxmd/mp3/KXMDFileMetaMP3.h"
#include "kxmd/mp3/KXMP3EditSafety.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "kxmd/processors/KXMDFileProcessorCreateM3U.h"

#include <algorithm>

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A file that may be cleaned loses what was predicted, and no media atom changes.
void checkCleaning(std::uint8_t const* bytes, std::size_t length)
{
    using Processor = KXMDFileProcessorCleanIPhoneVideo;
    auto const source = immutableReader(bytes, length);
    std::uint64_t const predicted = Processor::cleanedSizeOfData(*source);
    auto const danger = Processor::reasonAgainstCleaningData(*source);
    auto const data = std::make_shared<KXMutableData>(Bytes(bytes, bytes + length));
    bool const isCleaned = Processor::cleanData(data);
    KXMD_REQUIRE(data->length() <= length);
    if (danger || !isCleaned)
        return;
    KXMD_REQUIRE(data->length() == predicted);
    auto const edited = KXMutableAbstractData::abstractDataWithData(data);
    KXMD_REQUIRE(Processor::cleanedSizeOfData(*edited) == data->length());
    auto const before = KXMP4Atom::atomWithAbstractData(*source)->allAtomsWithPath("mdat");
    auto const after = KXMP4Atom::atomWithAbstractData(*edited)->allAtomsWithPath("mdat");
    KXMD_REQUIRE(before.size() == after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        std::size_t const count
            = std::min<std::uint64_t>(before[i]->size(), length - before[i]->offset());
        KXMD_REQUIRE(after[i]->offset() + count <= data->length());
        KXMD_REQUIRE(std::equal(bytes + before[i]->offset(), bytes + before[i]->offset() + count,
            data->bytes().data() + after[i]->offset()));
    }
}

/// What a tag holds besides covers.
std::vector<std::pair<std::string, Bytes>> framesOf(KXAbstractData& data)
{
    KXMDFileMetaMP3 meta;
    std::vector<std::pair<std::string, Bytes>> found;
    if (!meta.parseAbstractData(data))
        return found;
    for (auto const& frame : *meta.frames()) {
        if (frame->tag() == "APIC" || frame->tag() == "PIC")
            continue;
        Bytes content(std::min(frame->size(), data.length()));
        data.setOffset(frame->offset());
        content.resize(data.readBytesToMaxLength(content.data(), content.size()));
        found.emplace_back(frame->tag(), std::move(content));
    }
    return found;
}

/// A cover that may be added is all that is new in the tag, and the music after it is the same.
void checkCover(std::uint8_t const* bytes, std::size_t length)
{
    auto const source = immutableReader(bytes, length);
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(*source);
    auto const* const tag = dynamic_cast<KXMDFileMetaMP3 const*>(meta.get());
    // No frame is so short (sizes wrap) that its header reaches into the next one.
    if (!tag || !std::ranges::all_of(*tag->frames(), [](auto const& frame) {
            return frame->size() >= frame->headerSize();
        }))
        return;
    static KXData const picture(Bytes(300, 'p'));
    std::uint64_t const coverSize = meta->albumCoverSizeForEncodedImage(picture);
    if (KXMP3EditSafety(*source).reasonAgainstAddingAlbumCoverOfSize(coverSize))
        return;
    std::uint64_t const predicted = length - meta->albumCoverSizeForEmbeddedTags() + coverSize;
    auto const data = std::make_shared<KXMutableData>(Bytes(bytes, bytes + length));
    if (!meta->addEncodedAlbumCoverToData(picture, data))
        return;
    KXMD_REQUIRE(data->length() == predicted);
    auto const edited = KXMutableAbstractData::abstractDataWithData(data);
    KXMD_REQUIRE(framesOf(*edited) == framesOf(*source));
    KXMD_REQUIRE(length < 10 || data->bytes()[3] == bytes[3]);
}

/// Each member of a playlist is one line, of the same folder or below.
void checkPlaylist(std::uint8_t const* bytes, std::size_t length)
{
    Choices choices(bytes, length);
    auto const list = std::make_shared<KXDCSimpleFile>("/lists/all.m3u");
    list->setFileKind(KXDCFileKindPlaylist);
    KXDCFileProxy::List members;
    std::ptrdiff_t listed = 0; // Those that are there, and may be copied.
    while (choices.areLeft() && members.size() < 8) {
        std::string path = "/lists/";
        for (auto letters = choices.next<std::uint8_t>() % 16; letters; --letters)
            path += choices.next<char>();
        std::erase_if(
            path, [](char letter) { return !letter || letter == '\r' || letter == '\n'; });
        auto const file = std::make_shared<KXDCSimpleFile>(path);
        file->setHasDRM(path.ends_with('D'));
        listed += !file->hasDRM() && !path.ends_with('N');
        members.push_back(
            path.ends_with('N') ? nullptr : std::make_shared<KXDCSimpleFileProxy>(file, path));
    }
    KXDCSimpleFileProxy const proxy(list, "/lists/all.m3u", members);
    KXMDFileProcessorCreateM3U const processor;
    auto const data = processor.createPlaylistDataForFileProxy(proxy);
    KXMD_REQUIRE(processor.processedFilesizeForFileProxy(proxy, 0) == (data ? data->length() : 0));
    list->setFileKind(0);
    KXMD_REQUIRE(!processor.processedFileDataForFileProxy(proxy, nullptr)); // No playlist.
    if (!data)
        return;
    std::string text(data->length(), ' ');
    KXMD_REQUIRE(data->readBytesTo(reinterpret_cast<std::uint8_t*>(text.data()), text.size()));
    auto const lines = std::count(text.begin(), text.end(), '\n') + 1;
    KXMD_REQUIRE(lines <= listed);
    KXMD_REQUIRE(text.starts_with(".\\") && !text.ends_with('\n'));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    checkCleaning(bytes, length);
    checkCover(bytes, length);
    checkPlaylist(bytes, length);
    return 0;
}
