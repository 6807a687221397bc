// Holds the answer "safe" against what edits do to the bytes of damaged files.

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

std::uint64_t numberIn(Bytes const& file, std::uint64_t place, unsigned width)
{
    std::uint64_t number = 0;
    for (unsigned i = 0; i < width; ++i)
        number = number << 8 | file.at(place + i);
    return number;
}

/// A file as the standards tell to read it (ISO/IEC 14496-12, 4.2): none of the library's reading.
class StandardWalk {
public:
    struct Box {
        std::string path;
        std::uint64_t offset { 0 };
        std::uint64_t headerSize { 8 };
        std::uint64_t size { 0 }; ///< What it claims.
        std::uint64_t end { 0 }; ///< Not past that of what is around it.
        bool isEntered { false };
        bool isTable() const
        {
            return path.ends_with("/stbl/stco") || path.ends_with("/stbl/co64");
        }
    };

    explicit StandardWalk(Bytes const& file)
        : _file(file)
    {
        walk("", 0, file.size());
        maskWhatIsCorrected();
    }

    std::vector<Box> const& boxes() const { return _boxes; }

    /// What must outlive an edit that removes what is at `removed`: the path of each other box, the
    /// bytes of those that are not entered and the chunks that the tables lead to.
    std::vector<std::pair<std::string, Bytes>> contentWithout(std::string const& removed) const
    {
        std::vector<std::pair<std::string, Bytes>> content;
        for (Box const& box : _boxes) {
            if (box.path == removed || box.path.starts_with(removed + '/'))
                continue;
            auto& bytes = content.emplace_back(box.path, Bytes()).second;
            if (box.isEntered)
                continue;
            bytes = unmaskedOrTable(box);
            for (std::uint64_t const place : chunkOffsetsOf(box))
                bytes = join(std::move(bytes), chunkAt(place));
        }
        return content;
    }

    static constexpr std::uint64_t chunkSize = 8;

private:
    static bool isEntered(std::string const& path)
    {
        static std::vector<std::string> const endings { "/moov", "/moov/trak", "/trak/mdia",
            "/mdia/minf", "/minf/stbl", "/moov/udta", "/udta/meta", "/meta/ilst" };
        return std::ranges::any_of(endings, [&](auto const& ending) {
            return ending == "/moov" ? path == ending : path.ends_with(ending);
        });
    }

    // The paths are short: boxes outside of them are not entered.
    void walk(std::string const& parent, std::uint64_t place, std::uint64_t end)
    {
        while (end - place >= 8) {
            auto const type = _file.begin() + static_cast<std::ptrdiff_t>(place) + 4;
            Box box { .path = parent + '/' + std::string(type, type + 4), .offset = place };
            box.size = numberIn(_file, place, 4);
            if (box.size == 1 && end - place >= 16) {
                box.headerSize = 16;
                box.size = numberIn(_file, place + 8, 8);
            } else if (box.size == 0 && parent.empty()) {
                box.size = end - place;
            }
            if (box.size < box.headerSize)
                return;
            box.end = place + std::min(box.size, end - place);
            box.isEntered = isEntered(box.path);
            _boxes.push_back(box);
            if (box.isEntered) {
                std::uint64_t const first = place + box.headerSize;
                bool const hasVersion = box.path.ends_with("/meta") && box.end - first >= 4
                    && numberIn(_file, first, 4) == 0;
                walk(box.path, first + (hasVersion ? 4 : 0), box.end);
            }
            place = box.end;
        }
    }

    struct Range {
        std::uint64_t begin, end;
    };

    /// Where the entries of a table are that it has and claims; nowhere for other boxes.
    Range entriesOf(Box const& box) const
    {
        std::uint64_t const fields = box.offset + box.headerSize;
        if (!box.isTable() || box.end - fields < 8)
            return { fields, fields };
        std::uint64_t const width = box.path.ends_with("stco") ? 4 : 8;
        std::uint64_t const room = (box.end - fields - 8) / width;
        std::uint64_t const count = std::min(numberIn(_file, fields + 4, 4), room);
        return { fields + 8, fields + 8 + count * width };
    }

    std::vector<std::uint64_t> chunkOffsetsOf(Box const& box) const
    {
        std::vector<std::uint64_t> places;
        unsigned const width = box.path.ends_with("stco") ? 4 : 8;
        auto const [begin, end] = entriesOf(box);
        for (auto at = begin; at < end; at += width)
            places.push_back(numberIn(_file, at, width));
        return places;
    }

    /// The first bytes there, up to the next box: what is inserted before that is in the midst
    /// of a chunk that runs into it.
    Bytes chunkAt(std::uint64_t place) const
    {
        auto const next = std::ranges::upper_bound(_boxes, place, {}, &Box::offset);
        auto const end = next != _boxes.end() ? next->offset : _masked.size();
        Bytes chunk;
        for (auto at = place; at - place < chunkSize && at < end; ++at)
            chunk.push_back(_masked[at]);
        return chunk;
    }

