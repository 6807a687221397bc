#include "kxmd/base/KXAbstractData.h"

#include "kxmd/base/KXFileDataPrivate.h"
#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/base/KXTextPrivate.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

namespace {

/// The position of the first whole zero unit in `bytes`, which begin on a unit; their size if none.
std::size_t positionOfTerminator(std::span<std::uint8_t const> bytes, std::size_t unitSize)
{
    if (unitSize == 1)
        return static_cast<std::size_t>(std::find(bytes.begin(), bytes.end(), 0) - bytes.begin());
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        if (!bytes[i] && !bytes[i + 1])
            return i;
    }
    return bytes.size();
}

}

KXAbstractData::Ref KXAbstractData::abstractDataWithPath(std::string const& path)
{
    return KXFileData::createWithPath(path);
}

KXAbstractData::Ref KXAbstractData::createWithPath(std::string const& path)
{
    return abstractDataWithPath(path);
}

KXAbstractData::Ref KXAbstractData::abstractDataWithData(KXData data)
{
    return std::make_shared<KXMemoryData>(std::move(data));
}

KXAbstractData::~KXAbstractData() = default;

bool KXAbstractData::readBytesTo(std::uint8_t* bytes, std::uint64_t length)
{
    if (length > remainingLength())
        return false;
    // Nothing is asked for, and the position may lie anywhere: the source never sees it.
    if (length && copyBytesAt(_offset, bytes, length) != length) {
        std::fill_n(
            bytes, length, std::uint8_t { 0 }); // Cut off meanwhile: no part of it is shown.
        return false;
    }
    _offset += length;
    return true;
}

std::uint64_t KXAbstractData::readBytesToMaxLength(std::uint8_t* bytes, std::uint64_t maxLength)
{
    std::uint64_t const wanted = std::min(maxLength, remainingLength());
    std::uint64_t const count = wanted ? copyBytesAt(_offset, bytes, wanted) : 0;
    _offset += count;
    return count;
}

std::optional<std::string> KXAbstractData::textOfNextBytes(
    std::uint64_t length, KXStringEncoding encoding)
{
    if (!length)
        return textFromBytes({}, encoding);
    if (length <= longestContiguousRead) {
        std::uint8_t const* const bytes = contiguousBytes(static_cast<std::size_t>(length));
        if (!bytes)
            return std::nullopt;
        return textFromBytes({ bytes, static_cast<std::size_t>(length) }, encoding);
    }
    if (length > remainingLength())
        return std::nullopt;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    if (copyBytesAt(_offset, bytes.data(), length) != length)
        return std::nullopt;
    return textFromBytes(bytes, encoding);
}

bool KXAbstractData::readStringTo(
    std::optional<std::string>& text, std::uint64_t length, KXStringEncoding encoding)
{
    text = textOfNextBytes(length, encoding);
    if (!text)
        return false;
    _offset += length;
    return true;
}

std::optional<std::uint64_t> KXAbstractData::lengthBeforeTerminator(
    std::uint64_t maxLength, KXStringEncoding encoding)
{
    std::size_t const unitSize = terminatorSizeForEncoding(encoding);
    std::uint64_t const start = _offset;
    std::uint64_t const limit = std::min(maxLength, remainingLength());
    std::optional<std::uint64_t> found;
    for (std::uint64_t searched = 0; searched < limit && !found;) {
        // An even step, so that every piece begins on a unit.
        auto const count = static_cast<std::size_t>(
            std::min<std::uint64_t>(limit - searched, longestContiguousRead));
        _offset = start + searched;
        std::uint8_t const* const bytes = contiguousBytes(count);
        if (!bytes)
            break;
        std::size_t const position = positionOfTerminator({ bytes, count }, unitSize);
        if (position < count)
            found = searched + position;
        searched += count;
    }
    _offset = start;
    return found;
}

bool KXAbstractData::readStringToZeroTerminationInto(
    std::optional<std::string>& text, std::uint64_t maxLength, KXStringEncoding encoding)
{
    text = std::nullopt;
    auto const length = lengthBeforeTerminator(maxLength, encoding);
    if (!length || !readStringTo(text, *length, encoding))
        return false;
    _offset += terminatorSizeForEncoding(encoding);
    return true;
}

bool KXAbstractData::readStringWithZeroTerminationTo(
    std::optional<std::string>& text, std::uint64_t length, KXStringEncoding encoding)
{
    text = std::nullopt;
    if (length > remainingLength())
        return false;
    auto const end = lengthBeforeTerminator(length, encoding);
    text = textOfNextBytes(end.value_or(length), encoding);
    if (!text)
        return false;
    _offset += length;
    return true;
}
