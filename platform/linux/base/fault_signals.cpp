// The layer's signal handler for processor faults. All families share it, so that it is installed and removed once,
// whichever family needs it first.
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

struct SignalState {
    std::atomic<bool> Installed{false};
    struct sigaction Former {};  // the action before the layer's handler was installed
};

std::array<SignalState, NSIG> signalStates;  // indexed by signal number
std::mutex installLock;

std::array<std::atomic<layer::FaultHandler>, 2> handlers{};  // indexed by FaultStage

/// @param disposition SIG_DFL or SIG_IGN
bool HasDisposition(const struct sigaction& action, sighandler_t disposition)
{
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == disposition;
}

/// Makes the process end by this signal as soon as the handler returns. A recurring fault does so by itself. A raised
/// signal stays pending until then, as it is blocked in its own handler.
void EndProcess(int signal, bool recurs)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    if (!recurs)
        raise(signal);
}

/// Blocks the signals that the kernel would have blocked for a handler with this action: those that were blocked at the
/// fault, those of its `sa_mask`, and its own unless it has SA_NODEFER. Ends with the former mask.
class HandlerMask {
public:
    HandlerMask(int signal, const struct sigaction& action, const void* context)
    {
        sigset_t mask;
        sigorset(&mask, &static_cast<const ucontext_t*>(context)->uc_sigmask, &action.sa_mask);
        if ((static_cast<unsigned>(action.sa_flags) & SA_NODEFER) == 0)
            sigaddset(&mask, signal);
        pthread_sigmask(SIG_SETMASK, &mask, &Former);
    }
    HandlerMask(const HandlerMask&) = delete;
    HandlerMask& operator=(const HandlerMask&) = delete;
    ~HandlerMask() { pthread_sigmask(SIG_SETMASK, &Former, nullptr); }

private:
    sigset_t Former;
};

/// Does what would have happened without the layer's handler.
void ForwardToFormerHandler(int signal, siginfo_t* info, void* context)
{
    struct sigaction& stored = signalStates[static_cast<unsigned>(signal)].Former;
    const struct sigaction former = stored;
    const bool sent = info->si_code <= 0;  // sent with `kill` or similar, not caused by a fault
    // The kernel does not let a process ignore a fault: it treats SIG_IGN like SIG_DFL then.
    if (HasDisposition(former, SIG_IGN) && sent)
        return;
    if (HasDisposition(former, SIG_DFL) || HasDisposition(former, SIG_IGN)) {
        EndProcess(signal, !sent && layer::FaultRecurs(context));
        return;
    }
    if ((static_cast<unsigned>(former.sa_flags) & SA_RESETHAND) != 0) {
        stored = {};
        stored.sa_handler = SIG_DFL;
    }
    const HandlerMask mask(signal, former, context);
    if ((former.sa_flags & SA_SIGINFO) != 0)
        former.sa_sigaction(signal, info, context);
    else
        former.sa_handler(signal);
}

/// Clears the alignment check flag. The kernel leaves it as the failing code had set it, and the handler's own
/// unaligned accesses would fault again.
void DisableAlignmentChecks()
{
    auto flags = __readeflags();
    constexpr decltype(flags) alignmentChecks = 0x40000;
    if ((flags & alignmentChecks) != 0)
        __writeeflags(flags & ~alignmentChecks);
}

/// Calls the handlers in the order of their stages. @return whether one of them dealt with the fault
bool RunFaultHandlers(int signal, const siginfo_t& info, void* context)
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
    DisableAlignmentChecks();
    if (!RunFaultHandlers(signal, *info, context))
        ForwardToFormerHandler(signal, info, context);
}

void InstallHandler(int signal)
{
    SignalState& state = signalStates[static_cast<unsigned>(signal)];
    if (state.Installed.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> guard(installLock);
    if (state.Installed.load(std::memory_order_relaxed))
        return;
    // The former action is stored before the handler is installed: the handler may run immediately and needs it.
    sigaction(signal, nullptr, &state.Former);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;  // after a stack overflow the normal stack cannot be used
    sigaction(signal, &action, nullptr);
    state.Installed.store(true, std::memory_order_release);
}

/// Restores the former actions. A handler that another library has installed since then is not replaced.
void RestoreFormerHandlers()
{
    for (const int signal : Signals) {
        SignalState& state = signalStates[static_cast<unsigned>(signal)];
        struct sigaction current {};
        if (state.Installed.exchange(false) && sigaction(signal, nullptr, &current) == 0 &&
            (current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == OnFault)
            sigaction(signal, &state.Former, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = RestoreFormerHandlers};

}  // namespace

void layer::HandleFaults(FaultStage stage, FaultHandler handler, std::initializer_list<int> signals)
{
    RegisterHooks(hooks);
    handlers[static_cast<std::size_t>(stage)].store(handler, std::memory_order_release);
    for (const int signal : signals)
        InstallHandler(signal);
}

bool layer::FaultRecurs(const void* context)
{
    const auto vector =
        static_cast<std::uintptr_t>(static_cast<const ucontext_t*>(context)->uc_mcontext.gregs[REG_TRAPNO]);
    return vector != debug && vector != breakpoint && vector != overflow;
}