    /// The bytes after the header, but for the entries of a table.
    Bytes unmaskedOrTable(Box const& box) const
    {
        auto const at = [&](std::uint64_t place) {
            return _file.begin() + static_cast<std::ptrdiff_t>(place);
        };
        auto const [begin, end] = entriesOf(box);
        return join(Bytes(at(box.offset + box.headerSize), at(begin)), Bytes(at(end), at(box.end)));
    }

    void maskWhatIsCorrected()
    {
        _masked = _file;
        auto const mask = [this](std::uint64_t begin, std::uint64_t end) {
            std::fill(_masked.begin() + static_cast<std::ptrdiff_t>(begin),
                _masked.begin() + static_cast<std::ptrdiff_t>(end), 0);
        };
        for (Box const& box : _boxes) {
            if (box.isEntered)
                mask(box.offset, box.offset + 4);
            auto const [begin, end] = entriesOf(box);
            mask(begin, end);
        }
    }

    Bytes const& _file;
    Bytes _masked; // Sizes and entries that an edit may correct are 0.
    std::vector<Box> _boxes;
};

/// A movie with odd atoms in odd places, some of whose headers and tables are then damaged.
class DamagedMovie {
public:
    explicit DamagedMovie(std::uint32_t seed)
        : _random(seed)
    {
    }

    Bytes bytes()
    {
        Bytes file = wholeFile();
        auto const boxes = StandardWalk(file).boxes();
        for (std::uint32_t damages = below(4); damages; --damages)
            damage(file, boxes[below(static_cast<std::uint32_t>(boxes.size()))]);
        return file;
    }

private:
    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(_random()) % limit;
    }
    bool isOneOf(std::uint32_t many) { return below(many) == 0; }
    template <class Value> Value oneOf(std::vector<Value> const& values)
    {
        return values[below(static_cast<std::uint32_t>(values.size()))];
    }

    Bytes wholeFile()
    {
        constexpr std::uint32_t chunkSize = StandardWalk::chunkSize, headerSize = 8;
        Bytes chunks;
        for (std::uint32_t i = 0; i < chunkCount; ++i)
            chunks = join(std::move(chunks), text("CHNK"), u32(i));
        Bytes const media = atom("mdat", chunks);
        // How many of the chunks are found before the movie.
        auto const inFront = oneOf<std::uint32_t>({ 0, 0, 2, chunkCount });
        Bytes const front = inFront ? join(ftyp(), media) : ftyp();

        // Built twice of the same random numbers: for its length, and with the places of chunks.
        std::vector<std::uint32_t> places(chunkCount);
        auto const random = _random;
        auto const after = static_cast<std::uint32_t>(front.size() + moov(places).size());
        _random = random;
        for (std::uint32_t i = 0; i < chunkCount; ++i) {
            auto const place = i < inFront ? static_cast<std::uint32_t>(ftyp().size()) : after;
            places[i] = place + headerSize + i * chunkSize;
        }
        Bytes const movie = moov(places);
        return inFront == chunkCount ? join(front, movie) : join(front, movie, media);
    }

    Bytes moov(std::vector<std::uint32_t> const& chunks)
    {
        std::vector<Bytes> parts;
        for (std::uint32_t tracks = 1 + below(2); tracks; --tracks)
            parts.push_back(track(chunks));
        for (std::uint32_t others = below(3); others; --others)
            parts.push_back(oddAtom());
        parts.push_back(userData());
        std::ranges::shuffle(parts, _random);
        return atom("moov", concatenated(parts));
    }

    Bytes track(std::vector<std::uint32_t> chunks)
    {
        if (isOneOf(8))
            std::ranges::shuffle(chunks, _random);
        std::vector<Bytes> tables { stco(chunks) };
        if (below(2))
            tables.push_back(atom("stsz", u32(0), u32(below(2) * 8), u32(below(9000)), u32(8000)));
        if (below(2))
            tables.push_back(atom("stsc", u32(0), u32(1), u32(1), u32(1), u32(1)));
        if (isOneOf(3))
            tables.push_back(lookAlike());
        std::ranges::shuffle(tables, _random);
        return atom(
            "trak", atom("mdia", hdlr("soun"), atom("minf", atom("stbl", concatenated(tables)))));
    }

    /// "stco" with less than a table needs, or one that nobody expects.
    Bytes lookAlike()
    {
        Bytes const fields = join(u32(0), u32(below(3)), u32(oneOf<std::uint32_t>({ 0, 5000 })));
        return atom("stco", Bytes(fields.begin(), fields.begin() + below(13)));
    }

    Bytes oddAtom()
    {
        switch (below(4)) {
        case 0:
            return atom("free", zeros(below(900)));
        case 1:
            return atom("edts", atom("elst", u32(0), u32(0)));
        case 2:
            return atom("udta", tagAtom("\xA9nam", "Other"));
        default:
            return lookAlike();
        }
    }

    Bytes userData()
    {
        std::vector<Bytes> tags { tagAtom("\xA9nam", "Title") };
        for (std::uint32_t covers = below(3); covers; --covers)
            tags.push_back(covr(13, filled(below(60), 'c')));
        if (isOneOf(3))
            tags.push_back(tagAtom("\xA9"
                                   "alb",
                "Album"));
        std::ranges::shuffle(tags, _random);
        return userDataWithTags(concatenated(tags));
    }

    void damage(Bytes& file, StandardWalk::Box const& box)
    {
        auto const write = [&](std::uint64_t place, Bytes const& bytes) {
            for (std::size_t i = 0; i < bytes.size() && place + i < file.size(); ++i)
                file[place + i] = bytes[i];
        };
        auto const size = static_cast<std::uint32_t>(box.size);
        switch (below(10)) {
        case 0:
            return write(box.offset, u32(oneOf<std::uint32_t>({ 0, 1, 4, 8, 12, 13, 16 })));
        case 1:
            return write(box.offset + 4,
                text(oneOf<std::string>({ "stco", "udta", "moov", "free", "meta", "stbl" })));
        case 2:
        case 3:
            return write(box.offset + 12, u32(oneOf<std::uint32_t>({ 0, 1, 3, 5, 6, 100 })));
        case 4:
            return write(box.offset + 8 + below(24), u8(below(256)));
        default:
            return write(box.offset,
                u32(size
                    + oneOf<std::uint32_t>({ 0u - 12, 0u - 8, 0u - 4, 0u - 3, 0u - 2, 0u - 1, 1, 2,
                        3, 4, 8, 16, 24, 60 })));
        }
    }

    static constexpr std::uint32_t chunkCount = 4;

    std::mt19937 _random;
};

}

