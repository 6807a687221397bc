#include "kxmd/host/KXData.h"

#include <algorithm>
#include <cstddef>
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
    _bytes.insert(std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position)), bytes.begin(),
        bytes.end());
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

bool KXMutableData::replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes)
{
    if (!contains(position, bytes.size()))
        return false;
    std::copy(bytes.begin(), bytes.end(),
        std::next(_bytes.begin(), static_cast<std::ptrdiff_t>(position)));
    return true;
}
