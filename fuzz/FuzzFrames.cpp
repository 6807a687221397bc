// The ID3v2 tag of any bytes. The first byte chooses a well-formed header, so that most inputs get
// past it.

#include "FuzzTarget.h"

#include "kxmd/mp3/KXMDFileMetaMP3.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    if (!length)
        return 0;
    std::vector<std::uint8_t> file { 'I', 'D', '3', static_cast<std::uint8_t>(2 + bytes[0] % 3), 0,
        static_cast<std::uint8_t>(bytes[0] & 0x40), 0, 0x7F, 0x7F, 0x7F };
    file.insert(file.end(), bytes + 1, bytes + length);

    KXMDFileMetaMP3 meta;
    bool const accepted = meta.parseAbstractData(*immutableReader(file.data(), file.size()));
    KXMDFileMetaMP3 again;
    KXMD_REQUIRE(again.parseAbstractData(*mutableReader(file.data(), file.size())) == accepted);
    if (!accepted)
        return 0;

    auto const frames = meta.frames();
    auto const framesAgain = again.frames();
    KXMD_REQUIRE(frames->size() == framesAgain->size());
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < frames->size(); ++i) {
        auto const& frame = (*frames)[i];
        auto const& same = (*framesAgain)[i];
        KXMD_REQUIRE(frame->offset() == same->offset() && frame->size() == same->size());
        KXMD_REQUIRE(frame->tag() == same->tag() && frame->content() == same->content());
        KXMD_REQUIRE(frame->albumCoverSize() == same->albumCoverSize());
        KXMD_REQUIRE(frame->offset() > last);
        last = frame->offset();
        KXMD_REQUIRE(frame->offset() + 4 <= file.size());
        KXMD_REQUIRE(frame->tag().size() >= 3);
        KXMD_REQUIRE(!frame->content() || frame->content()->size() <= 2 * frame->dataSize());
    }
    std::pair<std::string_view, std::string_view> const tagKeys[] { { meta.titleTag(),
                                                                        KXMDMetadataKeyName },
        { meta.artistTag(), KXMDMetadataKeyArtist }, { meta.albumTag(), KXMDMetadataKeyAlbum },
        { meta.albumArtistTag(), KXMDMetadataKeyAlbumArtist } };
    for (auto const& [tag, key] : tagKeys) {
        auto const tagged = meta.allFramesWithTag(tag);
        bool const isThere = tagged && !tagged->empty();
        KXMD_REQUIRE(
            meta.metadataForKey(key) == (isThere ? tagged->back()->content() : std::nullopt));
    }
    if (!frames->empty())
        KXMD_REQUIRE(!meta.allFramesWithTag(frames->back()->tag())->empty());
    return 0;
}
