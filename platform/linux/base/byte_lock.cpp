// Implements locks of bytes by fcntl.
#include "base/byte_lock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>

namespace layer {

bool SetByteLock(int file, off_t byte, ByteLock kind)
{
    struct flock lock {};
    lock.l_type = kind == ByteLock::none ? F_UNLCK : kind == ByteLock::shared ? F_RDLCK : F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool WaitForByteLock(int file, off_t byte, ByteLock kind, Deadline& deadline)
{
    constexpr std::int64_t shortest = 100'000;
    constexpr std::int64_t longest = 10'000'000;
    for (std::int64_t pause = shortest; !SetByteLock(file, byte, kind); pause = std::min(2 * pause, longest)) {
        if (!IsLockConflict(errno) && errno != EINTR)
            return false;
        const std::int64_t left = deadline.Left(pause);
        if (left == 0) {
            errno = ETIMEDOUT;
            return false;
        }
        const timespec time{0, static_cast<long>(left)};
        nanosleep(&time, nullptr);
    }
    return true;
}

bool IsLockConflict(int error)
{
    return error == EAGAIN || error == EACCES;
}

}  // namespace layer
