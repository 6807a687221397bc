#pragma once

#include "kxmd/base/KXExport.h"

#include <cstdint>

/// What one parse may spend, since a small file can ask for endless work: by claims beyond what it
/// holds, and by bytes that are walked again and again.
///
/// The parsers draw from the budget of their reader; each parse of a whole file begins with a full
/// one. What is drawn never comes back.
class KX_EXPORT KXParseBudget {
public:
    /// `takeNode:` Takes one of the atoms or frames that may be kept. False when none is left, the
    /// first time with `message` logged.
    [[nodiscard]] bool takeNode(char const* message)
    {
        if (!_nodes) [[unlikely]]
            return refuseNode(message);
        --_nodes;
        return true;
    }

    /// `takeStep` Takes one step through the fillers or segments of a header, over at least
    /// one byte. False when none is left.
    [[nodiscard]] bool takeStep() { return take(_steps, 1); }

    /// `takeTextBytes:` Takes bytes of text. False when there are not as many left.
    [[nodiscard]] bool takeTextBytes(std::uint64_t count) { return take(_textBytes, count); }

    /// `textBytes` The bytes of text that are left.
    [[nodiscard]] std::uint64_t textBytes() const { return _textBytes; }
    /// `stepsLeft` The steps through headers that are left.
    [[nodiscard]] std::uint64_t stepsLeft() const { return _steps; }

private:
    static constexpr std::uint64_t million = 1ull << 20;

    static bool take(std::uint64_t& left, std::uint64_t count)
    {
        if (count > left)
            return false;
        left -= count;
        return true;
    }

    bool refuseNode(char const* message);

    std::uint64_t _nodes { million };
    std::uint64_t _steps { million };
    std::uint64_t _textBytes { 64 * million };
    bool _isReported { false };
};
