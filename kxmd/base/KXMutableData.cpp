#include "kxmd/base/KXMutableData.h"

#include "kxmd/base/KXAbstractData.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iterator>
#include <utility>

KXMutableData::KXMutableData(std::vector<std::uint8_t> bytes)
    : _length(bytes.size())
    , _row(std::move(bytes))
{
    if (_length)
        _pieces.push_back({ _length, 0, _row.data() });
}

KXMutableData::KXMutableData(std::shared_ptr<KXAbstractData> source)
    : _length(source->length())
    , _source(std::move(source))
{
    if (_length)
        _pieces.push_back({ _length, 0, nullptr });
}

bool KXMutableData::contains(std::uint64_t position, std::uint64_t length) const
{
    return position <= _length && length <= _length - position;
}

// Pieces.

/// The piece with the byte at `position`, which is there, or the place past the last one. Walks
/// from the piece that was asked for before: accesses follow each other.
KXMutableData::Place KXMutableData::placeOf(std::uint64_t position) const
{
    Place place = _lastPlace; // Edits leave it right, since they change no piece before it.
    while (place.start > position)
        place.start -= _pieces[--place.index].length;
    while (place.index < _pieces.size() && position - place.start >= _pieces[place.index].length)
        place.start += _pieces[place.index++].length;
    return _lastPlace = place;
}

/// Makes a piece begin at `position`, and returns its index.
std::size_t KXMutableData::splitAt(std::uint64_t position)
{
    auto const [index, start] = placeOf(position);
    std::uint64_t const into = position - start;
    if (!into)
        return index;
    Piece const rest = partOf(_pieces[index], into, _pieces[index].length - into);
    _pieces.insert(std::next(_pieces.begin(), static_cast<std::ptrdiff_t>(index) + 1), rest);
    _pieces[index].length = into;
    return index + 1;
}

void KXMutableData::insertPieceAt(Piece const& piece, std::uint64_t position)
{
    std::size_t const index = splitAt(position);
    _pieces.insert(std::next(_pieces.begin(), static_cast<std::ptrdiff_t>(index)), piece);
    _length += piece.length;
}

/// Copies `count` bytes of a piece, from its byte `into` on.
bool KXMutableData::copyFrom(
    Piece const& piece, std::uint64_t into, std::uint8_t* target, std::uint64_t count) const
{
    if (piece.bytes) {
        std::copy_n(piece.bytes + into, count, target);
        return true;
    }
    if (piece.origin == none) {
        std::fill_n(target, count, std::uint8_t { 0xFF });
        return true;
    }
    _source->setOffset(piece.origin + into);
    return _source->readBytesTo(target, count);
}

/// Brings at least the first of the `wanted` bytes from `position` on into memory, so that it can
/// be overwritten.
bool KXMutableData::loadPieceAt(std::uint64_t position, std::uint64_t wanted)
{
    auto const [index, start] = placeOf(position);
    Piece const piece = _pieces[index];
    if (piece.bytes || piece.origin == none)
        return piece.bytes;
    // Tables are overwritten entry by entry: what follows bytes that were brought in before is
    // brought in with twice as many.
    constexpr std::uint64_t most = 64 * 1024;
    if (position == start && index && _pieces[index - 1].bytes)
        wanted = std::max(wanted, std::min(2 * _pieces[index - 1].length, most));
    std::uint64_t const into = position - start;
    std::uint64_t const count = std::min(wanted, piece.length - into);
    auto block = std::make_unique_for_overwrite<std::uint8_t[]>(count);
    if (!copyFrom(piece, into, block.get(), count))
        return false;
    _blocks.push_back(std::move(block));
    splitAt(position + count);
    _pieces[splitAt(position)].bytes = _blocks.back().get();
    return true;
}

/// `length` bytes of a piece, from its byte `into` on.
KXMutableData::Piece KXMutableData::partOf(
    Piece const& piece, std::uint64_t into, std::uint64_t length)
{
    return { length, piece.origin == none ? none : piece.origin + into,
        piece.bytes ? piece.bytes + into : nullptr };
}

