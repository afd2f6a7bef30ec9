// One handler for all of the layer, so that it is set and taken back as one, in whatever order its families come.
#include "fault_signals.h"

#include "faults.h"
#include "page_arena.h"
#include "process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <x86intrin.h>

namespace {

constexpr std::array<int, 5> Signals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

struct Watched {
    std::atomic<bool> Is{false};
    struct sigaction Before {};
};

std::array<Watched, NSIG> watched;
std::mutex watching;

bool HasPlainHandler(const struct sigaction& action, sighandler_t handler)
{
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == handler;
}

/// Ends the process by this signal when the handler returns.
void EndBy(int signal, bool comesAgain)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    if (!comesAgain)
        raise(signal);
}

/// What would have happened without the layer's handler.
void PassOn(int signal, siginfo_t* info, void* context)
{
    struct sigaction& before = watched[static_cast<unsigned>(signal)].Before;
    const struct sigaction former = before;
    const bool sent = info->si_code <= 0;  // by a process, not by a fault
    if (HasPlainHandler(former, SIG_IGN) && sent)
        return;
    if (HasPlainHandler(former, SIG_DFL) || HasPlainHandler(former, SIG_IGN)) {
        EndBy(signal, !sent && layer::FaultComesAgain(context));
        return;
    }
    if ((static_cast<unsigned>(former.sa_flags) & SA_RESETHAND) != 0) {
        before = {};
        before.sa_handler = SIG_DFL;
    }
    if ((former.sa_flags & SA_SIGINFO) != 0)
        former.sa_sigaction(signal, info, context);
    else
        former.sa_handler(signal);
}

bool RepairPage(int signal, const siginfo_t& info)
{
    const int savedError = errno;
    const bool repaired = signal == SIGBUS && info.si_code > 0 && layer::RepairGuarded(info.si_addr);
    errno = savedError;
    return repaired;
}

/// The kernel enters a handler with the checks of the code that failed, which would fail in here as well.
void StopAlignmentChecks()
{
    auto flags = __readeflags();
    constexpr decltype(flags) alignmentChecks = 0x40000;
    if ((flags & alignmentChecks) != 0)
        __writeeflags(flags & ~alignmentChecks);
}

void OnFault(int signal, siginfo_t* info, void* context)
{
    StopAlignmentChecks();
    if (!RepairPage(signal, *info) && !layer::TranslateFault(signal, *info, context))
        PassOn(signal, info, context);
}

}  // namespace

void layer::WatchFaultSignal(int signal)
{
    Watched& state = watched[static_cast<unsigned>(signal)];
    if (state.Is.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> guard(watching);
    if (state.Is.load(std::memory_order_relaxed))
        return;
    // Known before the handler may run.
    sigaction(signal, nullptr, &state.Before);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaction(signal, &action, nullptr);
    state.Is.store(true, std::memory_order_release);
}

void layer::ReleaseFaultSignals()
{
    for (const int signal : Signals) {
        Watched& state = watched[static_cast<unsigned>(signal)];
        struct sigaction current {};
        if (state.Is.exchange(false) && sigaction(signal, nullptr, &current) == 0 &&
            (current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == OnFault)
            sigaction(signal, &state.Before, nullptr);
    }
}
