#include "kxmd/mp4/KXMP4TextFieldPrivate.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>
#include <string>

namespace {

/// The characters up to the first zero; those outside of ASCII are told apart from nothing only.
std::string charactersOf(std::span<std::uint8_t const> bytes, KXMP4TextKind kind)
{
    bool const hasMark = bytes.size() >= 2
        && ((bytes[0] == 0xFE && bytes[1] == 0xFF) || (bytes[0] == 0xFF && bytes[1] == 0xFE));
    bool const isLittle = hasMark && bytes[0] == 0xFF;
    bool const isWide = hasMark || kind == KXMP4TextKind::utf16;
    if (hasMark)
        bytes = bytes.subspan(2);
    std::string characters;
    std::size_t const width = isWide ? 2 : 1;
    for (; bytes.size() >= width; bytes = bytes.subspan(width)) {
        unsigned const first = bytes[0], second = isWide ? bytes[1] : 0;
        unsigned const unit = !isWide ? first
            : isLittle                ? second << 8 | first
                                      : first << 8 | second;
        if (!unit)
            break;
        constexpr unsigned afterASCII = 0x7F;
        characters += static_cast<char>(std::min(unit, afterASCII));
    }
    return characters;
}

/// Reads what lies between two positions, as much of it as `bytes` holds; that part of `bytes`.
std::span<std::uint8_t const> bytesBetween(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end, std::span<std::uint8_t> bytes)
{
    if (position >= end)
        return {};
    data.setOffset(position);
    return bytes.first(data.readBytesToMaxLength(
        bytes.data(), std::min<std::uint64_t>(end - position, bytes.size())));
}

}

bool isDescriptiveText(
    KXAbstractData& data, std::uint64_t position, std::uint64_t end, KXMP4TextKind kind)
{
    // Phones call themselves the author of what was on their screen.
    constexpr std::string_view authorOfScreen = "ReplayKitRecording";
    std::array<std::uint8_t, 256> bytes;
    std::string const characters = charactersOf(bytesBetween(data, position, end, bytes), kind);
    auto const isVisible = [](char character) { return character > ' '; };
    return std::ranges::any_of(characters, isVisible) && characters != authorOfScreen;
}

bool hasNumberOtherThanZero(KXAbstractData& data, std::uint64_t position, std::uint64_t end)
{
    std::array<std::uint8_t, 8> bytes;
    return std::ranges::any_of(bytesBetween(data, position, end, bytes), std::identity());
}
