// A file descriptor with an owner that closes it.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace layer {

/// Owns a file descriptor and closes it on destruction. The destructor preserves `errno`, so that a function may return
/// with the `errno` of the call that failed.
class Descriptor {
public:
    /// @param file what `open` or a similar call returned; a negative number means that the call failed
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
    /// Whether there is a descriptor.
    explicit operator bool() const { return File >= 0; }

private:
    int File;
};

}  // namespace layer
