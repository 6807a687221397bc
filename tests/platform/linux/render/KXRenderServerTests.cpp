#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/linux/render/KXRenderMessagesPrivate.h"
#include "kxmd/platform/linux/render/KXRenderMovieLoaderPrivate.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"
#include "kxmd/platform/linux/system/KXProgramStartPrivate.h"
#include "support/Builders.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Pictures.h"
#include "support/Renders.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <span>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace pictures;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

/// Tests with a decoder that does what the file tells it to.
class KXRenderServerTest : public testing::Test {
protected:
    static std::shared_ptr<KXRenderServer const> newServer()
    {
        return std::make_shared<KXRenderServer const>(KXMD_HOSTILE_DECODER);
    }

    static KXRenderLimits within(std::chrono::milliseconds time)
    {
        auto limits = KXRenderLimits::forPictures();
        limits.time = time;
        return limits;
    }

    KXImage::Ref obeyed(std::string const& order) const { return obeyed(order, loader); }

    static KXImage::Ref obeyed(std::string const& order, KXRenderPictureLoader const& loader)
    {
        auto const data = build::reader(build::text(order));
        return loader.imageInData(*data, data->length(), {});
    }

    /// The number that the decoder shows; 0 when it shows nothing.
    static int number(KXImage::Ref const& image)
    {
        int shown = 0;
        if (image)
            std::memcpy(&shown, image->pixels().data(), sizeof shown);
        return shown;
    }

    void expectRefused(std::string const& attempt) const
    {
        auto const image = obeyed(attempt);
        ASSERT_TRUE(image) << attempt;
        EXPECT_EQ(pixel(*image, 0, 0), green) << attempt;
    }

    /// Whether the process is gone, or but waits for its parent to look, within a second.
    static bool isGoneSoon(pid_t process)
    {
        auto const end = std::chrono::steady_clock::now() + 1s;
        while (std::chrono::steady_clock::now() < end) {
            std::ifstream file("/proc/" + std::to_string(process) + "/stat");
            std::string line;
            if (!std::getline(file, line) || line.find(") Z ") != std::string::npos)
                return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

    /// Runs `work` in a process forked from this one, and gives the number that it returns.
    template <class Work> static int inForkedHost(Work work)
    {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        pid_t const host = ::fork();
        if (host == 0) {
            int const result = work();
            (void)!::write(ends[1], &result, sizeof result);
            ::_exit(0);
        }
        ::close(ends[1]); // So that its end is seen.
        int result = 0;
        EXPECT_EQ(::read(ends[0], &result, sizeof result), ssize_t { sizeof result });
        ::waitpid(host, nullptr, 0);
        ::close(ends[0]);
        return result;
    }

    std::shared_ptr<KXRenderServer const> const server = newServer();
    KXRenderPictureLoader const loader { oneForAll(server), KXRenderLimits::forPictures() };
    TemporaryFolder const folder;
};

class KXRenderConfinementTest : public KXRenderServerTest {
protected:
    void SetUp() override
    {
        if (!isConfinementThere())
            GTEST_SKIP() << "this kernel has no Landlock";
    }
};

}

TEST_F(KXRenderServerTest, EachFileHasAProcessOfItsOwn)
{
    int const forking = number(obeyed("server"));
    std::set<int> processes { ::getpid(), forking };
    for (int i = 0; i < 3; ++i)
        processes.insert(number(obeyed("self")));
    EXPECT_EQ(processes.size(), 5u);
    EXPECT_EQ(number(obeyed("server")), forking);
    EXPECT_FALSE(processes.contains(0));
}

TEST_F(KXRenderServerTest, ShowsWhatStandsInAFileFromTheReadPosition)
{
    auto const path = folder.write("a", build::text("sleep lie wide server"));
    auto const data = KXAbstractData::abstractDataWithPath(path);
    data->setOffset(15);
    EXPECT_GT(number(loader.imageInData(*data, 6, {})), 1);
    EXPECT_EQ(data->offset(), 15u);
    auto const memory = build::reader(build::text("sleep lie wide server"));
    memory->setOffset(15);
    EXPECT_GT(number(loader.imageInData(*memory, 6, {})), 1);
    EXPECT_EQ(memory->offset(), 15u);
}

TEST_F(KXRenderServerTest, WhatIsUnknownIsAbsent)
{
    auto const known = [this](char const* order) {
        auto const data = build::reader(build::text(order));
        return loader.knownImageInData(*data, data->length(), {});
    };
    EXPECT_FALSE(known("unknown"));
    ASSERT_TRUE(known("crash"));
    EXPECT_FALSE(*known("crash"));
    ASSERT_TRUE(known("lie wide"));
    EXPECT_FALSE(*known("lie wide"));
}

TEST_F(KXRenderServerTest, DecoderThatMisbehavesCostsOnePicture)
{
    for (char const* order : { "crash", "abort", "mute", "nonsense", "lie wide", "lie flat",
             "lie huge", "lie long", "lie short", "lie alone", "lie twice", "lie input",
             "lie unsealed", "lie growing", "lie shrinking" }) {
        EXPECT_FALSE(obeyed(order)) << order;
        auto const image = obeyed("anything else");
        ASSERT_TRUE(image) << order;
        EXPECT_EQ(pixel(*image, 0, 0), (Colour { 'a', 'b', 'c', 255 }));
    }
    EXPECT_TRUE(obeyed("lie never")); // What is right about the others is right.
}

TEST_F(KXRenderServerTest, ProbeIsTheTextOfTheAnswer)
{
    KXRenderMovieLoader const movies(server, KXRenderLimits::forMovies());
    auto const probeFor = [&movies](std::string const& order) {
        auto const data = build::reader(build::text(order));
        data->setOffset(3);
        return movies.mediaProbeWithData(*data);
    };
    auto const probe = probeFor("tell container\0flac\0duration\0002.5\0"s);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->container, "flac");
    EXPECT_EQ(probe->duration, 2.5);
    for (char const* order : { "tell", "tell no zero", "crash", "mute", "unknown", "nonsense",
             "lie long", "lie short", "lie alone", "lie twice", "lie input", "lie unsealed" }) {
        EXPECT_FALSE(probeFor(order)) << order;
    }
}

