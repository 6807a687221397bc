// Holds the answers of the safety check against what edits really do to files of many layouts.

#include "kxmd/mp4/KXMDFileMetaMP4.h"
#include "kxmd/mp4/safety/KXMP4EditSafety.h"
#include "kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h"
#include "support/AtomTrees.h"
#include "support/CoverTest.h"
#include "support/LogCapture.h"

#include <algorithm>
#include <random>

using namespace build;

namespace {

constexpr std::size_t chunkSize = 8;

/// A chunk that no other is equal to.
Bytes chunk(std::uint32_t number) { return join(text("CHNK"), u32(number)); }

/// A movie of tracks with 32-bit or 64-bit tables, of media before it and after it.
class RandomMovie {
public:
    explicit RandomMovie(std::uint32_t seed)
        : _random(seed)
    {
        for (std::uint32_t tracks = 1 + below(3); tracks; --tracks) {
            Table table { below(5) == 0, {} };
            for (std::uint32_t chunks = below(5); chunks; --chunks)
                table.chunks.push_back(below(chunkCount));
            // Most files have their chunks in order; some the media after the movie first.
            if (below(2))
                std::ranges::sort(table.chunks);
            else if (below(2))
                std::ranges::sort(table.chunks, std::greater());
            _tables.push_back(table);
        }
        _chunksInFront = below(3) ? (below(2) ? 0 : chunkCount) : below(chunkCount);
        for (std::uint32_t covers = below(3); covers; --covers)
            _tags = join(std::move(_tags), covr(13, filled(below(60), 'c')));
        _tags = join(std::move(_tags), tagAtom("\xA9nam", "Title"));
        _isUserDataFirst = below(2);
    }

    Bytes bytes() const
    {
        Bytes const front = join(ftyp(), media(0, _chunksInFront));
        auto const after = static_cast<std::uint32_t>(front.size() + moov(0).size());
        return join(front, moov(after), media(_chunksInFront, chunkCount));
    }

    /// What every entry of every table leads to in an edited file.
    static std::vector<Bytes> chunksIn(Bytes const& file)
    {
        std::vector<Bytes> found;
        KXMutableData const data(file);
        auto const entryAt = [&](std::uint64_t position, bool isWide) {
            std::uint32_t high = 0, low = 0;
            bool const isThere = (!isWide || data.readUInt32ToAt(high, position))
                && data.readUInt32ToAt(low, position + (isWide ? 4 : 0));
            return isThere ? std::uint64_t { high } << 32 | low : UINT64_MAX;
        };
        for (auto const& table : treeOf(file)->allAtomsWithPath("moov/trak/mdia/minf/stbl")) {
            for (auto const& atom : table->children()) {
                bool const isWide = atom->tag() == "co64";
                if (!isWide && atom->tag() != "stco")
                    continue;
                std::uint64_t const step = isWide ? 8 : 4;
                std::uint64_t count = entryAt(atom->offset() + 12, false);
                for (std::uint64_t i = 16; count && i + step <= atom->size(); i += step, --count) {
                    std::uint64_t const place = entryAt(atom->offset() + i, isWide);
                    Bytes bytes;
                    for (std::uint64_t at = place; at - place < chunkSize && at < file.size(); ++at)
                        bytes.push_back(file[at]);
                    found.push_back(std::move(bytes));
                }
            }
        }
        return found;
    }

private:
    static constexpr std::uint32_t chunkCount = 6;

    struct Table {
        bool isWide { false };
        std::vector<std::uint32_t> chunks;
    };

    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(_random()) % limit;
    }

    static Bytes media(std::uint32_t first, std::uint32_t end)
    {
        Bytes chunks;
        for (std::uint32_t i = first; i < end; ++i)
            chunks = join(std::move(chunks), chunk(i));
        return atom("mdat", chunks);
    }

