// Members are started afresh, by fork and exec: nothing of the starting process lives on in them.
#include "tools/family.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {
namespace {

[[noreturn]] void Throw(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

int WaitForEnd(pid_t process)
{
    int status = -1;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

}  // namespace

void* MapFile(const std::filesystem::path& path, std::size_t size)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0)
        Throw(errno, path.string());
    void* memory = MAP_FAILED;
    if (ftruncate(file, static_cast<off_t>(size)) == 0)
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    const int error = errno;
    close(file);
    if (memory == MAP_FAILED)
        Throw(error, path.string());
    return memory;
}

void UnmapFile(void* memory, std::size_t size)
{
    munmap(memory, size);
}

std::filesystem::path ThisProgram()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

std::vector<std::string> Arguments(int count, char** arguments)
{
    return {arguments + 1, arguments + count};
}

struct Family::Inner {
    void CloseGate()
    {
        if (GateOut >= 0)
            close(GateOut);
        GateOut = -1;
    }

    std::string Program;
    int GateIn = -1;   // the children's end
    int GateOut = -1;  // closes when they may leave
    std::vector<pid_t> Members{};
};

Family::Family(const std::filesystem::path& program) : Held(new Inner{program.string()})
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        Throw(errno, "pipe");
    Held->GateIn = ends[0];
    Held->GateOut = ends[1];
}

Family::~Family()
{
    for (const pid_t process : Held->Members) {
        kill(process, SIGKILL);
        WaitForEnd(process);
    }
    Held->CloseGate();
    close(Held->GateIn);
}

std::uint32_t Family::Start(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = arguments;
    std::vector<char*> pointers = {Held->Program.data()};
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, Held->GateIn, STDIN_FILENO);
    pid_t process = 0;
    const int error = posix_spawn(&process, Held->Program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        Throw(error, Held->Program);
    Held->Members.push_back(process);
    return static_cast<std::uint32_t>(process);
}

void Family::Kill(std::uint32_t process)
{
    const auto member = static_cast<pid_t>(process);
    kill(member, SIGKILL);
    WaitForEnd(member);
    std::erase(Held->Members, member);
}

void Family::Stop(std::uint32_t process)
{
    kill(static_cast<pid_t>(process), SIGSTOP);
}

void Family::Continue(std::uint32_t process)
{
    kill(static_cast<pid_t>(process), SIGCONT);
}

bool Family::AllRun() const
{
    for (const pid_t process : Held->Members) {
        siginfo_t ended{};
        if (waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0)
            return false;
    }
    return true;
}

bool Family::Leave()
{
    Held->CloseGate();
    bool sound = true;
    for (const pid_t process : Held->Members) {
        const int status = WaitForEnd(process);
        sound = sound && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    Held->Members.clear();
    return sound;
}

void WaitToLeave()
{
    char byte;
    ssize_t got;
    do {
        got = read(STDIN_FILENO, &byte, 1);
    } while (got > 0 || (got < 0 && errno == EINTR));
}

}  // namespace tools
