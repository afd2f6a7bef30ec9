// The owner of a file descriptor.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace layer {

/// Closes its descriptor at the end of its life and leaves `errno` unchanged.
class Descriptor {
public:
    explicit Descriptor(int file) : File(file) {}
    Descriptor(Descriptor&& other) noexcept : File(std::exchange(other.File, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor()
    {
        const int saved = errno;
        if (File >= 0)
            close(File);
        errno = saved;
    }

    int get() const { return File; }
    explicit operator bool() const { return File >= 0; }

private:
    int File;
};

}  // namespace layer