TEST_F(KXRenderServerTest, DecoderThatTakesTooLongIsKilled)
{
    KXRenderPictureLoader const hasty(oneForAll(server), within(200ms));
    EXPECT_TRUE(obeyed("anything", loader)); // It is running.
    for (char const* order : { "sleep", "loop" }) {
        auto const begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(obeyed(order, hasty)) << order;
        auto const time = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(time, 200ms);
        EXPECT_LT(time, 1500ms);
    }
}

TEST_F(KXRenderServerTest, MovieHasOneDeadlineForAllThatItIsAsked)
{
    KXRenderMovieLoader const movies(server, within(400ms));
    auto const data = build::reader(build::text("thread"));
    auto const movie = movies.movieWithData(*data);
    ASSERT_TRUE(movie);
    EXPECT_TRUE(movie->imageAtTime(0, {}));
    EXPECT_TRUE(movie->keyImageAtTime(0, {}));
    EXPECT_GT(movie->attachedPicture().length(), 0u);
    std::this_thread::sleep_for(500ms); // What the host does meanwhile does not count.
    EXPECT_TRUE(movie->imageAtTime(0, {}));

    auto const sleeping = build::reader(build::text("sleep"));
    auto const endless = movies.movieWithData(*sleeping);
    ASSERT_TRUE(endless);
    auto const process = static_cast<pid_t>(endless->duration());
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(endless->imageAtTime(0, {}));
    EXPECT_TRUE(isGoneSoon(process));
    EXPECT_FALSE(endless->imageAtTime(0, {}));
    EXPECT_FALSE(endless->keyImageAtTime(0, {}));
    EXPECT_EQ(endless->attachedPicture().length(), 0u);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1500ms);
}

TEST_F(KXRenderServerTest, ProcessOfAMovieGoesWithIt)
{
    KXRenderMovieLoader const movies(server, KXRenderLimits::forMovies());
    auto const data = build::reader(build::text("anything"));
    auto movie = movies.movieWithData(*data);
    ASSERT_TRUE(movie);
    auto const process = static_cast<pid_t>(movie->duration());
    EXPECT_EQ(::kill(process, 0), 0);
    movie.reset();
    EXPECT_TRUE(isGoneSoon(process));
}

