#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "support/Builders.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

/// Tests of this machine's own picture loader.
class PictureLoaderTest : public testing::Test {
protected:
    build::Bytes jpg(KXImage const& image) const
    {
        return bytesOf(loader->jpgRepresentation(image));
    }
    build::Bytes png(KXImage const& image) const
    {
        return bytesOf(loader->pngRepresentation(image));
    }

    KXImage::Ref decoded(build::Bytes bytes, KXSize wantedSize = {}) const
    {
        auto const data = build::reader(std::move(bytes));
        return loader->imageInData(*data, data->length(), wantedSize);
    }

    std::shared_ptr<KXPictureLoader const> const loader
        = KXPlatform::platformOfThisMachine()->pictureLoader;

private:
    static build::Bytes bytesOf(KXData const& data)
    {
        return build::Bytes(data.bytes().begin(), data.bytes().end());
    }
};

inline void expectNear(pictures::Colour actual, pictures::Colour expected, int tolerance)
{
    for (std::size_t channel = 0; channel < actual.size(); ++channel)
        EXPECT_NEAR(actual[channel], expected[channel], tolerance) << channel;
}
