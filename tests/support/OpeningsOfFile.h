#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

/// Sees, from when it is made, whether anybody opens a file.
class OpeningsOfFile {
public:
    explicit OpeningsOfFile(std::string const& path)
    {
        EXPECT_GE(_events, 0) << "no more of them are allowed";
        EXPECT_GE(::inotify_add_watch(_events, path.c_str(), IN_OPEN), 0);
    }
    ~OpeningsOfFile() { ::close(_events); }
    OpeningsOfFile(OpeningsOfFile const&) = delete;
    OpeningsOfFile& operator=(OpeningsOfFile const&) = delete;

    /// Whether there was one since it was made, or since it was asked.
    bool any()
    {
        std::array<char, 4096> events;
        return ::read(_events, events.data(), events.size()) > 0;
    }

private:
    int const _events { ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC) };
};
