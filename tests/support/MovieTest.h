#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "support/Builders.h"
#include "support/Movies.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

/// Tests of movies as this machine plays them.
class MovieTest : public testing::Test {
protected:
    std::unique_ptr<KXMovie> opened(build::Bytes bytes)
    {
        _data = build::reader(std::move(bytes));
        return loader->movieWithData(*_data);
    }

    /// The first frame of a movie, as large as it is.
    KXImage::Ref firstFrame(movies::Movie const& movie)
    {
        auto const open = opened(movie.file());
        return open ? open->imageAtTime(0, {}) : nullptr;
    }

    pictures::Colour firstColour(movies::Movie const& movie)
    {
        auto const image = firstFrame(movie);
        return image ? pictures::pixel(*image, 1, 1) : pictures::transparent;
    }

    std::shared_ptr<KXMovieLoader const> const loader
        = KXPlatform::platformOfThisMachine()->movieLoader;

private:
    KXAbstractData::Ref _data;
};

// Frames of 16 by 8 pixels.
inline build::Bytes const redFrame = movies::solidRGB(16, 8, { 255, 0, 0 });
inline build::Bytes const greenFrame = movies::solidRGB(16, 8, { 0, 255, 0 });
inline build::Bytes const blueFrame = movies::solidRGB(16, 8, { 0, 0, 255 });
