#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXFourCharacterCodePrivate.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// Reads the headers of one picture, or a part of them: never past its end, whatever follows it in
/// the file.
///
/// Copies read the same bytes, each from a position of its own. A read that fails moves nothing and
/// stores 0. Leaves the position of the reader below anywhere.
class KXPictureReader {
public:
    /// Over the next `length` bytes of `data`, all of which are there.
    KXPictureReader(KXAbstractData& data, std::uint64_t length)
        : KXPictureReader(data, data.offset(), length)
    {
    }

    /// The read position, counted from the first byte of the picture or part.
    std::uint64_t position() const { return _position; }
    /// How many bytes there are from the read position on.
    std::uint64_t remainingLength() const { return _length - _position; }

    /// Moves the read position; false, without moving, when it is past the end.
    [[nodiscard]] bool setPosition(std::uint64_t position)
    {
        if (position > _length)
            return false;
        _position = position;
        return true;
    }

    /// Moves past `count` bytes; false, without moving, when they are not there.
    [[nodiscard]] bool skipBytes(std::uint64_t count)
    {
        return count <= remainingLength() && setPosition(_position + count);
    }

    [[nodiscard]] bool readUInt8To(std::uint8_t& value)
    {
        value = 0;
        return canRead(sizeof value) && movePast(sizeof value, _data->readUInt8To(value));
    }
    [[nodiscard]] bool readUInt16To(std::uint16_t& value, KXSwap swap)
    {
        value = 0;
        return canRead(sizeof value) && movePast(sizeof value, _data->readUInt16To(value, swap));
    }
    [[nodiscard]] bool readUInt32To(std::uint32_t& value, KXSwap swap)
    {
        value = 0;
        return canRead(sizeof value) && movePast(sizeof value, _data->readUInt32To(value, swap));
    }

    [[nodiscard]] bool readCodeTo(KXFourCharacterCode& code)
    {
        std::uint32_t value;
        bool const isRead = readUInt32To(value, KXSwap::yes);
        code = KXFourCharacterCode(value);
        return isRead;
    }

    /// Copies as many bytes as `bytes` has, or none.
    [[nodiscard]] bool readBytesTo(std::span<std::uint8_t> bytes)
    {
        return canRead(bytes.size())
            && movePast(bytes.size(), _data->readBytesTo(bytes.data(), bytes.size()));
    }

    /// The next `length` bytes on their own; moves past them. Absent when they are not all there.
    [[nodiscard]] std::optional<KXPictureReader> readPart(std::uint64_t length)
    {
        KXPictureReader const part(*_data, _start + _position, length);
        return skipBytes(length) ? std::optional(part) : std::nullopt;
    }

    /// Takes a step of a walk from the budget; false when none is left. Every loop over what the
    /// file claims takes one.
    [[nodiscard]] bool takeStep() { return _data->budget().takeStep(); }

private:
    KXPictureReader(KXAbstractData& data, std::uint64_t start, std::uint64_t length)
        : _data(&data)
        , _start(start)
        , _length(length)
    {
    }

    /// Whether `count` bytes follow; if so, the reader below stands where they begin.
    bool canRead(std::uint64_t count)
    {
        if (count > remainingLength())
            return false;
        _data->setOffset(_start + _position);
        return true;
    }

    /// Moves past what has been read, if it has.
    bool movePast(std::uint64_t count, bool isRead)
    {
        _position += isRead ? count : 0;
        return isRead;
    }

    KXAbstractData* _data; // Not owned.
    std::uint64_t _start;
    std::uint64_t _length;
    std::uint64_t _position { 0 };
};
