// What the program that decodes movies says of itself.

#include "kxmd/platform/KXMachineReport.h"
#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include "support/Builders.h"
#include "support/Renders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sys/prctl.h>

using testing::IsSupersetOf;

TEST(KXFFmpegServer, TellsItsCodecsPicturesAndConfinement)
{
    auto const report = KXMachineReport::reportOfThisMachine();
    EXPECT_TRUE(report.movies.isThere);
    EXPECT_EQ(report.movies.isConfinedToReading, isConfinementThere());
    EXPECT_EQ(report.movies.isConfinedToComputing, ::prctl(PR_GET_SECCOMP) >= 0);
    EXPECT_THAT(report.movies.formats,
        IsSupersetOf({ "av1", "h264", "hevc", "mjpeg", "mpeg2video", "mpeg4", "vp8", "vp9" }));
    EXPECT_TRUE(std::ranges::is_sorted(report.movies.formats));
    EXPECT_THAT(report.pictures.formats, IsSupersetOf({ "bmp", "ico", "png", "pnm", "tiff" }));
    EXPECT_TRUE(std::ranges::is_sorted(report.pictures.formats));
}

TEST(KXFFmpegServer, WhatOthersAreThereForIsUnknown)
{
    using Operation = KXRenderRequest::Operation;
    expectUnknown("kxmd-render-movies", { Operation::drawing, Operation::jpg, Operation::png });
}
