// Writers without a pipe to the process that started them.
#include "soak/linux/writer_process.h"

#include "testkit/file_content.h"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

#include <sys/prctl.h>

namespace soak {

void DieWithParent()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void MakeEndFile(const std::filesystem::path& folder)
{
    testkit::WriteFile(folder / "may-end", "");
}

void WaitForEndFile(const std::filesystem::path& folder)
{
    while (!std::filesystem::exists(folder / "may-end"))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

int DescriptorOf(const std::filesystem::path& file)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == file)
            return std::stoi(entry.path().filename().string());
    }
    throw std::runtime_error("the log is not open");
}

}  // namespace soak
