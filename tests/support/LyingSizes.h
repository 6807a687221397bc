#pragma once

#include "support/Builders.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

/// Shows `check` a file with each of these sizes in place of each four bytes in turn, and tells it
/// where and which.
template <class Check>
void forEachLyingSize(
    build::Bytes const& file, std::initializer_list<std::uint32_t> sizes, Check check)
{
    for (std::size_t at = 0; at + 4 <= file.size(); ++at) {
        for (std::uint32_t const size : sizes) {
            build::Bytes changed = file;
            auto const claim = build::u32(size);
            std::ranges::copy(claim, changed.begin() + static_cast<std::ptrdiff_t>(at));
            check(changed, at, size);
        }
    }
}
