// The reader over a file: what it opens, and what it reads through its windows.

#include "kxmd/base/KXFileDataPrivate.h"
#include "kxmd/base/KXStandardFilesPrivate.h"

#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/OpenFiles.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace build;
namespace files = std::filesystem;

namespace {

Bytes randomBytes(std::size_t count)
{
    std::mt19937 random(20240229);
    Bytes result(count);
    for (auto& byte : result)
        byte = static_cast<std::uint8_t>(random());
    return result;
}

std::uint32_t bigEndianAt(Bytes const& bytes, std::size_t position)
{
    return std::uint32_t { bytes[position] } << 24 | std::uint32_t { bytes[position + 1] } << 16
        | std::uint32_t { bytes[position + 2] } << 8 | bytes[position + 3];
}

}

TEST(KXFileData, OpensNothingButRegularFiles)
{
    TemporaryFolder const folder;
    std::string const fifo = folder.path() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (std::string const& path : { fifo, folder.path().string(), std::string("/dev/zero"),
             std::string("/dev/null"), (folder.path() / "missing").string(), std::string() }) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(KXAbstractData::abstractDataWithPath(path));
        EXPECT_FALSE(KXAbstractData::createWithPath(path));
    }
}

TEST(KXFileData, ReadOfBytesThatAreCutOffMeanwhileShowsNoneOfThem)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", filled(100'000, 'x'));
    auto const reader = KXAbstractData::createWithPath(path);
    std::filesystem::resize_file(path, 50'000);
    Bytes target(80'000, 'y');
    EXPECT_FALSE(reader->readBytesTo(target.data(), target.size()));
    EXPECT_EQ(target, zeros(target.size()));
    EXPECT_EQ(reader->offset(), 0u);
}

TEST(KXFileData, OpensAnEmptyFile)
{
    TemporaryFolder const folder;
    auto const reader = KXAbstractData::createWithPath(folder.write("empty", {}));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->length(), 0u);
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 0u);
    EXPECT_EQ(reader->offset(), 0u);
}

TEST(KXFileData, FollowsALinkToAFile)
{
    TemporaryFolder const folder;
    std::string const link = folder.path() / "link";
    files::create_symlink(folder.write("file", text("linked")), link);
    auto const reader = KXAbstractData::abstractDataWithPath(link);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->length(), 6u);
}

TEST(KXFileData, ReadsTheSameBytesAtRandomPositions)
{
    Bytes const expected = randomBytes(300'000);
    TemporaryFolder const folder;
    auto const reader = KXAbstractData::abstractDataWithPath(folder.write("random", expected));
    std::mt19937 random(7);
    for (int i = 0; i < 20'000; ++i) {
        std::size_t const count = random() % 4 ? random() % 64 : random() % 5000;
        std::size_t const position = random() % (expected.size() - 5000);
        reader->setOffset(position);
        Bytes read(count);
        ASSERT_TRUE(reader->readBytesTo(read.data(), count));
        ASSERT_TRUE(std::equal(
            read.begin(), read.end(), expected.begin() + static_cast<std::ptrdiff_t>(position)))
            << count << " bytes at " << position;
        ASSERT_EQ(reader->readUInt32OrZero(KXSwap::yes), bigEndianAt(expected, position + count));
        ASSERT_EQ(reader->offset(), position + count + 4);
    }
}

TEST(KXFileData, ReadsNumbersAcrossEveryWindowBorder)
{
    // Forwards, so that the windows grow, then backwards, where each read is a jump.
    Bytes const expected = randomBytes(210'003);
    TemporaryFolder const folder;
    auto const reader = KXAbstractData::abstractDataWithPath(folder.write("random", expected));
    for (std::size_t position = 3; position + 4 <= expected.size(); position += 4) {
        reader->setOffset(position);
        ASSERT_EQ(reader->readUInt32OrZero(KXSwap::yes), bigEndianAt(expected, position));
    }
    for (std::size_t position = expected.size() - 4; position > 4; position -= 5) {
        reader->setOffset(position);
        ASSERT_EQ(reader->readUInt32OrZero(KXSwap::yes), bigEndianAt(expected, position));
    }
}

TEST(KXFileData, KnowsTheLengthOfASparseFileOf10GB)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("movie", text("head"));
    constexpr std::uint64_t length = 10'000'000'000;
    files::resize_file(path, length);
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->length(), length);
    reader->setOffset(length - 3);
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 0u);
    EXPECT_EQ(reader->offset(), length - 3);
    std::uint16_t value = 1;
    EXPECT_TRUE(reader->readUInt16To(value, KXSwap::no));
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(reader->remainingLength(), 1u);
}

