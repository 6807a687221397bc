#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXMutableData.h"
#include "kxmd/base/KXParseBudget.h"
#include "kxmd/base/KXStringEncoding.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

static_assert(std::endian::native == std::endian::little,
    "the reader and the sync-safe sizes of ID3v2 assume a little-endian machine");

/// The byte order of a stored number.
enum class KXSwap : bool {
    no, ///< Least significant byte first: taken as it lies in memory.
    yes, ///< Most significant byte first (big-endian).
};

/// A random-access reader over a file or a byte buffer, with one read position.
///
/// A read starts at `offset` and moves it past what was read. A read that fails (not enough bytes,
/// or bytes that the encoding cannot decode) returns false, leaves `offset` where it was and stores
/// 0 or null into its target; several walks end on that zero. Nothing is allocated before the bytes
/// are known to be there. One thread at a time; no lock.
class KX_EXPORT KXAbstractData {
public:
    /// A shared reader; null where there is none.
    using Ref = std::shared_ptr<KXAbstractData>;

    /// `abstractDataWithPath:` A reader over the regular file at `path`.
    ///
    /// Null when the file cannot be opened or is not a regular file (a folder, FIFO or device would
    /// block or never end). The file is read in small windows as reads ask for them, so one that
    /// shrinks meanwhile gives failed reads; it is closed with the reader.
    [[nodiscard]] static Ref abstractDataWithPath(std::string const& path);

    /// `initWithPath:` The same as `abstractDataWithPath:`.
    [[nodiscard]] static Ref createWithPath(std::string const& path);

    /// `abstractDataWithData:` A reader over an immutable byte buffer, which it shares.
    [[nodiscard]] static Ref abstractDataWithData(KXData data);

    virtual ~KXAbstractData();
    KXAbstractData(KXAbstractData const&) = delete;
    KXAbstractData& operator=(KXAbstractData const&) = delete;

    /// `length` The number of bytes. Of a file: its size when the reader was made.
    [[nodiscard]] virtual std::uint64_t length() const = 0;

    /// `offset` The read position, in bytes from the start; 0 in a new reader.
    [[nodiscard]] std::uint64_t offset() const { return _offset; }

    /// `setOffset:` Moves the read position. Any value is taken; reads at or past `length` fail.
    void setOffset(std::uint64_t offset) { _offset = offset; }

    /// `remainingLength` The number of bytes from `offset` to the end; 0 past it.
    [[nodiscard]] std::uint64_t remainingLength() const
    {
        std::uint64_t const total = length();
        return _offset < total ? total - _offset : 0;
    }

    /// `readUInt32To:swap:` Reads four bytes as an unsigned number.
    [[nodiscard]] bool readUInt32To(std::uint32_t& value, KXSwap swap)
    {
        bool const done = readIntegerTo(value);
        if (swap == KXSwap::yes)
            value = __builtin_bswap32(value);
        return done;
    }

    /// `readUInt16To:swap:` Reads two bytes as an unsigned number.
    [[nodiscard]] bool readUInt16To(std::uint16_t& value, KXSwap swap)
    {
        bool const done = readIntegerTo(value);
        if (swap == KXSwap::yes)
            value = __builtin_bswap16(value);
        return done;
    }

    /// `readUInt8To:` Reads one byte.
    [[nodiscard]] bool readUInt8To(std::uint8_t& value) { return readIntegerTo(value); }

    /// `readUInt32OrZero:` The next four bytes as a number; 0, without moving, when they are not
    /// there.
    [[nodiscard]] std::uint32_t readUInt32OrZero(KXSwap swap)
    {
        std::uint32_t value;
        return readUInt32To(value, swap) ? value : 0;
    }

    /// `readUInt16OrZero:` The next two bytes as a number; 0, without moving, when they are not
    /// there.
    [[nodiscard]] std::uint16_t readUInt16OrZero(KXSwap swap)
    {
        std::uint16_t value;
        return readUInt16To(value, swap) ? value : std::uint16_t { 0 };
    }

    /// `readUInt8OrZero` The next byte; 0, without moving, when there is none.
    [[nodiscard]] std::uint8_t readUInt8OrZero()
    {
        std::uint8_t value;
        return readUInt8To(value) ? value : std::uint8_t { 0 };
    }

    /// `expectReadsFrom:length:` Says that a stretch of the source is about to be gone through, so
    /// that a reader over a file may bring in more of it at once. Changes no answer.
    void expectReadsFrom(std::uint64_t start, std::uint64_t length)
    {
        _expected = { .start = start, .length = length };
    }

