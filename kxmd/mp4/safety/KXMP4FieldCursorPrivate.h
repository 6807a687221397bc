#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <cstdint>

/// Reads big-endian numbers one after another, none past an end.
class KXMP4FieldCursor {
public:
    KXMP4FieldCursor(KXAbstractData& data, std::uint64_t position, std::uint64_t end)
        : _data(data)
        , _position(position)
        , _end(end)
    {
    }

    std::uint64_t position() const { return _position; }
    std::uint64_t bytesLeft() const { return _position < _end ? _end - _position : 0; }
    /// Whether every number so far was there.
    bool isGood() const { return _isGood; }

    void skip(std::uint64_t count) { _position += count; }

    /// The next `width` bytes as a number, at most 8; 0 when there are not as many.
    std::uint64_t number(unsigned width)
    {
        std::uint64_t value = 0;
        if (width > bytesLeft())
            _isGood = false;
        _data.setOffset(_position);
        for (unsigned left = width; left && _isGood;) {
            std::uint32_t word = 0;
            std::uint8_t byte = 0;
            bool const isWord = left >= sizeof word;
            _isGood = isWord ? _data.readUInt32To(word, KXSwap::yes) : _data.readUInt8To(byte);
            value = isWord ? value << 32 | word : value << 8 | byte;
            left -= isWord ? 4 : 1;
        }
        _position += width;
        return value;
    }

private:
    KXAbstractData& _data;
    std::uint64_t _position;
    std::uint64_t _end;
    bool _isGood { true };
};