TEST(KXFileData, FailsReadsOfAFileThatWasCutOffMeanwhile)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("shrinking", filled(300'000, 'x'));
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    EXPECT_EQ(reader->readUInt8OrZero(), 'x');
    files::resize_file(path, 100);

    constexpr std::uint64_t gone = 200'000;
    reader->setOffset(gone);
    std::uint32_t word = 1;
    EXPECT_FALSE(reader->readUInt32To(word, KXSwap::yes));
    EXPECT_EQ(word, 0u);
    std::optional<std::string> text = "old";
    for (std::uint64_t const length : { 10u, 50'000u }) {
        Bytes bytes(length);
        EXPECT_FALSE(reader->readBytesTo(bytes.data(), length));
        EXPECT_EQ(reader->readBytesToMaxLength(bytes.data(), length), 0u);
        EXPECT_FALSE(reader->readStringTo(text, length, KXStringEncodingLatin1));
        EXPECT_FALSE(text);
        EXPECT_FALSE(reader->readStringToZeroTerminationInto(text, length, KXStringEncodingLatin1));
        EXPECT_FALSE(reader->readStringWithZeroTerminationTo(text, length, KXStringEncodingLatin1));
    }
    EXPECT_EQ(reader->offset(), gone);
    EXPECT_EQ(reader->length(), 300'000u);
}

TEST(KXFileData, MaxLengthReadReturnsWhatACutOffFileStillHas)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("shrinking", filled(300'000, 'x'));
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    files::resize_file(path, 100'100);
    reader->setOffset(100'000);
    Bytes bytes(4096);
    EXPECT_EQ(reader->readBytesToMaxLength(bytes.data(), bytes.size()), 100u);
    EXPECT_EQ(reader->offset(), 100'100u);
}

TEST(KXFileData, DoesNotSeeWhatIsAppendedMeanwhile)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("growing", text("abcd"));
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    std::ofstream(path, std::ios::app) << "efgh";
    reader->setOffset(2);
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 0u);
    Bytes bytes(8);
    EXPECT_EQ(reader->readBytesToMaxLength(bytes.data(), bytes.size()), 2u);
}

TEST(KXFileData, ClosesItsFile)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", text("abcd"));
    auto const before = countOfOpenFiles();
    {
        auto const reader = KXAbstractData::abstractDataWithPath(path);
        EXPECT_EQ(countOfOpenFiles(), before + 1);
    }
    EXPECT_FALSE(KXAbstractData::abstractDataWithPath(folder.path())); // Opened, then refused.
    EXPECT_EQ(countOfOpenFiles(), before);
}

namespace {

/// A reader whose file the system refuses to read, since it was opened for writing only.
KXFileData unreadable(TemporaryFolder const& folder)
{
    std::string const path = folder.write("file", filled(100, 'x'));
    return KXFileData(::open(path.c_str(), O_WRONLY), 100);
}

std::error_code const refused { EBADF, std::system_category() };

/// Standard input, closed as long as the object lives.
class ClosedStandardInput {
public:
    ClosedStandardInput()
        : _saved(::dup(STDIN_FILENO))
    {
        ::close(STDIN_FILENO);
    }
    ~ClosedStandardInput()
    {
        ::dup2(_saved, STDIN_FILENO);
        ::close(_saved);
    }

    static bool isClosed() { return ::fcntl(STDIN_FILENO, F_GETFD) < 0; }

private:
    int const _saved;
};

}

TEST(KXFileData, RemembersWhyTheSystemRefusedARead)
{
    TemporaryFolder const folder;
    LogCapture const log;
    auto reader = unreadable(folder);
    EXPECT_FALSE(reader.readError());
    EXPECT_EQ(reader.readUInt32OrZero(KXSwap::yes), 0u);
    EXPECT_EQ(reader.readError(), refused);
    Bytes target(50);
    EXPECT_FALSE(reader.readBytesTo(target.data(), target.size()));
    EXPECT_EQ(reader.readError(), refused);
    EXPECT_THAT(log.lines(),
        testing::ElementsAre(
            "Metadata: KXAbstractData->a file cannot be read: Bad file descriptor"));
}

TEST(KXFileData, FileThatEndsEarlyIsNoReadError)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", filled(100, 'x'));
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    files::resize_file(path, 0);
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 0u);
    reader->setOffset(200);
    EXPECT_EQ(reader->readUInt32OrZero(KXSwap::yes), 0u);
    EXPECT_FALSE(reader->readError());
}

TEST(KXFileData, TakesTheNumberOfNoStandardFile)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", filled(100, 'x'));
    ClosedStandardInput const closed;
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->readUInt8OrZero(), 'x');
    EXPECT_TRUE(closed.isClosed());
}

TEST(KXStandardFiles, FillsTheGapsAndLeavesThem)
{
    ClosedStandardInput const closed;
    {
        KXStandardFiles const kept;
        EXPECT_FALSE(closed.isClosed());
        EXPECT_EQ(::write(STDIN_FILENO, "x", 1), -1);
        EXPECT_GE(::fcntl(STDIN_FILENO, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        KXStandardFiles const again; // Finds nothing to fill.
    }
    EXPECT_TRUE(closed.isClosed());
}

TEST(KXStandardFiles, LeavesThoseThatThereAre)
{
    {
        KXStandardFiles const kept;
    }
    for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file)
        EXPECT_GE(::fcntl(file, F_GETFD), 0) << file;
}

TEST(KXFileData, SaysThatTheMachineHasNoMoreDescriptors)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("file", text("x"));
    LogCapture const log;
    EXPECT_FALSE(KXAbstractData::abstractDataWithPath(folder.path() / "missing"));
    EXPECT_TRUE(log.lines().empty());
    rlimit before;
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit const none { 0, before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    auto const reader = KXAbstractData::abstractDataWithPath(path);
    int const error = errno;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_FALSE(reader);
    EXPECT_EQ(error, EMFILE);
    EXPECT_THAT(log.lines(),
        testing::ElementsAre(
            "Metadata: KXAbstractData->a file cannot be opened: Too many open files"));
}
