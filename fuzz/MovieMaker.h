#pragma once

#include "BoxWriter.h"
#include "Choices.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// Makes movies as the fuzzer chooses: with tables of chunk offsets, fragments, indexes and items,
/// whose references lead into the file, most of them to media. Sizes nest, unless the fuzzer
/// chooses to damage a few bytes.
class MovieMaker : private BoxWriter {
public:
    using BoxWriter::Bytes;

    explicit MovieMaker(Choices& choices)
        : _choices(choices)
    {
    }

    Bytes movie()
    {
        constexpr std::size_t longest = 32 * 1024;
        auto const damages = _choices.next<std::uint8_t>();
        std::vector<Damage> damaged;
        for (int left = damages < 0xC0 ? 0 : damages % 4; left; --left) {
            auto const position = _choices.next<std::uint16_t>();
            damaged.push_back({ position, _choices.next<std::uint8_t>() });
        }
        std::size_t const type = begin("ftyp");
        text("M4A ");
        number(0, 4);
        end(type);
        while (_choices.areLeft() && _file.size() < longest)
            topLevelBox(_choices.next<std::uint8_t>());
        for (Reference const& reference : _references)
            store(placeOf(reference.choice) - reference.base, reference.width, reference.field);
        for (auto const& [position, value] : damaged)
            _file[position % _file.size()] = value;
        return std::move(_file);
    }

private:
    struct Damage {
        std::uint16_t position;
        std::uint8_t value;
    };
    struct Reference {
        std::size_t field;
        unsigned width;
        std::uint16_t choice;
        std::uint64_t base; // Which the place is counted from.
    };

    // Pieces.

    template <class Number> Number any() { return _choices.next<Number>(); }
    unsigned below(unsigned limit) { return any<std::uint8_t>() % limit; }

    /// A field that tells a place in the file, once the whole file is known.
    void place(unsigned width, std::uint64_t base = 0)
    {
        _references.push_back({ _file.size(), width, any<std::uint16_t>(), base });
        number(0, width);
    }

    std::uint64_t placeOf(std::uint16_t choice) const
    {
        bool const isInMedia = choice % 4 && !_media.empty();
        return isInMedia ? _media[choice / 4 % _media.size()] : choice / 4 % (_file.size() + 16);
    }

    // Boxes.

    void topLevelBox(std::uint8_t choice)
    {
        bool const isLarge = choice / 8 % 8 == 7;
        switch (choice % 8) {
        case 0:
            return media(isLarge);
        case 1:
        case 2:
            return movieBox(isLarge);
        case 3:
            return fragment();
        case 4:
            return fragmentIndex();
        case 5:
            return segmentIndex();
        case 6:
            return metadata(false);
        default:
            return leaf("free", below(64));
        }
    }

    /// Bytes of which no few that follow each other occur twice.
    void media(bool isLarge)
    {
        std::size_t const box = begin("mdat", isLarge);
        for (unsigned left = 8 + below(64); left; --left) {
            _media.push_back(_file.size());
            number(_media.size() * 0x9E3779B1 >> 11, 1);
        }
        end(box);
    }

    void movieBox(bool isLarge)
    {
        std::size_t const box = begin("moov", isLarge);
        for (unsigned left = 1 + below(5); left; --left) {
            auto const choice = any<std::uint8_t>();
            if (choice % 4 < 2)
                track(choice / 4);
            else if (choice % 4 == 2)
                userData(choice / 4);
            else
                metadata(choice & 4);
        }
        end(box);
    }

    void track(unsigned choice)
    {
        std::size_t const box = begin("trak", choice % 16 == 15), media = begin("mdia");
        std::size_t const handler = begin("hdlr");
        number(0, 8);
        text("soun");
        number(0, 13);
        end(handler);
        std::size_t const information = begin("minf");
        if (choice & 1)
            dataReferences();
        std::size_t const tables = begin("stbl");
        if (choice & 2)
            sampleDescriptions();
        for (unsigned left = 1 + below(3); left; --left)
            table(any<std::uint8_t>());
        end(tables);
        end(information);
        end(media);
        if (choice & 4)
            userData(0);
        end(box);
    }

    void dataReferences()
    {
        std::size_t const information = begin("dinf"), box = begin("dref");
        unsigned const count = 1 + below(2);
        number(0, 4);
        number(count, 4);
        for (unsigned left = count; left; --left) {
            std::size_t const entry = begin("url ");
            number(below(2), 4); // Whether it is this file.
            end(entry);
        }
        end(box);
        end(information);
    }

    void sampleDescriptions()
    {
        std::size_t const box = begin("stsd");
        number(0, 4);
        number(1, 4);
        std::size_t const entry = begin("mp4a");
        number(1, 8);
        unsigned const version = below(3);
        number(version, 2);
        zeros(version == 2 ? 54 : version == 1 ? 34 : 18);
        std::size_t const wave = begin("wave");
        leaf("frma", 4);
        leaf("mp4a", below(32));
        end(wave);
        end(entry);
        end(box);
    }

