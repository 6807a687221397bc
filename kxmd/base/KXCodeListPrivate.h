#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Nine bits that tell most codes of four bytes apart (Fibonacci hashing).
constexpr std::size_t hashOfCode(std::uint32_t code) { return code * 2654435761u >> 23; }
constexpr std::size_t noOfCodeHashes = 512;

/// A set of character codes, written as one comma-separated text.
///
/// Membership is a substring search in that text, so a code that straddles a comma also belongs:
/// "264," belongs to "h264,H264". Deliberate.
class KXCodeList {
public:
    consteval explicit KXCodeList(std::string_view codes)
        : _codes(codes)
    {
        for (std::size_t i = 0; i + windowLength <= codes.size(); ++i)
            markWindow(hashOfWindow(codes.substr(i)));
    }

    /// `contains:` Whether `code`, zero bytes included, stands anywhere in the text. An empty one
    /// does not.
    constexpr bool contains(std::string_view code) const
    {
        // Nearly every code of a file is in no list: one look at the marks answers for those.
        if (code.size() >= windowLength && !isMarked(hashOfWindow(code)))
            return false;
        return !code.empty() && _codes.find(code) != std::string_view::npos;
    }

    /// `codes` The text that the set was written as.
    constexpr std::string_view codes() const { return _codes; }

private:
    static constexpr std::size_t windowLength = 4;
    static constexpr std::size_t bitsPerWord = 64;

    static constexpr std::size_t hashOfWindow(std::string_view text)
    {
        std::uint32_t window = 0;
        for (std::size_t i = 0; i < windowLength; ++i)
            window = window << 8 | static_cast<std::uint8_t>(text[i]);
        return hashOfCode(window);
    }

    consteval void markWindow(std::size_t hash)
    {
        _marks[hash / bitsPerWord] |= std::uint64_t { 1 } << hash % bitsPerWord;
    }

    constexpr bool isMarked(std::size_t hash) const
    {
        return _marks[hash / bitsPerWord] >> hash % bitsPerWord & 1;
    }

    std::string_view _codes;
    std::array<std::uint64_t, noOfCodeHashes / bitsPerWord> _marks {};
};
