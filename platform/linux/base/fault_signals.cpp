// One signal handler for the whole layer, so that it is installed and removed once, whichever family needs it first.
#include "base/fault_signals.h"

#include "base/lifecycle.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <sys/ucontext.h>
#include <x86intrin.h>

namespace {

constexpr std::array<int, 5> Signals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

struct Watched {
    std::atomic<bool> Is{false};
    struct sigaction Before {};
};

std::array<Watched, NSIG> watched;
std::mutex watching;

std::array<std::atomic<layer::FaultHandler>, 2> handlers{};  // one for each stage

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

/// Does what would have happened without the layer's handler.
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

/// The kernel enters a handler with the failing code's alignment checks on. The handler would fail by them too.
void StopAlignmentChecks()
{
    auto flags = __readeflags();
    constexpr decltype(flags) alignmentChecks = 0x40000;
    if ((flags & alignmentChecks) != 0)
        __writeeflags(flags & ~alignmentChecks);
}

bool IsHandled(int signal, const siginfo_t& info, void* context)
{
    for (const auto& handler : handlers) {
        const layer::FaultHandler handle = handler.load(std::memory_order_acquire);
        if (handle != nullptr && handle(signal, info, context))
            return true;
    }
    return false;
}

void OnFault(int signal, siginfo_t* info, void* context)
{
    StopAlignmentChecks();
    if (!IsHandled(signal, *info, context))
        PassOn(signal, info, context);
}

void Watch(int signal)
{
    Watched& state = watched[static_cast<unsigned>(signal)];
    if (state.Is.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> guard(watching);
    if (state.Is.load(std::memory_order_relaxed))
        return;
    // Read first: the handler may run as soon as it is installed, and needs the former action.
    sigaction(signal, nullptr, &state.Before);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaction(signal, &action, nullptr);
    state.Is.store(true, std::memory_order_release);
}

/// Restores the former actions. A handler that another library has installed since then stays.
void StopWatching()
{
    for (const int signal : Signals) {
        Watched& state = watched[static_cast<unsigned>(signal)];
        struct sigaction current {};
        if (state.Is.exchange(false) && sigaction(signal, nullptr, &current) == 0 &&
            (current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == OnFault)
            sigaction(signal, &state.Before, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = StopWatching};

}  // namespace

void layer::HandleFaults(FaultStage stage, FaultHandler handler, std::initializer_list<int> signals)
{
    RegisterHooks(hooks);
    handlers[static_cast<std::size_t>(stage)].store(handler, std::memory_order_release);
    for (const int signal : signals)
        Watch(signal);
}

bool layer::FaultComesAgain(const void* context)
{
    const auto vector =
        static_cast<std::uintptr_t>(static_cast<const ucontext_t*>(context)->uc_mcontext.gregs[REG_TRAPNO]);
    return vector != debug && vector != breakpoint && vector != overflow;
}
