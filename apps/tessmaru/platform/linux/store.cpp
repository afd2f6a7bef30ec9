// The settings store on Linux: a file in the export format.
#include "platform/store.h"

#include "cli/session.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool::platform {
namespace {

bool WriteAll(int file, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = write(file, content.data(), content.size());
        if (count >= 0)
            content.remove_prefix(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
    return true;
}

}  // namespace

std::string MachineStoreLocation()
{
    const char* const chosen = std::getenv("VELTRIX_REGISTRY");
    return chosen != nullptr && *chosen != '\0' ? chosen : "/etc/veltrix/registry.reg";
}

Store ReadMachineStore()
{
    return ReadStoreFile(MachineStoreLocation());
}

bool IsStoreFile()
{
    return true;
}

void WriteNewFile(const std::string& path, std::string_view content)
{
    constexpr mode_t mode = 0644;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file < 0)
        throw Failure(Exit::unreadable, "cannot create " + path + ": " + std::strerror(errno));
    const bool isWritten = fchmod(file, mode) == 0 && WriteAll(file, content) && fsync(file) == 0;
    const int error = errno;
    close(file);
    if (isWritten)
        return;
    unlink(path.c_str());
    throw Failure(Exit::unreadable, "cannot write " + path + ": " + std::strerror(error));
}

}  // namespace tool::platform
