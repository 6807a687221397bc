#pragma once

#include "BoxWriter.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A box of a movie that holds no others. Of a table of chunk offsets only the size counts.
struct MovieLeaf {
    std::string path;
    std::vector<std::uint8_t> payload;

    auto operator<=>(MovieLeaf const&) const = default;
};

/// All leaves of a movie whose sizes nest, in the order of their paths. `entered` are the types of
/// the boxes that hold others, each within the one before it, or within itself's kind.
class MovieLeaves {
public:
    MovieLeaves(std::span<std::uint8_t const> file, std::span<std::string_view const> entered)
        : _file(file)
        , _entered(entered)
    {
        walk("", 0, file.size());
        std::ranges::sort(_leaves);
    }

    std::vector<MovieLeaf> const& all() const { return _leaves; }

private:
    std::uint64_t number(std::size_t position, unsigned width) const
    {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i)
            value = value << 8 | _file[position + i];
        return value;
    }

    void take(std::string path, std::size_t begin, std::size_t end)
    {
        if (path.ends_with("/stco") || path.ends_with("/co64") || path.ends_with("/iloc"))
            _leaves.push_back({ std::move(path), std::vector<std::uint8_t>(end - begin) });
        else
            _leaves.push_back({ std::move(path),
                { _file.begin() + static_cast<std::ptrdiff_t>(begin),
                    _file.begin() + static_cast<std::ptrdiff_t>(end) } });
    }

    void walk(std::string const& parent, std::size_t position, std::size_t end)
    {
        while (end - position >= 8) {
            std::uint64_t size = number(position, 4);
            std::size_t header = 8;
            if (size == 1 && end - position >= 16) {
                size = number(position + 8, 8);
                header = 16;
            }
            if (size < header || size > end - position)
                break;
            std::string const type(_file.begin() + static_cast<std::ptrdiff_t>(position) + 4,
                _file.begin() + static_cast<std::ptrdiff_t>(position) + 8);
            std::size_t const payload = position + header;
            position += size;
            if (std::ranges::find(_entered, type) == _entered.end())
                take(parent + '/' + type, payload, position);
            else
                walk(
                    parent + '/' + type, payload + versionBytes(type, payload, position), position);
        }
        if (position < end)
            take(parent + "/rest", position, end);
    }

    /// QuickTime's metadata has no version.
    std::size_t versionBytes(std::string_view type, std::size_t payload, std::size_t end) const
    {
        return type == "meta" && end - payload >= 4 && !number(payload, 4) ? 4 : 0;
    }

    std::span<std::uint8_t const> const _file;
    std::span<std::string_view const> const _entered;
    std::vector<MovieLeaf> _leaves;
};
