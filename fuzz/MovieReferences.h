#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Where the media of a movie is, read by the standards and by no code of the library.
///
/// Strict: a file whose sizes do not nest exactly, or that leaves open what it means, is not read.
/// References are to ISO/IEC 14496-12.
class MovieReferences {
public:
    struct Reference {
        std::uint64_t box; ///< Where the box begins that has it.
        std::uint64_t place; ///< Where it leads.
        bool isForeign; ///< Into another file.
    };
    struct Range {
        std::uint64_t begin;
        std::uint64_t end;
    };

    explicit MovieReferences(std::span<std::uint8_t const> file)
        : _file(file)
    {
        _isClear = walk("", 0, _file.size()) && _isClear;
    }

    /// Whether the file could be read.
    bool isClear() const { return _isClear; }
    /// In the order of the file.
    std::vector<Reference> const& references() const { return _references; }

    /// The end of the media that a place lies in; absent for a place elsewhere.
    std::optional<std::uint64_t> endOfMediaAt(std::uint64_t place) const
    {
        for (Range const& range : _media) {
            if (place >= range.begin && place < range.end)
                return range.end;
        }
        return std::nullopt;
    }

private:
    struct Box {
        std::string type;
        std::uint64_t start;
        std::uint64_t payload;
        std::uint64_t end;
    };