class KXMP4EditSafetyDamage : public CoverTest {
protected:
    /// The file with these bytes, cleaned as `KXMDFileProcessorCleanIPhoneVideo` does: without the
    /// many files that it would write.
    static Bytes cleaned(Bytes const& file)
    {
        KXMutableData data(file);
        for (std::uint64_t length = 0; length != data.length();) {
            length = data.length();
            auto const root = treeOf(bytesOf(data));
            auto const userData = root->allAtomsWithPath("moov/udta");
            if (!userData.empty())
                static_cast<void>(userData.front()->removeSelfFromMutableData(data));
        }
        return bytesOf(data);
    }

    /// Counts the answers, and holds a "safe" one against the edit.
    void check(Bytes const& before, Bytes const& after, std::string const& removed,
        std::optional<std::string> const& reason)
    {
        bool const isKept = StandardWalk(before).contentWithout(removed)
            == StandardWalk(after).contentWithout(removed);
        EXPECT_TRUE(reason || isKept);
        ++(!reason ? safe : isKept ? cautious : dangerous);
    }

    std::size_t safe { 0 }, dangerous { 0 }, cautious { 0 };
};

TEST_F(KXMP4EditSafetyDamage, WhatIsSaidToBeSafeKeepsEveryChunkAndEveryOtherAtom)
{
    constexpr std::uint32_t movies = 4000;
    LogCapture const log;
    std::string const covers = "/moov/udta/meta/ilst/covr";
    for (std::uint32_t seed = 0; seed < movies && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Bytes const file = DamagedMovie(seed).bytes();
        auto const source = reader(file);
        if (KXMDFileMeta::metaTypeForData(*source) != KXMDMetaTypeMP4)
            continue; // Nobody would edit it as a movie.
        KXMP4EditSafety const safety(*source);
        KXMDFileMetaMP4 meta;

        auto const removal = std::make_shared<KXMutableData>(file);
        if (meta.removeAlbumCoverFromData(removal))
            check(file, bytesOf(*removal), covers, safety.reasonAgainstRemovingAlbumCover());

        // Larger than any place in the file: sizes that grow become entries.
        auto const image = imageEncodedAs(filled(seed % 3 ? 40 : 9000, 'j'));
        auto const addition = std::make_shared<KXMutableData>(file);
        if (meta.addAlbumCoverToData(image, addition)) {
            auto const size = meta.albumCoverSizeForImage(image);
            check(
                file, bytesOf(*addition), covers, safety.reasonAgainstAddingAlbumCoverOfSize(size));
        }

        check(file, cleaned(file), "/moov/udta",
            KXMDFileProcessorCleanIPhoneVideo::reasonAgainstCleaningData(*source));
    }
    EXPECT_GT(safe, 4000u);
    EXPECT_GT(dangerous, 1000u);
    EXPECT_LT(cautious * 8, dangerous);
}
