// Gates on Linux: named pipes.
#include "testkit/gate.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace testkit {

Gate::Gate(const std::filesystem::path& path)
{
    // Opened for both directions, so that the call does not wait for the other side.
    if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST)
        std::abort();
    Handle = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (Handle < 0)
        std::abort();
}

Gate::~Gate()
{
    close(static_cast<int>(Handle));
}

void Gate::Open() const
{
    if (write(static_cast<int>(Handle), "x", 1) != 1)
        std::abort();
}

void Gate::Pass() const
{
    char byte = 0;
    if (read(static_cast<int>(Handle), &byte, 1) != 1)
        std::abort();
}

}  // namespace testkit
