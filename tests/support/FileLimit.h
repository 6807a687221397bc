#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

/// For as long as it lives this process can open no more files.
class FileLimit {
public:
    FileLimit()
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &_before), 0);
        int const next = ::open("/dev/null", O_RDONLY); // The lowest number that is free.
        ::close(next);
        rlimit const none { static_cast<rlim_t>(next), _before.rlim_max };
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~FileLimit() { ::setrlimit(RLIMIT_NOFILE, &_before); }
    FileLimit(FileLimit const&) = delete;
    FileLimit& operator=(FileLimit const&) = delete;

private:
    rlimit _before {};
};