    /// `skipBytes:` Moves the read position `count` bytes on, past the end as well.
    void skipBytes(std::uint64_t count) { _offset += count; }

    /// `readBytesTo:length:` Copies exactly `length` bytes to `bytes`, or none: when fewer can be
    /// read, `bytes` holds nothing of the file.
    [[nodiscard]] bool readBytesTo(std::uint8_t* bytes, std::uint64_t length);

    /// `readBytesTo:maxLength:` Copies up to `maxLength` bytes to `bytes`; returns how many, 0 at
    /// the end.
    [[nodiscard]] std::uint64_t readBytesToMaxLength(std::uint8_t* bytes, std::uint64_t maxLength);

    /// `readStringTo:length:encoding:` Decodes exactly `length` bytes; zeros among them are kept.
    [[nodiscard]] bool readStringTo(
        std::optional<std::string>& text, std::uint64_t length, KXStringEncoding encoding);

    /// `readStringToZeroTerminationInto:maxLength:encoding:` Decodes up to the first terminator.
    ///
    /// The terminator is a zero byte, for UTF-16 a zero 16-bit unit counted from the read position.
    /// Fails when none lies whole within the next `maxLength` bytes. Stops just after it.
    [[nodiscard]] bool readStringToZeroTerminationInto(
        std::optional<std::string>& text, std::uint64_t maxLength, KXStringEncoding encoding);

    /// `readStringWithZeroTerminationTo:length:encoding:` Decodes a field of exactly `length` bytes
    /// up to its first terminator, or whole when it has none. Stops after the field.
    [[nodiscard]] bool readStringWithZeroTerminationTo(
        std::optional<std::string>& text, std::uint64_t length, KXStringEncoding encoding);

    /// `readError` The system's reason for the first read that it refused, as for a disk that is
    /// damaged or was taken out; none while it refused none.
    ///
    /// Tells a file that ends early, or is no media, from one that nobody can read: what was found
    /// in the latter may be wrong or incomplete.
    [[nodiscard]] std::error_code readError() const { return _readError; }

    /// `budget` What the parse that this reader serves may still spend.
    [[nodiscard]] KXParseBudget& budget() { return _budget; }

protected:
    /// A reader at position 0, for classes derived from it.
    KXAbstractData() = default;

    /// A stretch of the source that lies in memory, at `start` of the source.
    struct Window {
        std::uint8_t const* bytes { nullptr }; ///< Its first byte; not owned.
        std::uint64_t start { 0 }; ///< Its place in the source.
        std::uint64_t length { 0 }; ///< In bytes.
    };

    /// The most bytes that `bytesAt` is asked for at once.
    static constexpr std::size_t longestContiguousRead = 1024;

    /// A stretch of the source.
    struct Stretch {
        std::uint64_t start { 0 }; ///< Its place in the source.
        std::uint64_t length { 0 }; ///< In bytes.
    };

    /// What is about to be gone through, as far as anybody said.
    [[nodiscard]] Stretch expected() const { return _expected; }

    /// Reads inside this stretch touch nothing else.
    void setWindow(Window window) { _window = window; }

    /// Remembers why the system refused a read, unless there is an earlier reason.
    void keepReadError(std::error_code error)
    {
        if (!_readError)
            _readError = error;
    }

private:
    /// The `count` bytes at `position`, which the source holds, in one piece; null when they cannot
    /// be read. `count` is at most `longestContiguousRead`. Valid until the next call.
    virtual std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) = 0;

    /// Copies the bytes at `position`, which the source holds; returns how many could be read.
    virtual std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count)
        = 0;

    std::uint8_t const* contiguousBytes(std::size_t count)
    {
        std::uint64_t const into = _offset - _window.start; // Wraps past any length when before it.
        if (into <= _window.length && count <= _window.length - into) [[likely]]
            return _window.bytes + into;
        return count <= remainingLength() ? bytesAt(_offset, count) : nullptr;
    }

    template <class Integer> bool readIntegerTo(Integer& value)
    {
        std::uint8_t const* const bytes = contiguousBytes(sizeof value);
        if (!bytes) {
            value = 0;
            return false;
        }
        std::memcpy(&value, bytes, sizeof value);
        _offset += sizeof value;
        return true;
    }

    std::optional<std::string> textOfNextBytes(std::uint64_t length, KXStringEncoding encoding);
    std::optional<std::uint64_t> lengthBeforeTerminator(
        std::uint64_t maxLength, KXStringEncoding encoding);

    Window _window;
    Stretch _expected;
    std::uint64_t _offset { 0 };
    KXParseBudget _budget;
    std::error_code _readError;
};
