#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

/// Numbers that the fuzzer chooses: those of its bytes, and then zeros.
class Choices {
public:
    Choices(std::uint8_t const* bytes, std::size_t length)
        : _next(bytes)
        , _left(length)
    {
    }

    bool areLeft() const { return _left; }

    /// All bytes that no number was made of yet.
    std::span<std::uint8_t const> rest() const { return { _next, _left }; }

    template <class Number> Number next()
    {
        Number number {};
        std::size_t const count = std::min(_left, sizeof number);
        if (count)
            std::memcpy(&number, _next, count);
        _next += count;
        _left -= count;
        return number;
    }

private:
    std::uint8_t const* _next;
    std::size_t _left;
};