TEST_F(KXRenderServerTest, DecoderThatFloodsItsAnswerIsHeldUp)
{
    EXPECT_FALSE(obeyed("flood"));
    EXPECT_TRUE(obeyed("anything"));
}

TEST_F(KXRenderServerTest, ServerThatDiesTakesItsProcessesAlong)
{
    KXRenderMovieLoader const movies(server, KXRenderLimits::forMovies());
    auto const data = build::reader(build::text("anything"));
    auto const movie = movies.movieWithData(*data);
    ASSERT_TRUE(movie);
    auto const process = static_cast<pid_t>(movie->duration());
    ASSERT_EQ(::kill(process, 0), 0);
    ASSERT_EQ(::kill(number(obeyed("server")), SIGKILL), 0);
    EXPECT_TRUE(isGoneSoon(process));
}

TEST_F(KXRenderServerTest, ServerEndsWhenItIsAskedNoMore)
{
    auto const program = folder.path() / "hasty";
    std::filesystem::create_symlink(KXMD_HOSTILE_DECODER, program);
    auto const idle = std::make_shared<KXRenderServer const>(program.string());
    KXRenderPictureLoader const pictures(oneForAll(idle), KXRenderLimits::forPictures());
    KXRenderMovieLoader const movies(idle, KXRenderLimits::forMovies());
    auto const data = build::reader(build::text("anything"));
    auto movie = movies.movieWithData(*data);
    ASSERT_TRUE(movie);
    auto const first = number(obeyed("server", pictures));
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(number(obeyed("server", pictures)), first); // A movie was open.
    movie.reset();
    EXPECT_TRUE(isGoneSoon(first));
    auto const second = number(obeyed("server", pictures));
    EXPECT_GT(second, 0);
    EXPECT_NE(second, first);
}

TEST_F(KXRenderServerTest, ProcessThatTakesTooLongIsGone)
{
    auto const own = newServer(); // Whose first process it is.
    KXRenderPictureLoader const pictures(oneForAll(own), KXRenderLimits::forPictures());
    auto const forking = number(obeyed("server", pictures));
    KXRenderMovieLoader const movies(own, within(200ms));
    auto const data = build::reader(build::text("sleep"));
    auto const movie = movies.movieWithData(*data);
    ASSERT_TRUE(movie);
    EXPECT_FALSE(movie->imageAtTime(0, {}));
    EXPECT_TRUE(isGoneSoon(static_cast<pid_t>(movie->duration())));
    EXPECT_EQ(number(obeyed("server", pictures)), forking);
}

TEST_F(KXRenderServerTest, ProcessHasNoSocketButItsOwn)
{
    KXRenderMovieLoader const movies(server, KXRenderLimits::forMovies());
    auto const data = build::reader(build::text("anything"));
    auto const movie = movies.movieWithData(*data);
    EXPECT_EQ(number(obeyed("sockets")), 1);
}

