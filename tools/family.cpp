// Members are started afresh, by fork and exec: nothing of the starting process lives on in them.
#include "family.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
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

ScratchFolder::ScratchFolder(const std::filesystem::path& parent)
{
    std::string pattern = (parent / "tessmaru-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        Throw(errno, pattern);
    Folder = pattern;
}

ScratchFolder::~ScratchFolder()
{
    if (Kept)
        return;
    std::error_code ignored;
    std::filesystem::remove_all(Folder, ignored);
}

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

Board::Board(const std::filesystem::path& path, unsigned processes, unsigned threads)
    : ProcessCount(processes), ThreadCount(threads),
      Reports(static_cast<Report*>(MapFile(path, sizeof(Report) * processes * threads)))
{
}

Board::~Board()
{
    munmap(Reports, sizeof(Report) * ProcessCount * ThreadCount);
}

Report& Board::At(unsigned process, unsigned thread) const
{
    if (process >= ProcessCount || thread >= ThreadCount)
        throw std::out_of_range("no such report");
    return Reports[process * ThreadCount + thread];
}

Family::Family(std::filesystem::path program) : Program(std::move(program))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        Throw(errno, "pipe");
    GateIn = ends[0];
    GateOut = ends[1];
}

Family::~Family()
{
    for (const pid_t process : Members) {
        kill(process, SIGKILL);
        WaitForEnd(process);
    }
    CloseGate();
    close(GateIn);
}

pid_t Family::Start(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = arguments;
    std::vector<char*> pointers = {Program.data()};
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, GateIn, STDIN_FILENO);
    pid_t process = 0;
    const int error = posix_spawn(&process, Program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        Throw(error, Program);
    Members.push_back(process);
    return process;
}

void Family::Kill(pid_t process)
{
    kill(process, SIGKILL);
    WaitForEnd(process);
    std::erase(Members, process);
}

bool Family::AllRun() const
{
    for (const pid_t process : Members) {
        siginfo_t ended{};
        if (waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0)
            return false;
    }
    return true;
}

bool Family::Leave()
{
    CloseGate();
    bool sound = true;
    for (const pid_t process : Members) {
        const int status = WaitForEnd(process);
        sound = sound && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    Members.clear();
    return sound;
}

void Family::CloseGate()
{
    if (GateOut >= 0)
        close(GateOut);
    GateOut = -1;
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
