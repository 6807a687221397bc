#pragma once

#include "kxmd/image/KXPictureSizePrivate.h"
#include "support/Builders.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

// What tests ask of the sizes of encoded pictures.

using Size = std::optional<KXSize>;

constexpr KXSize sizeOf40By30 { 40, 30 };

inline Size measured(build::Bytes bytes)
{
    auto const data = build::reader(std::move(bytes));
    return sizeOfEncodedPictureInData(*data, data->length());
}

/// The size that is found with no more than `steps` left in the budget.
inline Size measuredInSteps(build::Bytes bytes, std::uint64_t steps)
{
    auto const data = build::reader(std::move(bytes));
    while (data->budget().stepsLeft() > steps)
        EXPECT_TRUE(data->budget().takeStep());
    return sizeOfEncodedPictureInData(*data, data->length());
}

/// Expects that measuring takes that many steps, and finds nothing with one less.
inline void expectSteps(build::Bytes const& picture, std::uint64_t steps)
{
    Size const size = measured(picture);
    EXPECT_TRUE(size);
    EXPECT_EQ(measuredInSteps(picture, steps), size);
    EXPECT_EQ(measuredInSteps(picture, steps - 1), std::nullopt);
}

/// Expects that a picture has its size as soon as its first `headLength` bytes are there, and none
/// before; also when more bytes follow that do not belong to it.
inline void expectSizeFrom(std::size_t headLength, build::Bytes const& picture)
{
    Size const size = measured(picture);
    EXPECT_TRUE(size);
    for (std::size_t length = 0; length <= picture.size(); ++length) {
        Size const expected = length < headLength ? std::nullopt : size;
        build::Bytes const cut(
            picture.begin(), picture.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(measured(cut), expected) << length;
        auto const whole = build::reader(build::join(build::zeros(5), picture));
        whole->setOffset(5);
        EXPECT_EQ(sizeOfEncodedPictureInData(*whole, length), expected) << length;
    }
}
