// What becomes of pictures that are encoded.

#include "support/PictureLoaderTest.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pictures;

namespace {

using KXPixbufImage = PictureLoaderTest;

}

TEST_F(KXPixbufImage, PictureThatNeedsMoreMemoryThanThereIsIsNotEncoded)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers have memory of their own";
#endif
    auto const image = solid(6'000, 6'000, red);
    pid_t const process = ::fork();
    if (process == 0) {
        // No more than it has already.
        rlimit const none { 0, 0 };
        ::setrlimit(RLIMIT_AS, &none);
        ::_exit(png(*image).empty() && jpg(*image).empty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}
