#pragma once

#include "support/Builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

/// A reader over bytes that says which of them were copied; at most `mostAtOnce` at a time.
class RecordingData final : public KXAbstractData {
public:
    struct Read {
        std::uint64_t position;
        std::uint64_t count;
        bool operator==(Read const&) const = default;
    };

    explicit RecordingData(
        build::Bytes bytes, std::uint64_t mostAtOnce = std::numeric_limits<std::uint64_t>::max())
        : _bytes(std::move(bytes))
        , _mostAtOnce(mostAtOnce)
    {
    }

    std::vector<Read> const& reads() const { return _reads; }
    std::uint64_t length() const override { return _bytes.size(); }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override
    {
        ADD_FAILURE() << "the file is not looked into";
        return nullptr;
    }

    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        _reads.push_back({ position, count });
        count = std::min(count, _mostAtOnce);
        std::copy_n(_bytes.data() + position, count, target);
        return count;
    }

    build::Bytes const _bytes;
    std::uint64_t const _mostAtOnce;
    std::vector<Read> _reads;
};
