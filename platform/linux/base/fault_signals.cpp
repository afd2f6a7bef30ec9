// The layer's signal handler for processor faults. All families share it, so that it is installed and removed once,
// whichever family needs it first.
#include "base/fault_signals.h"

#include "base/former_action.h"
#include "base/handle.h"
#include "base/lifecycle.h"

#include <array>
#include <atomic>
#include <dlfcn.h>
#include <mutex>
#include <sys/ucontext.h>
#include <x86intrin.h>

namespace {

constexpr std::array<int, 5> Signals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

/// The former actions of a signal, the oldest first. There is more than one if a program has replaced the layer's
/// handler and the layer has then been installed again.
struct SignalState {
    std::atomic<std::size_t> Count{0};
    std::array<layer::FormerAction, 4> Former;

    layer::FormerAction& Latest() { return Former[Count.load(std::memory_order_acquire) - 1]; }
};

std::array<SignalState, NSIG> signalStates;  // indexed by signal number

SignalState& StateOf(int signal)
{
    return signalStates[static_cast<unsigned>(signal)];
}

std::array<std::atomic<layer::FaultHandler>, 2> handlers{};  // indexed by FaultStage

/// The former action that the calling thread runs. If it was installed after the layer's handler, it may call that
/// handler, which then continues with the action before it.
struct Forwarding {
    const siginfo_t* Info;
    std::uintptr_t Frame;
    std::size_t Level;  // the number of older actions
};

// Of the initial-exec model: the signal handler reads it, and other models may call a function that allocates.
constinit thread_local Forwarding forwarding __attribute__((tls_model("initial-exec"))) = {};

/// Not inlined: its frame has to lie below that of OnFault. A former handler may leave by `longjmp` and so leave
/// `forwarding` as it is; the next fault is then recognised by its frame.
[[gnu::noinline]] void RunFormer(int signal, siginfo_t* info, void* context, std::size_t level)
{
    const Forwarding outer = forwarding;
    forwarding = {info, reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), level};
    StateOf(signal).Former[level].Run(signal, info, context, layer::FaultRecurs(context));
    forwarding = outer;
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
    const auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (forwarding.Info == info && frame < forwarding.Frame) {  // called by a former handler
        if (forwarding.Level > 0)
            RunFormer(signal, info, context, forwarding.Level - 1);
        else
            layer::EndBySignal(signal, layer::FaultRecurs(context));
        return;
    }
    if (!RunFaultHandlers(signal, *info, context))
        layer::ForwardFault(signal, *info, context);
}

bool IsOurs(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == OnFault;
}

/// Keeps the action in force as a former one. One that had been kept already has been installed again.
void KeepFormer(SignalState& state, const struct sigaction& action)
{
    std::size_t count = state.Count.load(std::memory_order_relaxed);
    if (count > 0 && (state.Latest().IsSameAs(action) || count == state.Former.size()))
        --count;
    state.Former[count].Set(action);
    state.Count.store(count + 1, std::memory_order_release);
}

void InstallHandler(int signal)
{
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    if (IsOurs(current))
        return;
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    sigaction(signal, nullptr, &current);
    if (IsOurs(current))
        return;
    // The former action is stored before the handler is installed: the handler may run immediately and needs it.
    KeepFormer(StateOf(signal), current);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    // After a stack overflow the normal stack cannot be used.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | (current.sa_flags & SA_RESTART);
    sigaction(signal, &action, nullptr);
}

/// Whether the layer's handler was installed for a signal, and has been replaced since.
bool IsReplaced(int signal)
{
    struct sigaction current {};
    return StateOf(signal).Count.load(std::memory_order_acquire) != 0 && sigaction(signal, nullptr, &current) == 0 &&
           !IsOurs(current);
}

/// Restores the former actions. A handler that another library has installed since then is not replaced.
void RestoreFormerHandlers()
{
    for (const int signal : Signals) {
        SignalState& state = StateOf(signal);
        if (state.Count.load(std::memory_order_acquire) == 0 || IsReplaced(signal))
            continue;
        const struct sigaction former = state.Latest().Restorable();
        sigaction(signal, &former, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = RestoreFormerHandlers};

}  // namespace

void layer::HandleFaults(FaultStage stage, FaultHandler handler, std::initializer_list<int> signals)
{
    WatchForks();
    RegisterHooks(hooks);
    handlers[static_cast<std::size_t>(stage)].store(handler, std::memory_order_release);
    for (const int signal : signals)
        InstallHandler(signal);
}

bool layer::HandlesSignal(int signal)
{
    return !IsReplaced(signal);
}

bool layer::HasFormerHandler(int signal)
{
    return StateOf(signal).Latest().IsFunction();
}

void layer::ForwardFault(int signal, const siginfo_t& info, void* context)
{
    RunFormer(signal, const_cast<siginfo_t*>(&info), context,
              StateOf(signal).Count.load(std::memory_order_acquire) - 1);
}

void layer::StayLoadedIfReplaced()
{
    Dl_info own{};
    for (const int signal : Signals) {
        if (IsReplaced(signal) && dladdr(reinterpret_cast<void*>(&OnFault), &own) != 0) {
            dlopen(own.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
            return;
        }
    }
}

bool layer::FaultRecurs(const void* context)
{
    const auto vector =
        static_cast<std::uintptr_t>(static_cast<const ucontext_t*>(context)->uc_mcontext.gregs[REG_TRAPNO]);
    return vector != debug && vector != breakpoint && vector != overflow;
}
