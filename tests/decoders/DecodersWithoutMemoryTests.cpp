// Decoders and confinement on machines without memory. They run right here: elsewhere a crash would
// look like a picture that cannot be shown.

#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegPicturePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegProbePrivate.h"
#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include "kxmd/base/KXSanitizersPrivate.h"
#include "support/Builders.h"
#include "support/Movies.h"
#include "support/NextFunction.h"
#include "support/NoMemory.h"
#include "support/Pictures.h"
#include "support/Renders.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
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
    void TearDown() override { ::av_log_set_level(_level); }

private:
    int const _level { ::av_log_get_level() };
};

int rulesBeforeFailure = -1; ///< Rules that can still be added to a filter; negative for all.

bool failsNow() { return rulesBeforeFailure >= 0 && rulesBeforeFailure-- == 0; }

/// Makes something once for each of FFmpeg's allocations, with that one failing, and once with none
/// failing: then it is as expected, before that it may also be nothing.
template <class Thing, class Make, class AreEqual>
void expectNothingOrWhole(Thing const& expected, Make const& make, AreEqual const& areEqual)
{
    ASSERT_TRUE(expected);
    bool hasFailed = true;
    std::size_t count = 0;
    for (; hasFailed; ++count) {
        ASSERT_LT(count, 10'000u);
        NoMemory const noMemory(count);
        auto const made = make();
        hasFailed = noMemory.hasFailed();
        EXPECT_TRUE(made || hasFailed) << count;
        EXPECT_TRUE(!made || areEqual(*made, *expected)) << count;
    }
    EXPECT_GT(count, 10u);
}

/// Confines a process of its own, in which the rule of that number cannot be added: that fails and
/// takes nothing away. Whether there is no such rule, so that it succeeds.
bool takesAllWithoutRule(int number, bool (*confine)())
{
    enum { succeeds, fails, isWrong };
    pid_t const child = ::fork();
    if (child == 0) {
        rulesBeforeFailure = number;
        bool const isDone = confine();
        bool const hasFailed = rulesBeforeFailure < 0, isFree = ::prctl(PR_GET_SECCOMP) == 0;
        ::_exit(isDone && !hasFailed ? succeeds : !isDone && isFree ? fails : isWrong);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << number;
    EXPECT_NE(WEXITSTATUS(status), isWrong) << number;
    return !WIFEXITED(status) || WEXITSTATUS(status) != fails;
}

/// How many rules there are.
int numberOfRules(bool (*confine)())
{
    constexpr int most = 1000;
    int number = 0;
    while (number < most && !takesAllWithoutRule(number, confine))
        ++number;
    EXPECT_LT(number, most) << "it never succeeds";
    return number;
}

}

extern "C" {

// Called instead of the library's own.

int seccomp_rule_add_array(scmp_filter_ctx filter, std::uint32_t action, int call,
    unsigned int count, scmp_arg_cmp const* comparisons)
{
    static auto* const original
        = next<int(scmp_filter_ctx, std::uint32_t, int, unsigned int, scmp_arg_cmp const*)>(
            "seccomp_rule_add_array");
    return failsNow() ? -ENOMEM : original(filter, action, call, count, comparisons);
}

int seccomp_rule_add(
    scmp_filter_ctx filter, std::uint32_t action, int call, unsigned int count, ...)
{
    std::vector<scmp_arg_cmp> comparisons;
    va_list arguments;
    va_start(arguments, count);
    for (unsigned int i = 0; i < count; ++i)
        comparisons.push_back(va_arg(arguments, scmp_arg_cmp));
    va_end(arguments);
    return seccomp_rule_add_array(filter, action, call, count, comparisons.data());
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
        for (bool const isKey : { true, false }) {
            auto const picture = [&, file = made.file()]() -> KXImage::Ref {
                auto const data = reader(file);
                auto const movie = KXFFmpegMovie::movieWithData(*data);
                return !movie ? nullptr
                    : isKey   ? movie->keyImageAtTime(0, {})
                              : movie->imageAtTime(0, {});
            };
            expectNothingOrWhole(picture(), picture, areEqual);
        }
    }
}

TEST_F(DecodersWithoutMemory, PicturesByFFmpegAreNullOrWhole)
{
    Bytes const file = join(text("P6\n2 2\n255\n"), filled(12, 200));
    auto const picture = [&] { return pictureByFFmpeg(*reader(file), file.size(), {}); };
    expectNothingOrWhole(picture(), picture, areEqual);
}

TEST_F(DecodersWithoutMemory, ProbesKnowNothingOrTheContainer)
{
    Bytes const file = Movie { .frames = { solidRGB(16, 8, { 255, 0, 0 }) } }.file();
    auto const probe = [&] { return mediaProbeByFFmpeg(*reader(file)); };
    expectNothingOrWhole(
        probe(), probe, [](auto const& a, auto const& b) { return a.container == b.container; });
}

TEST_F(DecodersWithoutMemory, FilterWithoutOneOfItsRulesIsNotUsed)
{
    if (!isConfinementThere())
        GTEST_SKIP() << "the kernel cannot confine";
    EXPECT_GT(numberOfRules(confineToComputing), 50);
    static constexpr KXProgramPlaces places { "/bin/true", "/dev/null", "" };
    EXPECT_GT(numberOfRules([] { return confineProgram(places); }), 10);
}

TEST_F(DecodersWithoutMemory, ClosedMoviesKeepNoMemory)
{
#if KXMD_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer allocates on its own, and tells leaks itself";
#endif
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
