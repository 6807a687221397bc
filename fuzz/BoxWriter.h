#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

/// Writes the boxes of a movie one after the other and in each other: ISO/IEC 14496-12, 4.2.
class BoxWriter {
public:
    using Bytes = std::vector<std::uint8_t>;

protected:
    void store(std::uint64_t value, unsigned width, std::size_t position)
    {
        for (unsigned left = width; left; --left, value >>= 8)
            _file[position + left - 1] = static_cast<std::uint8_t>(value);
    }

    void number(std::uint64_t value, unsigned width)
    {
        _file.resize(_file.size() + width);
        store(value, width, _file.size() - width);
    }

    void text(std::string_view text) { _file.insert(_file.end(), text.begin(), text.end()); }
    void zeros(std::size_t count) { _file.resize(_file.size() + count); }

    /// Begins a box, whose size is written by `end`.
    std::size_t begin(std::string_view type, bool isLarge = false)
    {
        std::size_t const start = _file.size();
        number(isLarge, 4);
        text(type);
        if (isLarge)
            number(0, 8);
        return start;
    }

    void end(std::size_t start)
    {
        std::size_t const size = _file.size() - start;
        if (_file[start + 3] == 1)
            store(size, 8, start + 8);
        else
            store(size, 4, start);
    }

    void leaf(std::string_view type, unsigned length)
    {
        std::size_t const box = begin(type);
        zeros(length);
        end(box);
    }

    Bytes _file;
};
