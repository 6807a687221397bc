#include "kxmd/host/KXData.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>

KXData::KXData()
    : KXData(std::vector<std::uint8_t> {})
{
}

KXData::KXData(std::vector<std::uint8_t> bytes)
    : _bytes(std::make_shared<std::vector<std::uint8_t> const>(std::move(bytes)))
{
}

KXMutableData::KXMutableData(std::vector<std::uint8_t> bytes)
    : _bytes(std::move(bytes))
{
}

bool KXMutableData::contains(std::uint64_t position, std::uint64_t length) const
{
    return position <= _bytes.size() && length <= _bytes.size() - position;
}

bool KXMutableData::insertBytesAt(std::span<std::uint8_t const> bytes, std::uint64_t position)
{
    if (!contains(position, 0))
        return false;
    auto const place = std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position));
    if (_bytes.capacity() - _bytes.size() >= bytes.size()) {
        _bytes.insert(place, bytes.begin(), bytes.end());
        return true;
    }
    // A vector that grows by itself takes up to twice what it needs; files are large.
    std::vector<std::uint8_t> grown;
    grown.reserve(_bytes.size() + bytes.size());
    grown.insert(grown.end(), _bytes.begin(), place);
    grown.insert(grown.end(), bytes.begin(), bytes.end());
    grown.insert(grown.end(), place, _bytes.end());
    _bytes.swap(grown);
    return true;
}

bool KXMutableData::removeBytesAt(std::uint64_t position, std::uint64_t length)
{
    if (!contains(position, length))
        return false;
    auto const first = std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position));
    _bytes.erase(first, std::next(first, static_cast<std::ptrdiff_t>(length)));
    return true;
}

bool KXMutableData::removeRanges(std::span<Range const> ranges)
{
    std::uint64_t end = 0;
    for (Range const& range : ranges) {
        if (range.position < end || !contains(range.position, range.length))
            return false;
        end = range.position + range.length;
    }
    if (ranges.empty())
        return true;
    auto const at = [this](std::uint64_t position) {
        return std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position));
    };
    auto kept = at(ranges.front().position);
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        std::uint64_t const next = i + 1 < ranges.size() ? ranges[i + 1].position : length();
        kept = std::copy(at(ranges[i].position + ranges[i].length), at(next), kept);
    }
    _bytes.erase(kept, _bytes.end());
    return true;
}

bool KXMutableData::readUInt32ToAt(std::uint32_t& value, std::uint64_t position) const
{
    value = 0;
    if (!contains(position, sizeof value))
        return false;
    std::memcpy(&value, _bytes.data() + position, sizeof value);
    value = __builtin_bswap32(value);
    return true;
}

bool KXMutableData::replaceUInt32AtWith(std::uint64_t position, std::uint32_t value)
{
    if (!contains(position, sizeof value))
        return false;
    value = __builtin_bswap32(value);
    std::memcpy(_bytes.data() + position, &value, sizeof value);
    return true;
}

bool KXMutableData::replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes)
{
    if (!contains(position, bytes.size()))
        return false;
    std::copy(bytes.begin(), bytes.end(),
        std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position)));
    return true;
}
