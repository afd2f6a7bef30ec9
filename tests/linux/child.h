// Child processes of a test, and gates at which processes wait for each other.
#pragma once

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

#include <type_traits>

namespace support {

/// Closed at first; what passes waits until somebody opens it, once for each passing.
class PipeGate {
public:
    PipeGate()
    {
        if (pipe(Ends) != 0)
            std::abort();
    }
    PipeGate(const PipeGate&) = delete;
    PipeGate& operator=(const PipeGate&) = delete;
    ~PipeGate()
    {
        close(Ends[0]);
        close(Ends[1]);
    }

    void Open() const
    {
        if (write(Ends[1], "x", 1) != 1)
            std::abort();
    }
    void Pass() const
    {
        char byte = 0;
        if (read(Ends[0], &byte, 1) != 1)
            std::abort();
    }

private:
    int Ends[2]{};
};

/// A forked process that runs `work` and ends with its result (0 for none), without the destructors of the parent's
/// objects. Killed at the end of the test if it is still there.
class Child {
public:
    template <class Work>
    explicit Child(Work work) : Pid(fork())
    {
        if (Pid != 0)
            return;
        int result = 99;
        try {
            if constexpr (std::is_void_v<decltype(work())>) {
                work();
                result = 0;
            } else {
                result = work();
            }
        } catch (...) {
            result = 98;
        }
        _exit(result);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        if (Pid > 0)
            Kill();
    }

    pid_t pid() const { return Pid; }
    void Signal(int signal) const { kill(Pid, signal); }

    /// The exit status, or minus the signal that ended it.
    int Wait()
    {
        int status = 0;
        waitpid(Pid, &status, 0);
        Pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int Kill()
    {
        Signal(SIGKILL);
        return Wait();
    }

    /// Stops the process; returns when it stands.
    void Stop() const
    {
        Signal(SIGSTOP);
        waitpid(Pid, nullptr, WUNTRACED);
    }

private:
    pid_t Pid;
};

}  // namespace support