// Reading.

bool KXMutableData::readBytesToAt(
    std::uint8_t* bytes, std::uint64_t length, std::uint64_t position) const
{
    if (!contains(position, length))
        return false;
    while (length) {
        auto const [index, start] = placeOf(position);
        std::uint64_t const into = position - start;
        std::uint64_t const count = std::min(length, _pieces[index].length - into);
        if (!copyFrom(_pieces[index], into, bytes, count))
            return false;
        bytes += count;
        position += count;
        length -= count;
    }
    return true;
}

std::uint8_t const* KXMutableData::bytesInPlaceAt(
    std::uint64_t position, std::uint64_t length) const
{
    if (!contains(position, length) || position == _length)
        return nullptr;
    auto const [index, start] = placeOf(position);
    Piece const& piece = _pieces[index];
    std::uint64_t const into = position - start;
    return piece.bytes && length <= piece.length - into ? piece.bytes + into : nullptr;
}

bool KXMutableData::readUInt32ToAt(std::uint32_t& value, std::uint64_t position) const
{
    value = 0;
    std::uint32_t stored;
    if (!readBytesToAt(reinterpret_cast<std::uint8_t*>(&stored), sizeof stored, position))
        return false;
    value = __builtin_bswap32(stored);
    return true;
}

// Edits.

bool KXMutableData::insertBytesAt(std::span<std::uint8_t const> bytes, std::uint64_t position)
{
    if (!contains(position, 0))
        return false;
    if (bytes.empty())
        return true;
    auto block = std::make_unique_for_overwrite<std::uint8_t[]>(bytes.size());
    std::ranges::copy(bytes, block.get());
    _blocks.push_back(std::move(block));
    insertPieceAt({ bytes.size(), none, _blocks.back().get() }, position);
    return true;
}

bool KXMutableData::insertUnknownBytesAt(std::uint64_t count, std::uint64_t position)
{
    if (!contains(position, 0))
        return false;
    if (count)
        insertPieceAt({ count, none, nullptr }, position);
    return true;
}

bool KXMutableData::removeBytesAt(std::uint64_t position, std::uint64_t length)
{
    Range const range { position, length };
    return removeRanges(std::span(&range, 1));
}

bool KXMutableData::removeRanges(std::span<Range const> ranges)
{
    std::uint64_t end = 0, removed = 0;
    for (Range const& range : ranges) {
        if (range.position < end || !contains(range.position, range.length))
            return false;
        end = range.position + range.length;
        removed += range.length;
    }
    if (!removed)
        return true;
    std::vector<Piece> kept;
    kept.reserve(_pieces.size() + ranges.size());
    std::uint64_t start = 0;
    auto range = ranges.begin();
    for (Piece const& piece : _pieces) {
        std::uint64_t const pieceEnd = start + piece.length;
        std::uint64_t keptFrom = start;
        for (; range != ranges.end() && range->position < pieceEnd; ++range) {
            if (range->position > keptFrom)
                kept.push_back(partOf(piece, keptFrom - start, range->position - keptFrom));
            keptFrom = std::max(keptFrom, range->position + range->length);
            if (keptFrom > pieceEnd)
                break; // The range continues in the next piece.
        }
        if (keptFrom < pieceEnd)
            kept.push_back(partOf(piece, keptFrom - start, pieceEnd - keptFrom));
        start = pieceEnd;
    }
    _pieces.swap(kept);
    _length -= removed;
    _lastPlace = {};
    return true;
}

bool KXMutableData::replaceUInt32AtWith(std::uint64_t position, std::uint32_t value)
{
    std::uint32_t const stored = __builtin_bswap32(value);
    std::array<std::uint8_t, sizeof stored> bytes;
    std::memcpy(bytes.data(), &stored, sizeof stored);
    return replaceBytesAt(position, bytes);
}

