// A buffer that keeps its bytes in pieces holds what a plain row of bytes would hold after the same
// edits, and knows where each byte comes from.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/base/KXMutableData.h"

#include <algorithm>
#include <set>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Range = KXMutableData::Range;

/// A byte, and its place in what the buffer was made from; none for an inserted one.
struct Byte {
    std::uint8_t value;
    std::optional<std::uint64_t> origin;
    bool isKnown { true };
};

/// The buffer, and the plain row.
class Buffers {
public:
    Buffers(Bytes const& bytes, bool isOverSource)
        : _data(isOverSource
                ? std::make_shared<KXMutableData>(immutableReader(bytes.data(), bytes.size()))
                : std::make_shared<KXMutableData>(bytes))
    {
        for (std::uint8_t const byte : bytes)
            _row.push_back({ byte, _row.size() });
    }

    void editOnce(Choices& choices)
    {
        auto const kind = choices.next<std::uint8_t>();
        std::uint64_t const position = choices.next<std::uint16_t>() % (_row.size() + 2);
        std::uint64_t const length = choices.next<std::uint8_t>();
        switch (kind % 8) {
        case 0:
            return insert(Bytes(length % 64, kind), position, true);
        case 1:
            return insert(Bytes(length, 0xFF), position, false);
        case 2:
        case 3:
            return remove({ { position, length } });
        case 4:
            return removeSeveral(position, length, choices);
        case 5:
            return replace(Bytes(length % 64, kind), position);
        case 6:
            return replaceNumber(position, choices.next<std::uint32_t>());
        default:
            return read(position, length);
        }
    }

    void compare()
    {
        KXMD_REQUIRE(_data->length() == _row.size());
        std::vector<std::optional<std::uint64_t>> origins(_row.size());
        std::uint64_t end = 0;
        for (auto const& kept : _data->keptBytes()) {
            KXMD_REQUIRE(kept.length && kept.position >= end);
            end = kept.position + kept.length;
            KXMD_REQUIRE(end <= _row.size());
            for (std::uint64_t i = 0; i < kept.length; ++i)
                origins[kept.position + i] = kept.origin + i;
        }
        KXMD_REQUIRE(std::ranges::equal(origins, _row, {}, {}, &Byte::origin));
        std::set<std::uint64_t> overwritten;
        for (Range const& range : _data->overwrittenOrigins()) {
            for (std::uint64_t i = 0; i < range.length; ++i)
                overwritten.insert(range.position + i);
        }
        KXMD_REQUIRE(overwritten == _overwritten);
    }

    void compareBytes()
    {
        KXMD_REQUIRE(std::ranges::equal(_data->bytes(), _row, {}, {}, &Byte::value));
        for (Byte& byte : _row)
            byte.isKnown = true; // They are in the row now.
    }

private:
    bool contains(std::uint64_t position, std::uint64_t length) const
    {
        return position + length <= _row.size();
    }
    auto at(std::uint64_t position) { return _row.begin() + static_cast<std::ptrdiff_t>(position); }

    void insert(Bytes const& bytes, std::uint64_t position, bool isKnown)
    {
        bool const isDone = isKnown ? _data->insertBytesAt(bytes, position)
                                    : _data->insertUnknownBytesAt(bytes.size(), position);
        KXMD_REQUIRE(isDone == contains(position, 0));
        if (!isDone)
            return;
        std::vector<Byte> inserted;
        for (std::uint8_t const byte : bytes)
            inserted.push_back({ byte, {}, isKnown });
        _row.insert(at(position), inserted.begin(), inserted.end());
    }

    void remove(std::vector<Range> const& ranges)
    {
        bool const isDone = ranges.size() == 1
            ? _data->removeBytesAt(ranges[0].position, ranges[0].length)
            : _data->removeRanges(ranges);
        std::uint64_t end = 0;
        bool isThere = true;
        for (auto const& [position, length] : ranges) {
            isThere = isThere && position >= end && contains(position, length);
            end = position + length;
        }
        KXMD_REQUIRE(isDone == isThere);
        if (!isDone)
            return;
        std::for_each(ranges.rbegin(), ranges.rend(), [this](Range const& range) {
            _row.erase(at(range.position), at(range.position + range.length));
        });
    }

    void removeSeveral(std::uint64_t position, std::uint64_t length, Choices& choices)
    {
        std::vector<Range> ranges { { position, length % 16 } };
        for (auto left = length / 16; left; --left) {
            position += ranges.back().length + choices.next<std::uint8_t>() % 32;
            ranges.push_back({ position, choices.next<std::uint8_t>() % 16u });
            if (ranges.back().length == 15)
                position -= 8; // The next one may overlap.
        }
        remove(ranges);
    }

    void replace(Bytes const& bytes, std::uint64_t position)
    {
        bool const isThere = contains(position, bytes.size())
            && std::all_of(at(position), at(position + bytes.size()),
                [](Byte const& byte) { return byte.isKnown; });
        KXMD_REQUIRE(_data->replaceBytesAt(position, bytes) == isThere);
        if (isThere)
            note(bytes, position);
    }

    void replaceNumber(std::uint64_t position, std::uint32_t value)
    {
        Bytes bytes;
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
        bool const isThere = contains(position, 4)
            && std::all_of(
                at(position), at(position + 4), [](Byte const& byte) { return byte.isKnown; });
        KXMD_REQUIRE(_data->replaceUInt32AtWith(position, value) == isThere);
        if (isThere)
            note(bytes, position);
        std::uint32_t now;
        KXMD_REQUIRE(_data->readUInt32ToAt(now, position) == contains(position, 4));
        KXMD_REQUIRE(isThere ? now == value : contains(position, 4) || !now);
    }

    void note(Bytes const& bytes, std::uint64_t position)
    {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            Byte& byte = _row[position + i];
            byte.value = bytes[i];
            if (byte.origin)
                _overwritten.insert(*byte.origin);
        }
    }

    void read(std::uint64_t position, std::uint64_t length)
    {
        Bytes bytes(length);
        bool const isThere = contains(position, length);
        KXMD_REQUIRE(_data->readBytesToAt(bytes.data(), length, position) == isThere);
        KXMD_REQUIRE(!isThere
            || std::equal(bytes.begin(), bytes.end(), at(position),
                [](std::uint8_t value, Byte const& byte) { return value == byte.value; }));
        auto const* const inPlace = _data->bytesInPlaceAt(position, length);
        KXMD_REQUIRE(!inPlace || (isThere && std::equal(bytes.begin(), bytes.end(), inPlace)));
        if (length % 16 == 0)
            compareBytes();
    }

    KXMutableData::Ref const _data;
    std::vector<Byte> _row;
    std::set<std::uint64_t> _overwritten;
};

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    Choices choices(bytes, length);
    bool const isOverSource = choices.next<std::uint8_t>() % 2;
    Bytes original(choices.next<std::uint16_t>() % 2048);
    for (std::size_t i = 0; i < original.size(); ++i)
        original[i] = static_cast<std::uint8_t>(i * 31 + i / 256);
    Buffers buffers(original, isOverSource);
    for (int edits = 0; choices.areLeft() && edits < 64; ++edits) {
        buffers.editOnce(choices);
        buffers.compare();
    }
    buffers.compareBytes();
    buffers.compare();
    return 0;
}
