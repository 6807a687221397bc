#pragma once

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <span>
#include <sys/resource.h>
#include <unistd.h>

/// For as long as it lives this process can open no more files; programs that it starts can.
class FileLimit {
public:
    FileLimit()
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &_before), 0);
        _files[0] = openFile(); // The lowest number that is free.
        rlimit const few { static_cast<rlim_t>(_files[0]) + _files.size(), _before.rlim_max };
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        for (int& file : std::span(_files).subspan(1))
            file = openFile();
        EXPECT_EQ(openFile(), -1);
    }
    ~FileLimit()
    {
        for (int const file : _files)
            ::close(file);
        ::setrlimit(RLIMIT_NOFILE, &_before);
    }
    FileLimit(FileLimit const&) = delete;
    FileLimit& operator=(FileLimit const&) = delete;

private:
    static int openFile() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

    rlimit _before {};
    std::array<int, 16> _files {};
};