    /// `after` is where the media after the movie begins.
    Bytes moov(std::uint32_t after) const
    {
        auto const placeOf = [&](std::uint32_t number) {
            auto const isInFront = number < _chunksInFront;
            auto const start = isInFront ? static_cast<std::uint32_t>(ftyp().size()) : after;
            auto const index = isInFront ? number : number - _chunksInFront;
            return start + 8 + index * static_cast<std::uint32_t>(chunkSize);
        };
        Bytes tracks;
        for (auto const& [isWide, chunks] : _tables) {
            Bytes entries;
            for (std::uint32_t const number : chunks)
                entries = join(
                    std::move(entries), isWide ? u64(placeOf(number)) : u32(placeOf(number)));
            auto const count = static_cast<std::uint32_t>(chunks.size());
            Bytes const table = atom(isWide ? "co64" : "stco", u32(0), u32(count), entries);
            tracks = join(std::move(tracks),
                atom("trak", atom("mdia", hdlr("soun"), atom("minf", atom("stbl", table)))));
        }
        Bytes const userData = userDataWithTags(_tags);
        return _isUserDataFirst ? atom("moov", userData, tracks) : atom("moov", tracks, userData);
    }

    std::mt19937 _random;
    std::vector<Table> _tables;
    std::uint32_t _chunksInFront { 0 };
    Bytes _tags;
    bool _isUserDataFirst { false };
};

}

class KXMP4EditSafetyTruth : public CoverTest { };

TEST_F(KXMP4EditSafetyTruth, AReasonIsGivenExactlyWhereAnEditLosesAChunk)
{
    auto const image = imageEncodedAs(filled(40, 'j'));
    std::size_t safe = 0, dangerous = 0;
    for (std::uint32_t seed = 0; seed < 4000; ++seed) {
        SCOPED_TRACE(seed);
        Bytes const file = RandomMovie(seed).bytes();
        auto const chunks = RandomMovie::chunksIn(file);
        KXMDFileMetaMP4 meta;
        auto const source = reader(file);
        KXMP4EditSafety const safety(*source);
        for (bool const isAdded : { false, true }) {
            auto const data = std::make_shared<KXMutableData>(file);
            bool const isDone = isAdded ? meta.addAlbumCoverToData(image, data)
                                        : meta.removeAlbumCoverFromData(data);
            if (!isDone)
                continue; // No 32-bit table.
            auto const reason = isAdded
                ? safety.reasonAgainstAddingAlbumCoverOfSize(meta.albumCoverSizeForImage(image))
                : safety.reasonAgainstRemovingAlbumCover();
            bool const survives = RandomMovie::chunksIn(bytesOf(*data)) == chunks;
            ASSERT_EQ(!reason, survives) << reason.value_or("");
            ++(survives ? safe : dangerous);
        }
    }
    EXPECT_GT(safe, 500u);
    EXPECT_GT(dangerous, 500u);
}

TEST_F(KXMP4EditSafetyTruth, DamagedFilesGetAnAnswerAndMayBeEdited)
{
    LogCapture const log;
    auto const image = imageEncodedAs(filled(40, 'j'));
    std::mt19937 random(3);
    for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        Bytes file = RandomMovie(seed).bytes();
        for (int damages = 0; damages < 3; ++damages)
            file[random() % file.size()] = static_cast<std::uint8_t>(random());
        if (seed % 3 == 0)
            file.resize(random() % file.size());
        auto const source = reader(file);
        KXMP4EditSafety const safety(*source);
        for (std::uint64_t const position : { random() % 2000, std::uint64_t { 0 } })
            static_cast<void>(safety.reasonAgainstEditAt(position, 100));
        auto const reason = safety.reasonAgainstAddingAlbumCoverOfSize(64);
        EXPECT_EQ(safety.reasonAgainstAddingAlbumCoverOfSize(64), reason) << "Asked again.";
        static_cast<void>(KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*source));
        auto const data = std::make_shared<KXMutableData>(file);
        KXMDFileMetaMP4 meta;
        if (meta.addAlbumCoverToData(image, data)) {
            EXPECT_EQ(meta.filesize(), data->length());
        }
    }
}

TEST_F(KXMP4EditSafetyTruth, EveryTruncationGetsAnAnswer)
{
    Bytes const file = RandomMovie(1).bytes();
    for (std::size_t length = 0; length <= file.size(); ++length) {
        auto const part
            = reader(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        KXMP4EditSafety const safety(*part);
        static_cast<void>(safety.reasonAgainstRemovingAlbumCover());
        static_cast<void>(safety.reasonAgainstAddingAlbumCoverOfSize(100));
        static_cast<void>(KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*part));
    }
}
