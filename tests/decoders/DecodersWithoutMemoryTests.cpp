// Decoders and confinement on machines without memory. They run right here: elsewhere a crash would
// look like a picture that cannot be shown.

#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegPicturePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegProbePrivate.h"
#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include "support/Builders.h"
#include "support/Movies.h"
#include "support/NoMemory.h"
#include "support/Pictures.h"
#include "support/Renders.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <malloc.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavutil/log.h>
}

using namespace build;
using namespace movies;
using namespace pictures;

namespace {

class DecodersWithoutMemory : public testing::Test {
protected:
    // As the programs that decode have it; without memory, FFmpeg's messages crash.
    void SetUp() override { ::av_log_set_level(AV_LOG_QUIET); }
    void TearDown() override { ::av_log_set_level(AV_LOG_INFO); }
};

int callsBeforeFailure = -1; ///< Of the library that makes filters; negative: none fails.

bool failsNow() { return callsBeforeFailure >= 0 && callsBeforeFailure-- == 0; }

/// Does something once for each of FFmpeg's allocations, which fails then.
void failEachAllocationOf(std::function<void()> const& use)
{
    bool hasFailed = true;
    std::size_t count = 0;
    for (; hasFailed; ++count) {
        ASSERT_LT(count, 10'000u);
        NoMemory const noMemory(count);
        use();
        hasFailed = noMemory.hasFailed();
    }
    EXPECT_GT(count, 10u);
}

/// How often one of these calls fails, until all of them succeed: in processes of their own, which
/// nothing confines meanwhile.
int failuresOf(bool (*confine)())
{
    enum { succeeds, fails, failsConfined };
    constexpr int most = 1000;
    for (int count = 0; count < most; ++count) {
        pid_t const child = ::fork();
        if (child == 0) {
            callsBeforeFailure = count;
            bool const isDone = confine();
            ::_exit(isDone ? succeeds : ::prctl(PR_GET_SECCOMP) == 0 ? fails : failsConfined);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status)) << count;
        EXPECT_NE(WEXITSTATUS(status), failsConfined) << count;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != fails)
            return count;
    }
    ADD_FAILURE() << "it never succeeds";
    return most;
}

}

extern "C" {

// Called instead of the library's own.

int seccomp_rule_add(
    scmp_filter_ctx filter, std::uint32_t action, int call, unsigned int count, ...)
{
    std::vector<scmp_arg_cmp> comparisons;
    va_list arguments;
    va_start(arguments, count);
    for (unsigned int i = 0; i < count; ++i)
        comparisons.push_back(va_arg(arguments, scmp_arg_cmp));
    va_end(arguments);
    return failsNow() ? -ENOMEM
                      : seccomp_rule_add_array(filter, action, call, count, comparisons.data());
}
}

TEST_F(DecodersWithoutMemory, MoviesHaveNoPictureOrAWholeOne)
{
    Bytes const frame = solidRGB(16, 8, { 255, 0, 0 });
    Movie const plain { .frames = { frame, frame } };
    Movie const bright { .codec = "b48r",
        .depth = 48,
        .frames = { filled(16 * 8 * 6, 0x50) },
        .entryChildren = colours(9, 16, 0) };
    for (Movie const& made : { plain, bright }) {
        Bytes const file = made.file();
        KXImage::Ref const expected
            = KXFFmpegMovie::movieWithData(*reader(file))->imageAtTime(0, {});
        ASSERT_TRUE(expected);
        failEachAllocationOf([&] {
            auto const data = reader(file);
            auto const movie = KXFFmpegMovie::movieWithData(*data);
            for (bool const isKey : { true, false }) {
                auto const image = !movie ? nullptr
                    : isKey               ? movie->keyImageAtTime(0, {})
                                          : movie->imageAtTime(0, {});
                EXPECT_TRUE(!image || areEqual(*image, *expected));
            }
        });
    }
}

TEST_F(DecodersWithoutMemory, PicturesByFFmpegAreNullOrWhole)
{
    Bytes const file = join(text("P6\n2 2\n255\n"), filled(12, 200));
    auto const expected = pictureByFFmpeg(*reader(file), file.size(), {});
    ASSERT_TRUE(expected);
    failEachAllocationOf([&] {
        auto const image = pictureByFFmpeg(*reader(file), file.size(), {});
        EXPECT_TRUE(!image || areEqual(*image, *expected));
    });
}

TEST_F(DecodersWithoutMemory, ProbesKnowNothingOrWhatIsThere)
{
    Bytes const file = Movie { .frames = { solidRGB(16, 8, { 255, 0, 0 }) } }.file();
    failEachAllocationOf([&] {
        auto const probe = mediaProbeByFFmpeg(*reader(file));
        EXPECT_TRUE(!probe || probe->duration >= 0);
    });
}

TEST_F(DecodersWithoutMemory, FilterWithoutOneOfItsRulesIsNotUsed)
{
    if (!isConfinementThere())
        GTEST_SKIP() << "the kernel cannot confine";
    EXPECT_GT(failuresOf(confineToComputing), 50);
    static constexpr KXProgramPlaces places { "/bin/true", "/dev/null", "" };
    EXPECT_GT(failuresOf([] { return confineProgram(places); }), 10);
}

TEST_F(DecodersWithoutMemory, MoviesThatAreGoneKeepNone)
{
    Bytes const frame = solidRGB(16, 8, { 255, 0, 0 });
    Bytes const file = Movie { .frames = { frame, frame } }.file();
    Bytes const damaged = Movie { .frames = { zeros(10), zeros(10) } }.file();
    auto const playMany = [&] {
        for (int i = 0; i < 500; ++i) {
            for (Bytes const& bytes : { file, damaged, text("a letter") }) {
                auto const data = reader(bytes);
                if (auto const movie = KXFFmpegMovie::movieWithData(*data)) {
                    (void)movie->keyImageAtTime(0, { 4, 4 });
                    (void)movie->imageAtTime(0.1, { 4, 4 });
                }
            }
        }
    };
    auto const used = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
    playMany();
    auto const before = used();
    playMany();
    EXPECT_LE(used(), before + 30'000);
}