TEST_F(KXRenderServerTest, ServesRegularFilesAlone)
{
    auto const isServed = [this](int file) {
        KXRenderRequest const request { .length = 8 };
        return server->replyTo(request, file, within(2s)).has_value();
    };
    KXFileDescriptor const regular(
        ::open(folder.write("a", build::text("anything")).c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(isServed(regular.get()));
    KXFileDescriptor const place(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_FALSE(isServed(place.get()));
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    KXFileDescriptor const readEnd(ends[0]), writeEnd(ends[1]);
    EXPECT_FALSE(isServed(readEnd.get()));
}

TEST_F(KXRenderServerTest, RequestThatIsNoneCostsNoOther)
{
    auto const pairOfSockets = [] {
        int ends[2] { -1, -1 };
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        return std::pair(KXFileDescriptor(ends[0]), KXFileDescriptor(ends[1]));
    };
    auto [host, serversEnd] = pairOfSockets();
    KXProgramStart const program { .arguments = { KXMD_HOSTILE_DECODER },
        .target = serversEnd.get() };
    auto const started = program.start();
    ASSERT_TRUE(started);
    serversEnd = KXFileDescriptor();
    ASSERT_TRUE(receiveRenderMessage(host.get())); // Its greeting.
    KXFileDescriptor const file(
        ::open(folder.write("a", build::text("anything")).c_str(), O_RDONLY | O_CLOEXEC));
    /// Whether there is an answer to a request of these bytes, with that many of its two files.
    auto const isAnswered = [&](std::vector<std::byte> const& bytes, std::size_t fileCount) {
        auto [asking, answering] = pairOfSockets();
        // The socket first, so that each request has one for its answer.
        std::array const files { fileCount == 1 ? answering.get() : file.get(), answering.get() };
        EXPECT_TRUE(sendRenderMessage(
            host.get(), std::span<std::byte const>(bytes), std::span(files).first(fileCount)));
        answering = KXFileDescriptor();
        return receiveRenderMessage(asking.get()).has_value();
    };
    KXRenderRequest const request { .seconds = 2, .length = 8, .memory = 1 << 26 };
    auto const bytes = std::as_bytes(std::span(&request, 1));
    std::vector<std::byte> const whole(bytes.begin(), bytes.end());
    std::vector<std::byte> shorter(whole.begin(), whole.end() - 1), longer(whole);
    longer.push_back({});
    EXPECT_TRUE(isAnswered(whole, 2));
    EXPECT_FALSE(isAnswered(whole, 1));
    EXPECT_FALSE(isAnswered(whole, 0));
    EXPECT_FALSE(isAnswered(shorter, 2));
    EXPECT_FALSE(isAnswered(longer, 2));
    EXPECT_FALSE(isAnswered({ std::byte {} }, 2));
    EXPECT_TRUE(isAnswered(whole, 2));
    ::waitpid(*started, nullptr, 0);
}

TEST_F(KXRenderServerTest, ServesSixtyFourFilesAtATime)
{
    KXRenderMovieLoader const movies(server, KXRenderLimits::forMovies());
    auto const data = build::reader(build::text("anything"));
    std::vector<std::unique_ptr<KXMovie>> open;
    for (int i = 0; i < 63; ++i)
        open.push_back(movies.movieWithData(*data));
    KXRenderPictureLoader const hasty(oneForAll(server), within(500ms));
    EXPECT_TRUE(obeyed("anything", loader)); // The last.
    open.push_back(movies.movieWithData(*data));
    EXPECT_TRUE(open.back());
    EXPECT_FALSE(obeyed("anything", hasty));
    open.erase(open.begin() + 10);
    EXPECT_TRUE(obeyed("anything", loader));
    for (auto const& movie : open)
        EXPECT_TRUE(movie && movie->imageAtTime(0, {})); // Still there.
}

TEST_F(KXRenderServerTest, ServerThatDiesIsStartedAnew)
{
    int const first = number(obeyed("server"));
    ASSERT_EQ(::kill(first, SIGKILL), 0);
    ASSERT_TRUE(isGoneSoon(first));
    int const second = number(obeyed("server"));
    EXPECT_NE(second, 0);
    EXPECT_NE(second, first);
}

TEST_F(KXRenderServerTest, NothingOutlivesItsHost)
{
    // The host has a movie open when it dies.
    static int processes[2];
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    pid_t const host = ::fork();
    if (host == 0) {
        auto const own = newServer();
        KXRenderMovieLoader const movies(own, KXRenderLimits::forMovies());
        auto const data = build::reader(build::text("loop"));
        auto const movie = movies.movieWithData(*data);
        int const numbers[] {
            number(obeyed(
                "server", KXRenderPictureLoader(oneForAll(own), KXRenderLimits::forPictures()))),
            movie ? static_cast<int>(movie->duration()) : 0
        };
        (void)!::write(ends[1], numbers, sizeof numbers);
        if (movie)
            (void)movie->imageAtTime(0, {});
        ::_exit(0);
    }
    ::close(ends[1]); // So that its end is seen.
    ASSERT_EQ(::read(ends[0], processes, sizeof processes), ssize_t { sizeof processes });
    ASSERT_GT(processes[0], 0);
    ASSERT_GT(processes[1], 0);
    ::kill(host, SIGKILL);
    ::waitpid(host, nullptr, 0);
    EXPECT_TRUE(isGoneSoon(processes[0]));
    EXPECT_TRUE(isGoneSoon(processes[1]));
    ::close(ends[0]);
}

TEST_F(KXRenderServerTest, ForkedHostHasAServerOfItsOwn)
{
    int const ours = number(obeyed("server"));
    int const theirs = inForkedHost([this] { return number(obeyed("server")); });
    EXPECT_GT(theirs, 0);
    EXPECT_NE(theirs, ours);
    EXPECT_EQ(number(obeyed("server")), ours);
}

TEST_F(KXRenderServerTest, HostMayCloseItsStandardFilesAndIgnoreItsChildren)
{
    EXPECT_TRUE(inForkedHost([] {
        for (int file = 0; file <= 2; ++file)
            ::close(file);
        std::signal(SIGCHLD, SIG_IGN);
        KXRenderPictureLoader const own(oneForAll(newServer()), KXRenderLimits::forPictures());
        bool const isShown = number(obeyed("server", own)) && obeyed("anything", own);
        for (int file = 0; file <= 2; ++file) {
            if (::fcntl(file, F_GETFD) >= 0)
                return 0; // Something of ours got a standard file's number.
        }
        return isShown ? 1 : 0;
    }));
}

TEST_F(KXRenderServerTest, HostMayLimitTheSizeOfItsFiles)
{
    EXPECT_TRUE(inForkedHost([] {
        std::signal(SIGXFSZ, SIG_DFL);
        rlimit const limit { 1000, RLIM_INFINITY };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try { // Its pixels take more, and have nowhere to go.
            (void)rendersOfThisMachine()->jpgRepresentation(*solid(100, 100, red));
            return 0;
        } catch (std::bad_alloc const&) {
            sigset_t pending;
            ::sigpending(&pending);
            return sigismember(&pending, SIGXFSZ) ? 0 : 1;
        }
    }));
}

TEST_F(KXRenderServerTest, LeavesNoChildToItsHost)
{
    EXPECT_TRUE(inForkedHost([] {
        KXRenderPictureLoader const own(oneForAll(newServer()), KXRenderLimits::forPictures());
        bool const isShown = obeyed("anything", own) != nullptr;
        return isShown && ::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD ? 1 : 0;
    }));
}

TEST_F(KXRenderServerTest, ServesManyThreads)
{
    std::atomic<int> shown { 0 };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10; ++i)
                shown += obeyed("anything") != nullptr;
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(shown, 80);
}

TEST_F(KXRenderServerTest, ProgramIsThereForItsOwnWorkAlone)
{
    using Operation = KXRenderRequest::Operation;
    expectUnknown("kxmd-render",
        { Operation::drawing, Operation::movie, Operation::pictureFormats, Operation::probe });
    expectUnknown("kxmd-render-rare",
        { Operation::jpg, Operation::png, Operation::movie, Operation::pictureFormats,
            Operation::probe });
}

TEST_F(KXRenderServerTest, PixelsThatAreNotAsTheRequestSaysAreNotEncoded)
{
    using Outcome = KXRenderAnswer::Outcome;
    KXRenderServer const encoder(programOfOurs("kxmd-render"));
    auto const outcome = [&](std::size_t bytes, std::uint64_t length, std::uint32_t width) {
        auto const file = KXAbstractData::abstractDataWithPath(
            folder.write("pixels", build::filled(bytes, 255)));
        KXRenderRequest const request { .operation = KXRenderRequest::Operation::png,
            .width = width,
            .height = 2,
            .length = length };
        auto const reply = encoder.replyTo(request, *file, KXRenderLimits::forPictures());
        return reply ? reply->answer.outcome : Outcome::failed;
    };
    EXPECT_EQ(outcome(16, 16, 2), Outcome::done);
    EXPECT_EQ(outcome(24, 16, 2), Outcome::unknown);
    EXPECT_EQ(outcome(16, 24, 3), Outcome::unknown);
    EXPECT_EQ(outcome(16, 16, 3), Outcome::unknown);
    EXPECT_EQ(outcome(16, std::uint64_t { 1 } << 62, 2), Outcome::unknown);
}

TEST_F(KXRenderServerTest, MissingProgramIsLoggedOnce)
{
    LogCapture const log;
    KXRenderPictureLoader const missing(
        oneForAll(std::make_shared<KXRenderServer const>("/no/such/program")),
        KXRenderLimits::forPictures());
    EXPECT_FALSE(obeyed("anything", missing));
    EXPECT_FALSE(obeyed("anything", missing));
    EXPECT_EQ(missing.jpgRepresentation(*solid(2, 2, red)).length(), 0u);
    EXPECT_EQ(log.lines(),
        std::vector<std::string> {
            "Metadata: Nothing can be decoded: /no/such/program does not start" });
}

TEST_F(KXRenderServerTest, ProgramThatIsNoServerGivesNothing)
{
    LogCapture const log;
    KXRenderPictureLoader const wrong(
        oneForAll(std::make_shared<KXRenderServer const>("/bin/true")),
        KXRenderLimits::forPictures());
    EXPECT_FALSE(obeyed("anything", wrong));
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(KXRenderServerTest, MemoryIsBounded)
{
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    auto const couldUse = [this](std::uint64_t mebibytes) {
        auto const image = obeyed("use " + std::to_string(mebibytes << 20));
        return image && pixel(*image, 0, 0) == red;
    };
    EXPECT_TRUE(couldUse(500));
    EXPECT_FALSE(couldUse(513));
}

TEST_F(KXRenderServerTest, TimeFilesAndWhatIsWrittenAreBounded)
{
    auto const limitOf = [this](int resource) {
        auto const limits = KXRenderLimits { 2500ms, 1 << 26 };
        return number(obeyed(
            "limit " + std::to_string(resource), KXRenderPictureLoader(oneForAll(server), limits)));
    };
    EXPECT_EQ(
        limitOf(RLIMIT_CPU), 4); // Seconds: whole ones, and one more, since the host is first.
    EXPECT_EQ(limitOf(RLIMIT_NOFILE), 64);
    EXPECT_EQ(limitOf(RLIMIT_FSIZE), 1 << 26);
    EXPECT_EQ(limitOf(RLIMIT_CORE), 0);
}

TEST_F(KXRenderServerTest, LargePictureHasMoreTimeAndMemoryToBeEncoded)
{
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    auto const machine = rendersOfThisMachine();
    auto const large = KXImage::imageWithSize({ 8'000, 8'000 }); // A quarter of a gibibyte.
    auto const jpg = machine->jpgRepresentation(*large);
    EXPECT_GT(jpg.length(), 0u);
    auto const data = KXAbstractData::abstractDataWithData(jpg);
    auto const shown = machine->imageInData(*data, data->length(), { 100, 100 });
    ASSERT_TRUE(shown);
    EXPECT_EQ(pixel(*shown, 0, 0), white);
}

TEST_F(KXRenderConfinementTest, ReadsNoFileButLibrariesFontsAndTypes)
{
    std::vector<std::string> const others { "/etc/passwd", "/proc/self/environ", "/proc/self/maps",
        folder.write("secret", build::text("secret")),
        "/proc/" + std::to_string(::getpid()) + "/maps" };
    for (auto const& other : others)
        expectRefused("read " + other);
    auto const library = obeyed("read /usr/lib/os-release");
    ASSERT_TRUE(library);
    EXPECT_EQ(pixel(*library, 0, 0), red); // It could.
}

TEST_F(KXRenderConfinementTest, WritesNothing)
{
    auto const present = folder.write("present", build::text("present"));
    expectRefused("write " + (folder.path() / "new").string());
    expectRefused("write " + present);
    expectRefused("remove " + present);
    expectRefused("write /usr/share/kxmd-test");
    EXPECT_EQ(bytesOfFile(present), build::text("present"));
}

TEST_F(KXRenderServerTest, ReachesNobodyElse)
{
    expectRefused("connect");
    expectRefused("signal " + std::to_string(::getpid()));
    expectRefused("trace");
}

TEST_F(KXRenderServerTest, StartsNoProcess)
{
    expectRefused("fork");
    expectRefused("exec");
    auto const image = obeyed("thread");
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), red);
}

TEST_F(KXRenderConfinementTest, SeesNothingOfTheUser)
{
    ::setenv("KXMD_SECRET", "secret", 1);
    KXRenderPictureLoader const own(oneForAll(newServer()), KXRenderLimits::forPictures());
    auto const image = obeyed("environment", own);
    ::unsetenv("KXMD_SECRET");
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 0, 0), green);
}
