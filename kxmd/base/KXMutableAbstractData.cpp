#include "kxmd/base/KXMutableAbstractData.h"

#include <utility>

KXMutableAbstractData::KXMutableAbstractData(KXMutableData::Ref data)
    : _data(std::move(data))
{
}

KXMutableAbstractData::Ref KXMutableAbstractData::abstractDataWithData(KXMutableData::Ref data)
{
    return data ? Ref(new KXMutableAbstractData(std::move(data))) : nullptr;
}

std::uint64_t KXMutableAbstractData::length() const { return _data->length(); }

std::uint8_t const* KXMutableAbstractData::bytesAt(std::uint64_t position, std::size_t count)
{
    if (auto const* const inPlace = _data->bytesInPlaceAt(position, count))
        return inPlace;
    return _data->readBytesToAt(_gathered.data(), count, position) ? _gathered.data() : nullptr;
}

std::uint64_t KXMutableAbstractData::copyBytesAt(
    std::uint64_t position, std::uint8_t* target, std::uint64_t count)
{
    return _data->readBytesToAt(target, count, position) ? count : 0;
}
