#pragma once

#include "kxmd/base/KXAbstractData.h"

#include <array>

/// A reader over a mutable byte buffer. After an edit of the buffer a fresh reader is made over it;
/// an old one stays safe and reads the edited bytes.
class KX_EXPORT KXMutableAbstractData final : public KXAbstractData {
public:
    /// A shared reader; null where there is none.
    using Ref = std::shared_ptr<KXMutableAbstractData>;

    /// `abstractDataWithData:` A reader over `data`, which it shares and does not copy; null
    /// without one.
    [[nodiscard]] static Ref abstractDataWithData(KXMutableData::Ref data);

    /// `mutableData` The very buffer that the reader was made over.
    [[nodiscard]] KXMutableData::Ref const& mutableData() const { return _data; }

    [[nodiscard]] std::uint64_t length() const override;

private:
    explicit KXMutableAbstractData(KXMutableData::Ref data);
    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) override;
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override;

    KXMutableData::Ref const _data;
    std::array<std::uint8_t, longestContiguousRead> _gathered; // Bytes that do not lie in one row.
};
