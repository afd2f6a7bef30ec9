// Processes on Linux.
#include "testkit/process.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testkit {
namespace {

/// Starts a program by fork and exec: it inherits no state of this process.
pid_t Spawn(const std::string& program, std::vector<std::string> words, const Process::Streams& streams)
{
    words.insert(words.begin(), program);
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (streams.Input >= 0)
        posix_spawn_file_actions_adddup2(&actions, static_cast<int>(streams.Input), STDIN_FILENO);
    if (streams.DiscardOutput)
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    const int error = posix_spawnp(&process, program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program);
    return process;
}

}  // namespace

Process::Process(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const Streams& streams)
    : Handle(Spawn(program.string(), arguments, streams)), Id(static_cast<std::uint32_t>(Handle))
{
}

Process::Process(Process&& other) noexcept : Handle(std::exchange(other.Handle, NoHandle)), Id(other.Id) {}

Process::~Process()
{
    if (!IsOver())
        Kill();
}

bool Process::IsRunning() const
{
    siginfo_t ended{};
    return !IsOver() && waitid(P_PID, Id, &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == 0;
}

int Process::Wait()
{
    int status = -1;
    while (waitpid(static_cast<pid_t>(Handle), &status, 0) < 0 && errno == EINTR) {
    }
    Handle = NoHandle;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Process::Kill()
{
    kill(static_cast<pid_t>(Handle), SIGKILL);
    return Wait();
}

void Process::Stop() const
{
    kill(static_cast<pid_t>(Handle), SIGSTOP);
    siginfo_t stopped{};
    waitid(P_PID, Id, &stopped, WSTOPPED | WEXITED | WNOWAIT);
}

void Process::Continue() const
{
    kill(static_cast<pid_t>(Handle), SIGCONT);
}

}  // namespace testkit
