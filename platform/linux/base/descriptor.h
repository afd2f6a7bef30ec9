// A file descriptor with an owner that closes it.
#pragma once

#include <sys/types.h>
#include <utility>

struct stat;

namespace layer {

/// Owns a file descriptor and closes it on destruction. The destructor preserves `errno`, so that a function may return
/// with the `errno` of the call that failed.
class Descriptor {
public:
    Descriptor() = default;
    /// @param file what `open` or a similar call returned; a negative number means that the call failed
    explicit Descriptor(int file) : File(file) {}
    Descriptor(Descriptor&& other) noexcept : File(other.Release()) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        Descriptor former(std::exchange(File, other.Release()));
        return *this;
    }
    ~Descriptor();

    int get() const { return File; }
    /// Whether there is a descriptor.
    explicit operator bool() const { return File >= 0; }

    /// Gives up the descriptor without closing it.
    int Release() noexcept { return std::exchange(File, -1); }

private:
    int File = -1;
};

/// Opens a file with O_CLOEXEC and a descriptor of at least 512, or of at least 3 if the process may not have that
/// many. A program that closes all descriptors and then opens files gets the lowest numbers: its files must not get the
/// number of a log that is still written, and its messages must not go into a log that has the number of a standard
/// stream. @return no descriptor with `errno` set on failure
Descriptor OpenHigh(const char* path, int flags, mode_t mode = 0);

/// Which file a descriptor refers to. A program may close all descriptors, ours among them; the number can then belong
/// to a file of the program.
struct FileIdentity {
    dev_t Device = 0;
    ino_t Inode = 0;

    FileIdentity() = default;
    explicit FileIdentity(const struct stat& status);
    bool operator==(const FileIdentity&) const = default;

    /// Whether `file` still refers to this file.
    bool IsOf(int file) const;
};

/// Whether a descriptor no longer refers to the file that it was opened for: it was closed, or its number belongs to
/// another file. A status that cannot be read proves neither. To give the descriptor up then would keep its locks.
bool IsLost(int file, const FileIdentity& identity);

}  // namespace layer
