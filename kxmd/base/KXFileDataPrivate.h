#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"

#include <array>
#include <memory>

/// A reader over a file, which it reads through a few small windows.
///
/// Positioned reads, not a memory map: a file that is cut off meanwhile then gives failed reads and
/// no signal. The first window is kept for good, since parsers come back to a file's head.
class KX_EXPORT KXFileData final : public KXAbstractData {
public:
    /// Null when `path` is not a regular file that can be opened.
    static Ref createWithPath(std::string const& path);

    KXFileData(int descriptor, std::uint64_t length);
    ~KXFileData() override;

    std::uint64_t length() const override { return _length; }

    /// The open file, which only positioned reads may be made of; this reader's.
    int descriptor() const { return _descriptor; }

private:
    struct Slot {
        std::unique_ptr<std::uint8_t[]> bytes;
        std::size_t capacity { 0 };
        std::uint64_t start { 0 };
        std::uint64_t length { 0 };
    };

    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) override;
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override;

    std::size_t lengthExpectedFrom(std::uint64_t position) const;
    std::size_t windowLengthAt(std::uint64_t position) const;
    Slot& nextSlot();
    Slot const* slotWith(std::uint64_t position, std::size_t count);
    Slot& readSlotAt(std::uint64_t position, std::size_t count);
    void noteReadError(std::error_code error);
    std::uint64_t readFile(std::uint64_t position, std::uint8_t* target, std::uint64_t count);

    int const _descriptor;
    std::uint64_t const _length;
    std::array<Slot, 8> _slots; ///< The first holds the first window; the others take turns.
    std::size_t _usedSlots { 0 };
    std::size_t _current { 0 };
};