    void table(std::uint8_t choice)
    {
        constexpr std::string_view types[] { "stco", "stco", "co64", "saio" };
        std::string_view const type = types[choice % 4];
        bool const isWide = type == "co64" || (type == "saio" && choice & 4);
        std::size_t const box = begin(type, choice / 8 == 31);
        number(type == "saio" && isWide, 1);
        number(0, 3);
        entries(isWide ? 8 : 4, 1 + choice / 8 % 4);
        end(box);
    }

    void entries(unsigned width, unsigned count)
    {
        number(count, 4);
        for (unsigned left = count; left; --left)
            place(width);
    }

    void userData(unsigned choice)
    {
        std::size_t const box = begin("udta");
        std::size_t const meta = begin("meta");
        number(0, 4);
        leaf("hdlr", 25);
        if (choice & 4)
            itemLocations();
        std::size_t const tags = begin("ilst");
        for (unsigned left = choice / 8 == 7 ? 20 : 1 + choice % 4; left; --left) {
            std::size_t const tag = begin(any<std::uint8_t>() % 2 ? "covr" : "\xA9nam");
            leaf("data", 8 + below(64));
            end(tag);
        }
        end(tags);
        end(meta);
        end(box);
    }

    void metadata(bool isOfQuickTime)
    {
        std::size_t const box = begin("meta");
        if (!isOfQuickTime)
            number(0, 4);
        leaf("hdlr", 25);
        itemLocations();
        end(box);
    }

    void itemLocations()
    {
        constexpr unsigned widths[] { 0, 4, 8, 4 };
        std::size_t const box = begin("iloc");
        unsigned const version = below(3), offset = widths[below(4)], base = widths[below(4)];
        unsigned const index = version ? widths[below(4)] : 0, count = 1 + below(2);
        number(version, 1);
        number(0, 3);
        number(offset << 12 | 4 << 8 | base << 4 | index, 2);
        number(count, version < 2 ? 2 : 4);
        for (unsigned item = 0; item < count; ++item) {
            number(item, version < 2 ? 2 : 4);
            if (version)
                number(below(4) == 3, 2); // In the file, or else among the data of items.
            number(0, 2);
            if (offset)
                number(0, base);
            else if (base)
                place(base);
            unsigned const extents = 1 + below(2);
            number(extents, 2);
            for (unsigned left = extents; left; --left) {
                number(0, index);
                if (offset)
                    place(offset);
                number(8, 4);
            }
        }
        end(box);
    }

    void fragment()
    {
        std::size_t const box = begin("moof");
        leaf("mfhd", 8);
        for (unsigned left = 1 + below(2); left; --left)
            trackFragment(box);
        end(box);
    }

    void trackFragment(std::uint64_t fragmentStart)
    {
        constexpr unsigned hasBase = 1, startsAtFragment = 0x20000, hasOffset = 1;
        std::size_t const box = begin("traf"), header = begin("tfhd");
        unsigned const flags = (below(2) ? hasBase : 0) | (below(2) ? startsAtFragment : 0);
        number(flags, 4);
        number(1, 4);
        if (flags & hasBase)
            place(8);
        end(header);
        for (unsigned left = below(3); left; --left) {
            std::size_t const run = begin("trun");
            bool const isPlaced = below(4);
            number(isPlaced ? hasOffset : 0, 4);
            number(1, 4);
            if (isPlaced && flags & hasBase)
                number(static_cast<std::uint64_t>(any<std::int8_t>()), 4);
            else if (isPlaced)
                place(4, fragmentStart);
            end(run);
        }
        if (below(4) == 0) {
            std::size_t const auxiliary = begin("saio");
            number(0, 4);
            number(1, 4);
            place(4, flags & hasBase ? 0 : fragmentStart);
            end(auxiliary);
        }
        end(box);
    }

    void fragmentIndex()
    {
        std::size_t const box = begin("mfra"), access = begin("tfra");
        unsigned const version = below(2), width = version ? 8 : 4, lengths = below(64);
        unsigned const rest = (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
        number(version, 1);
        number(0, 3);
        number(1, 4);
        number(lengths, 4);
        unsigned const count = below(3);
        number(count, 4);
        for (unsigned left = count; left; --left) {
            number(0, width);
            place(width);
            number(1, rest);
        }
        end(access);
        end(box);
    }

    void segmentIndex()
    {
        std::size_t const box = begin("sidx");
        unsigned const version = below(2), width = version ? 8 : 4, count = below(4);
        number(version, 1);
        number(0, 3);
        number(1, 4);
        number(1000, 4);
        number(0, width);
        number(below(128), width);
        number(0, 2);
        number(count, 2);
        for (unsigned left = count; left; --left) {
            number(any<std::uint8_t>(), 4);
            number(0, 8);
        }
        end(box);
    }

    Choices& _choices;
    std::vector<Reference> _references;
    std::vector<std::size_t> _media; // The place of each byte.
};