    std::uint64_t number(std::uint64_t position, unsigned width, std::uint64_t end)
    {
        if (position > end || end - position < width) {
            _isClear = false;
            return 0;
        }
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i)
            value = value << 8 | _file[position + i];
        return value;
    }

    /// The boxes of a list, which must fill it. No deeper than `isEntered` allows.
    bool walk(std::string const& parent, std::uint64_t position, std::uint64_t end)
    {
        while (_isClear && position < end) {
            if (end - position < 8)
                return false;
            std::uint64_t size = number(position, 4, end);
            std::uint64_t header = 8;
            if (size == 1) {
                size = number(position + 8, 8, end);
                header = 16;
            } else if (size == 0 && parent.empty()) {
                size = end - position;
            }
            if (size < header || size > end - position)
                return false;
            auto const type = _file.subspan(position + 4, 4);
            take({ std::string(type.begin(), type.end()), position, position + header,
                     position + size },
                parent);
            position += size;
        }
        return _isClear;
    }

    static bool isEntered(std::string const& parent, std::string const& type)
    {
        constexpr std::string_view entered[] { "/moov", "moov/trak", "trak/mdia", "mdia/minf",
            "minf/stbl", "minf/dinf", "stbl/stsd", "stsd/mp4a", "mp4a/wave", "moov/udta",
            "trak/udta", "/meta", "moov/meta", "trak/meta", "udta/meta", "meta/ilst", "/moof",
            "moof/traf", "/mfra" };
        return std::ranges::find(entered, parent + '/' + type) != std::end(entered);
    }

    void take(Box const& box, std::string const& parent)
    {
        if (isEntered(parent, box.type))
            return enter(box);
        std::string const path = parent + '/' + box.type;
        if (path == "/mdat")
            _media.push_back({ box.payload, box.end });
        else if (path == "stbl/stco")
            takeTable(box, 4);
        else if (path == "stbl/co64")
            takeTable(box, 8);
        else if (path == "stbl/saio" || path == "traf/saio")
            takeAuxiliary(box, parent == "traf");
        else if (path == "dinf/dref")
            takeDataReferences(box);
        else if (path == "traf/tfhd")
            takeFragmentHeader(box);
        else if (path == "traf/trun")
            takeRun(box);
        else if (path == "mfra/tfra")
            takeFragmentAccess(box);
        else if (path == "/sidx")
            takeSegmentIndex(box);
        else if (path == "meta/iloc")
            takeItemLocations(box);
    }

    void enter(Box const& box)
    {
        std::uint64_t children = box.payload;
        if (box.type == "stsd")
            children += 8;
        if (box.type == "mp4a") { // 12.2.3; versions 1 and 2 are QuickTime's.
            std::uint64_t const version = number(box.payload + 8, 2, box.end);
            children += version == 2 ? 64 : version == 1 ? 44 : 28;
        }
        if (box.type == "meta" && box.end - box.payload >= 4 && !number(box.payload, 4, box.end))
            children += 4; // QuickTime's has no version.
        if (box.type == "moof") {
            _fragment = box.start;
            _isFirstInFragment = true;
        }
        if (box.type == "traf")
            _base.reset();
        std::size_t const first = _references.size();
        if (box.type == "trak")
            _hasOwnMedia = _hasForeignMedia = false;
        if (children > box.end || !walk(box.type, children, box.end))
            _isClear = false;
        if (box.type == "traf")
            _isFirstInFragment = false;
        if (box.type != "trak" || !_hasForeignMedia)
            return;
        if (_hasOwnMedia)
            _isClear = false; // A table does not tell which file its chunks are in.
        for (std::size_t i = first; i < _references.size(); ++i)
            _references[i].isForeign = true;
    }

    void add(Box const& box, std::uint64_t place)
    {
        _references.push_back({ box.start, place, false });
    }

    /// 8.7.5.
    void takeTable(Box const& box, unsigned width)
    {
        std::uint64_t const count = number(box.payload + 4, 4, box.end);
        for (std::uint64_t i = 0; i < count && _isClear; ++i)
            add(box, number(box.payload + 8 + i * width, width, box.end));
    }

    /// 8.7.9.
    void takeAuxiliary(Box const& box, bool isInFragment)
    {
        std::uint64_t const flags = number(box.payload, 4, box.end);
        std::uint64_t const fields = box.payload + (flags & 1 ? 12 : 4);
        unsigned const width = flags >> 24 ? 8 : 4;
        std::uint64_t const count = number(fields, 4, box.end);
        _isClear = _isClear && (!isInFragment || _base);
        for (std::uint64_t i = 0; i < count && _isClear; ++i) {
            std::uint64_t const offset = number(fields + 4 + i * width, width, box.end);
            add(box, isInFragment ? *_base + offset : offset);
        }
    }

    /// 8.7.2.
    void takeDataReferences(Box const& box)
    {
        std::uint64_t position = box.payload + 8;
        for (std::uint64_t left = number(box.payload + 4, 4, box.end); left && _isClear; --left) {
            std::uint64_t const size = number(position, 4, box.end);
            bool const isOwn = number(position + 8, 4, box.end) & 1;
            _isClear = _isClear && size >= 12 && size <= box.end - position;
            (isOwn ? _hasOwnMedia : _hasForeignMedia) = true;
            position += size;
        }
    }

    /// 8.8.7.
    void takeFragmentHeader(Box const& box)
    {
        constexpr std::uint64_t hasBase = 1, startsAtFragment = 0x20000;
        std::uint64_t const flags = number(box.payload, 4, box.end);
        // Without either, a second track goes on where the media of the first one ends.
        bool const isTold = _isFirstInFragment || flags & (hasBase | startsAtFragment);
        _isClear = _isClear && !_base && isTold;
        _base = flags & hasBase ? number(box.payload + 8, 8, box.end) : _fragment;
        add(box, *_base);
    }

    /// 8.8.8.
    void takeRun(Box const& box)
    {
        constexpr std::uint64_t hasOffset = 1;
        bool const isPlaced = number(box.payload, 4, box.end) & hasOffset;
        _isClear = _isClear && _base;
        if (!isPlaced || !_isClear)
            return;
        auto const offset = static_cast<std::int32_t>(number(box.payload + 8, 4, box.end));
        add(box, *_base + static_cast<std::uint64_t>(std::int64_t { offset }));
    }

    /// 8.8.10.
    void takeFragmentAccess(Box const& box)
    {
        unsigned const width = number(box.payload, 4, box.end) >> 24 ? 8 : 4;
        std::uint64_t const lengths = number(box.payload + 8, 4, box.end);
        std::uint64_t const count = number(box.payload + 12, 4, box.end);
        std::uint64_t const entry
            = 2 * width + 3 + (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3);
        for (std::uint64_t i = 0; i < count && _isClear; ++i)
            add(box, number(box.payload + 16 + i * entry + width, width, box.end));
    }

    /// 8.16.3. Each part begins where the one before it ends.
    void takeSegmentIndex(Box const& box)
    {
        unsigned const width = number(box.payload, 4, box.end) >> 24 ? 8 : 4;
        std::uint64_t const entries = box.payload + 12 + 2 * width;
        std::uint64_t place = box.end + number(entries - width, width, box.end);
        std::uint64_t const count = number(entries + 2, 2, box.end);
        for (std::uint64_t i = 0; i < count && _isClear; ++i) {
            add(box, place);
            place += number(entries + 4 + i * 12, 4, box.end) & 0x7FFFFFFF;
        }
        add(box, place);
    }

    /// 8.11.3.
    void takeItemLocations(Box const& box)
    {
        std::uint64_t const version = number(box.payload, 4, box.end) >> 24;
        std::uint64_t const widths = number(box.payload + 4, 2, box.end);
        auto const width
            = [widths](int shift) { return static_cast<unsigned>(widths >> shift & 0xF); };
        unsigned const offset = width(12), length = width(8), base = width(4);
        unsigned const index = version ? width(0) : 0, counted = version < 2 ? 2 : 4;
        for (unsigned const each : { offset, length, base, index })
            _isClear = _isClear && (each == 0 || each == 4 || each == 8);
        _isClear = _isClear && version <= 2;
        std::uint64_t position = box.payload + 6;
        std::uint64_t items = number(position, counted, box.end);
        for (position += counted; items && _isClear; --items) {
            position += counted;
            std::uint64_t const method = version ? number(position, 2, box.end) & 0xF : 0;
            position += version ? 4 : 2;
            std::uint64_t const start = number(position, base, box.end);
            position += base;
            std::uint64_t extents = number(position, 2, box.end);
            for (position += 2; extents && _isClear; --extents) {
                std::uint64_t const place = start + number(position + index, offset, box.end);
                position += index + offset + length;
                if (method == 0)
                    add(box, place);
            }
        }
    }

    std::span<std::uint8_t const> const _file;
    bool _isClear { true };
    std::vector<Reference> _references;
    std::vector<Range> _media;
    std::uint64_t _fragment { 0 };
    bool _isFirstInFragment { true };
    std::optional<std::uint64_t> _base; // Of the track fragment, once its header was there.
    bool _hasOwnMedia { false };
    bool _hasForeignMedia { false };
};
