// Processes of a test by fork, gates by named pipes.
#include "processes.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

Gate::Gate(const std::string& path)
{
    // Open to both sides, so that neither waits for the other to open it.
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

Process::Process(Entry entry, Function work, const void* world)
{
    std::fflush(nullptr);
    const pid_t process = fork();
    if (process == 0) {
        entry(work, world);
        std::fflush(nullptr);
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    Id = static_cast<std::uint32_t>(process);
    Handle = process;
}

Process::~Process()
{
    if (Handle > 0)
        Kill();
}

int Process::Wait()
{
    int status = -1;
    waitpid(static_cast<pid_t>(Handle), &status, 0);
    Handle = -1;
    return status;
}

void Process::Kill()
{
    kill(static_cast<pid_t>(Handle), SIGKILL);
    Wait();
}

void Die()
{
    raise(SIGKILL);
    std::abort();
}

int RunStarted()
{
    return 1;  // a forked process never gets to main
}

}  // namespace support
