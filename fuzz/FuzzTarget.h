#pragma once

#include "kxmd/base/KXLog.h"
#include "kxmd/base/KXMutableAbstractData.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length);

/// Ends the program when a promise is broken, so that the fuzzer keeps the input.
#define KXMD_REQUIRE(condition)                                                                    \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);           \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

inline KXAbstractData::Ref immutableReader(std::uint8_t const* bytes, std::size_t length)
{
    return KXAbstractData::abstractDataWithData(
        KXData(std::vector<std::uint8_t>(bytes, bytes + length)));
}

inline KXAbstractData::Ref mutableReader(std::uint8_t const* bytes, std::size_t length)
{
    return KXMutableAbstractData::abstractDataWithData(
        std::make_shared<KXMutableData>(std::vector<std::uint8_t>(bytes, bytes + length)));
}

/// Log lines would only slow the fuzzer down.
inline void silenceLog()
{
    [[maybe_unused]] static bool const silenced = [] {
        KXSetLogSink(nullptr);
        return true;
    }();
}
