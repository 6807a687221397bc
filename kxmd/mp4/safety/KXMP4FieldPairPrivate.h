#pragma once

#include "kxmd/mp4/safety/KXMP4FieldCursorPrivate.h"

#include <algorithm>
#include <cstdint>

/// A place or a number in a file before its edits, and its counterpart after them.
struct KXMP4Pair {
    std::uint64_t before { 0 };
    std::uint64_t after { 0 };

    bool isEqual() const { return before == after; }
    KXMP4Pair operator+(KXMP4Pair const& other) const
    {
        return { before + other.before, after + other.after };
    }
    KXMP4Pair operator+(std::uint64_t number) const { return { before + number, after + number }; }
    KXMP4Pair operator-(KXMP4Pair const& other) const
    {
        return { before - other.before, after - other.after };
    }
};

/// Reads the same fields of a file before its edits and after them.
class KXMP4FieldPair {
public:
    KXMP4FieldPair(KXMP4FieldCursor before, KXMP4FieldCursor after)
        : _before(before)
        , _after(after)
    {
    }

    KXMP4Pair position() const { return { _before.position(), _after.position() }; }
    std::uint64_t bytesLeft() const { return std::min(_before.bytesLeft(), _after.bytesLeft()); }
    bool isGood() const { return _before.isGood() && _after.isGood(); }

    void skip(std::uint64_t count)
    {
        _before.skip(count);
        _after.skip(count);
    }

    KXMP4Pair number(unsigned width) { return { _before.number(width), _after.number(width) }; }

private:
    KXMP4FieldCursor _before;
    KXMP4FieldCursor _after;
};
