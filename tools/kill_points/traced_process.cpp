// The tracer. It reads and changes the registers of x86-64.
#include "traced_process.h"

#include "testkit/process.h"
#include "testkit/program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kill_points {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int SystemCallStop = SIGTRAP | 0x80;
constexpr unsigned long long NoCall = ~0ULL;

/// While it exists, a signal interrupts waits of this process now and then, so that they can end at a deadline.
class Interruptions {
public:
    Interruptions()
    {
        struct sigaction handler {};
        handler.sa_handler = [](int) {};
        sigaction(SIGALRM, &handler, nullptr);
        const itimerval often{{0, 100'000}, {0, 100'000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;
    ~Interruptions()
    {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
    }
};

class Tracer {
public:
    Tracer(const std::vector<std::string>& words, const std::vector<Disturbance>& disturbances,
           const std::atomic<std::uint32_t>& uncounted)
        : Disturbances(disturbances), Uncounted(uncounted), Target(testkit::ThisProgram(), words),
          Id(static_cast<pid_t>(Target.id()))
    {
    }

    Course Run()
    {
        int signal = 0;
        if (!WaitForStop(signal))
            return Result;
        Call(PTRACE_SETOPTIONS, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        const int descriptors = CountDescriptors();
        // The first stop is the process's own SIGSTOP, which it does not get.
        for (int deliver = 0;; deliver = signal == SystemCallStop ? 0 : signal) {
            Call(PTRACE_SYSCALL, deliver);
            if (!WaitForStop(signal))
                return Result;
            if (signal != SystemCallStop)
                continue;
            if (IsInside ? !OnExit() : !OnEntry(descriptors))
                return Result;
        }
    }

private:
    /// Waits for the next stop. @return false if the process has ended or its time is over
    bool WaitForStop(int& signal)
    {
        siginfo_t state{};
        while (waitid(P_PID, Target.id(), &state, WEXITED | WSTOPPED | WNOWAIT) != 0 && errno == EINTR) {
            if (Clock::now() > Deadline)
                break;
        }
        if (Clock::now() > Deadline)
            return EndByKill(Course::End::hung);
        if (state.si_code == CLD_EXITED || state.si_code == CLD_KILLED || state.si_code == CLD_DUMPED) {
            const int status = Target.Wait();
            Result.How = status < 0 ? Course::End::crashed : Course::End::exited;
            Result.Status = status < 0 ? -status : status;
            return false;
        }
        signal = state.si_status;
        waitpid(Id, nullptr, 0);
        return true;
    }

    /// @return false, which ends the run
    bool EndByKill(Course::End how)
    {
        Target.Kill();
        Result.How = how;
        return false;
    }

    /// @return false if the process was killed
    bool OnEntry(int descriptors)
    {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, Id, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            return true;  // the end of the call that sent SIGSTOP
        IsInside = true;
        Current = nullptr;
        if (Uncounted != 0)
            return true;
        SystemCall call{static_cast<long>(info.entry.nr), {}};
        std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.Arguments.begin());
        if (call.Number == SYS_exit_group)
            Result.DescriptorsLeft = CountDescriptors() - descriptors;
        for (const Disturbance& disturbance : Disturbances) {
            if (disturbance.Call == Result.Calls.size())
                Current = &disturbance;
        }
        Result.Calls.push_back(call);
        return Current == nullptr || DisturbEntry();
    }

    bool DisturbEntry()
    {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, Id, nullptr, &registers);
        const bool isClose = registers.orig_rax == SYS_close;
        if (Current->What == Act::killBefore || (Current->What == Act::fail && !isClose))
            registers.orig_rax = NoCall;
        if (Current->What == Act::killInside || Current->What == Act::cut)
            registers.rdx = registers.rdx / 2 | 1;  // an odd number: half a unit is left, too
        ptrace(PTRACE_SETREGS, Id, nullptr, &registers);
        return Current->What != Act::killBefore || EndByKill(Course::End::killed);
    }

    /// @return false if the process was killed
    bool OnExit()
    {
        IsInside = false;
        if (Current == nullptr || Current->What == Act::cut)
            return true;
        if (Current->What != Act::fail)
            return EndByKill(Course::End::killed);
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, Id, nullptr, &registers);
        // brk reports a failure by an end of the heap that was not requested.
        const bool isBreak = Result.Calls.back().Number == SYS_brk;
        registers.rax = isBreak ? 0 : static_cast<unsigned long long>(-Current->Error);
        ptrace(PTRACE_SETREGS, Id, nullptr, &registers);
        return true;
    }

    int CountDescriptors() const
    {
        const std::filesystem::directory_iterator all("/proc/" + std::to_string(Id) + "/fd");
        return static_cast<int>(std::distance(begin(all), end(all)));
    }

    void Call(__ptrace_request request, int data)
    {
        if (ptrace(request, Id, nullptr, data) != 0)
            throw std::system_error(errno, std::generic_category(), "ptrace");
    }

    const std::vector<Disturbance>& Disturbances;
    const std::atomic<std::uint32_t>& Uncounted;
    testkit::Process Target;
    const pid_t Id;
    const Interruptions Interrupt;
    const Clock::time_point Deadline = Clock::now() + TimeLimit;
    bool IsInside = false;
    const Disturbance* Current = nullptr;
    Course Result;
};

}  // namespace

Course Trace(const std::vector<std::string>& words, const std::vector<Disturbance>& disturbances,
             const std::atomic<std::uint32_t>& uncounted)
{
    return Tracer(words, disturbances, uncounted).Run();
}

bool StopForTracer()
{
    return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0;
}

}  // namespace kill_points