bool KXMutableData::replaceBytesAt(std::uint64_t position, std::span<std::uint8_t const> bytes)
{
    if (!contains(position, bytes.size()))
        return false;
    std::uint64_t const end = position + bytes.size();
    for (std::uint64_t at = position; at < end;) {
        if (!loadPieceAt(at, end - at))
            return false;
        auto const [index, start] = placeOf(at);
        at = start + _pieces[index].length;
    }
    while (!bytes.empty()) {
        auto const [index, start] = placeOf(position);
        Piece const& piece = _pieces[index];
        std::uint64_t const into = position - start;
        std::uint64_t const count = std::min<std::uint64_t>(bytes.size(), piece.length - into);
        std::copy_n(bytes.data(), count, piece.bytes + into);
        if (piece.origin != none)
            noteOverwritten(piece.origin + into, count);
        bytes = bytes.subspan(count);
        position += count;
    }
    return true;
}

void KXMutableData::noteOverwritten(std::uint64_t origin, std::uint64_t length)
{
    if (!_overwritten.empty()
        && _overwritten.back().position + _overwritten.back().length == origin)
        _overwritten.back().length += length;
    else
        _overwritten.push_back({ origin, length });
}

std::vector<KXMutableData::Kept> KXMutableData::keptBytes() const
{
    std::vector<Kept> all;
    std::uint64_t position = 0;
    for (Piece const& piece : _pieces) {
        bool const goesOn = !all.empty() && all.back().position + all.back().length == position
            && all.back().origin + all.back().length == piece.origin;
        if (goesOn)
            all.back().length += piece.length;
        else if (piece.origin != none)
            all.push_back({ piece.origin, position, piece.length });
        position += piece.length;
    }
    return all;
}

// One row.

std::span<std::uint8_t const> KXMutableData::bytes() const
{
    if (!isInOneRow()) {
        if (!_source && _length <= _row.capacity())
            moveWithinRow();
        else if (!copyToNewRow())
            return {};
    }
    return _row;
}

bool KXMutableData::isInOneRow() const
{
    if (_row.size() != _length)
        return false; // Places past a shorter row could not even be told.
    std::uint8_t const* next = _row.data();
    return std::ranges::all_of(_pieces, [&next](Piece const& piece) {
        bool const isNext = piece.bytes == next;
        next += piece.length;
        return isNext;
    });
}

/// Puts all bytes into the row that holds most of them already: one pass, and no second buffer. The
/// pieces in the row are in order. Those that move towards its end are moved first, from the back;
/// then all others are put into their places, from the front. So none is overwritten before it has
/// moved.
void KXMutableData::moveWithinRow() const
{
    std::uint8_t const* const oldEnd = _row.data() + _row.size();
    _row.resize(std::max<std::uint64_t>(_row.size(), _length));
    auto const isInRow = [this, oldEnd](Piece const& piece) {
        return piece.bytes && !std::less()(piece.bytes, _row.data())
            && std::less()(piece.bytes, oldEnd);
    };
    std::uint8_t* target = _row.data() + _length;
    for (auto piece = _pieces.rbegin(); piece != _pieces.rend(); ++piece) {
        target -= piece->length;
        if (isInRow(*piece) && piece->bytes < target) {
            std::memmove(target, piece->bytes, piece->length);
            piece->bytes = target;
        }
    }
    for (Piece& piece : _pieces) {
        if (piece.bytes != target) {
            static_cast<void>(copyFrom(piece, 0, target, piece.length));
            piece.bytes = target;
        }
        target += piece.length;
    }
    _row.resize(_length);
    _blocks.clear();
}

/// The same in a new row; false, with nothing changed, when some bytes cannot be read.
bool KXMutableData::copyToNewRow() const
{
    std::vector<std::uint8_t> row(_length);
    std::uint8_t* target = row.data();
    for (Piece const& piece : _pieces) {
        if (!copyFrom(piece, 0, target, piece.length))
            return false;
        target += piece.length;
    }
    _row.swap(row);
    target = _row.data();
    for (Piece& piece : _pieces) {
        piece.bytes = target;
        target += piece.length;
    }
    _blocks.clear();
    return true;
}
