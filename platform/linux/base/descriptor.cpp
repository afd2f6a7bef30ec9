// Opens descriptors outside the range of the standard streams, and recognises the files that they refer to.
#include "base/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace layer {

Descriptor::~Descriptor()
{
    if (File < 0)
        return;
    const int saved = errno;
    close(File);
    errno = saved;
}

Descriptor OpenHigh(const char* path, int flags, mode_t mode)
{
    constexpr int farFromOthers = 512;
    constexpr int firstFree = STDERR_FILENO + 1;
    Descriptor opened(open(path, flags | O_CLOEXEC, mode));
    if (!opened)
        return opened;
    Descriptor high(fcntl(opened.get(), F_DUPFD_CLOEXEC, farFromOthers));
    if (high || opened.get() >= firstFree)
        return high ? std::move(high) : std::move(opened);
    return Descriptor(fcntl(opened.get(), F_DUPFD_CLOEXEC, firstFree));
}

FileIdentity::FileIdentity(const struct stat& status) : Device(status.st_dev), Inode(status.st_ino) {}

bool FileIdentity::IsOf(int file) const
{
    struct stat status {};
    return fstat(file, &status) == 0 && FileIdentity(status) == *this;
}

bool IsLost(int file, const FileIdentity& identity)
{
    struct stat status {};
    return fstat(file, &status) == 0 ? FileIdentity(status) != identity : errno == EBADF;
}

}  // namespace layer
