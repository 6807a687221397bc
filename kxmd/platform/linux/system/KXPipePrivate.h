#pragma once

#include <fcntl.h>
#include <unistd.h>
#include <utility>

/// A pipe from another program to us. Neither end is seen by programs that are not given it.
class KXPipe {
public:
    KXPipe()
    {
        // Leaves them as they are when it fails.
        [[maybe_unused]] int const result = ::pipe2(_ends, O_CLOEXEC);
    }
    ~KXPipe()
    {
        closeWritingEnd();
        if (isOpen())
            ::close(_ends[0]);
    }
    KXPipe(KXPipe const&) = delete;
    KXPipe& operator=(KXPipe const&) = delete;

    /// False when the system had none left.
    bool isOpen() const { return _ends[0] >= 0; }
    int readingEnd() const { return _ends[0]; }
    int writingEnd() const { return _ends[1]; }

    /// Call this once the other program has its own copy; until then reading never reaches the end.
    void closeWritingEnd()
    {
        if (_ends[1] >= 0)
            ::close(std::exchange(_ends[1], -1));
    }

private:
    int _ends[2] { -1, -1 };
};
