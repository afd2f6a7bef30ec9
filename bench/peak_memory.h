// The peak memory of this process: the most that has been resident so far.
#pragma once

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace bench {

/// In kB, as the kernel reports it; 0 if it does not. Reads into a buffer on the stack, to add nothing itself.
inline long PeakMemory()
{
    char status[4096] = {};
    const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    const ssize_t got = read(file, status, sizeof status - 1);
    close(file);
    const char* line = got > 0 ? std::strstr(status, "VmHWM:") : nullptr;
    return line == nullptr ? 0 : std::strtol(line + 6, nullptr, 10);
}

}  // namespace bench
