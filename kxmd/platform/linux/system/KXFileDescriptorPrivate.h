#pragma once

#include <unistd.h>
#include <utility>

/// An open file that is closed with this object.
class KXFileDescriptor {
public:
    KXFileDescriptor() = default;
    explicit KXFileDescriptor(int descriptor)
        : _descriptor(descriptor)
    {
    }
    KXFileDescriptor(KXFileDescriptor&& other) noexcept
        : _descriptor(std::exchange(other._descriptor, -1))
    {
    }
    KXFileDescriptor& operator=(KXFileDescriptor&& other) noexcept
    {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }
    ~KXFileDescriptor()
    {
        if (isOpen())
            ::close(_descriptor);
    }

    /// False when there is no file.
    [[nodiscard]] bool isOpen() const { return _descriptor >= 0; }
    /// Its number; negative when there is no file.
    [[nodiscard]] int get() const { return _descriptor; }

private:
    int _descriptor { -1 };
};
