// What is promised when memory runs out: an operation may throw std::bad_alloc, and is then as if
// it had not been called.

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXSerialQueue.h"

#include "support/Allocations.h"
#include "support/Files.h"
#include "support/OpenFiles.h"

#include <gtest/gtest.h>

#include <future>
#include <new>

TEST(OutOfMemory, WorkRunsOnceUnlessItsSubmissionFailed)
{
    bool hasFailed = true;
    for (std::uint64_t count = 0; hasFailed; ++count) {
        ASSERT_LT(count, 100u);
        KXSerialQueue queue("org.example.a-name-longer-than-threads-have");
        std::atomic<int> runs { 0 };
        bool isSubmitted = true;
        {
            FailingAllocation const failing(count);
            try {
                queue.async([&runs] { ++runs; });
            } catch (std::bad_alloc const&) {
                isSubmitted = false;
            }
            hasFailed = failing.hasFailed();
        }
        if (isSubmitted)
            while (!runs) { } // Without another submission.
        std::promise<void> done;
        queue.async([&done] { done.set_value(); });
        done.get_future().wait();
        EXPECT_EQ(runs, isSubmitted) << count;
    }
}

TEST(OutOfMemory, FilesAreClosedThatNobodyCanRead)
{
    TemporaryFolder const folder;
    std::string const path = folder.write("a file with a long name", build::Bytes(10, 0));
    std::size_t const openBefore = countOfOpenFiles();
    bool hasFailed = true;
    for (std::uint64_t count = 0; hasFailed; ++count) {
        ASSERT_LT(count, 100u);
        {
            FailingAllocation const failing(count);
            try {
                EXPECT_TRUE(KXAbstractData::abstractDataWithPath(path));
            } catch (std::bad_alloc const&) {
            }
            hasFailed = failing.hasFailed();
        }
        EXPECT_EQ(countOfOpenFiles(), openBefore) << count;
    }
}
