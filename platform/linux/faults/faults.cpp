// Translates faults of the processor into exceptions: the translator of each thread, and the way from a signal to it.
//
// The steps from a fault to its exception:
//  1. The handler of base/fault_signals.cpp first lets the layer repair what it has caused itself (shared pages).
//  2. A fault of code that runs guarded in this handler ends that code (guarded.cpp).
//  3. A signal that is no fault, or a fault of a thread without a translator, goes to the handler that the program had
//     installed before. So does a fault of generated code, which belongs to no loaded file (host.cpp).
//  4. If that handler could repair the fault, it is called. If it has done so, the thread continues.
//  5. The stack is searched for a handler of the exception (handler_search.cpp, exception_table.cpp). If there is one,
//     the context of the signal is changed: the thread will continue in `layer_at_fault` (fault_frame.cpp), as if the
//     failing instruction had called it.
//  6. If there is none, the program's handler is called, if that has not been done yet. Then the fault is described on
//     standard error (fault_report.cpp), and the process ends by the signal, at the failing instruction.
//  7. The signal handler returns. In ordinary code `layer_at_fault` calls RaiseFault, which calls the translator, whose
//     exception unwinds from the failing instruction.
//
// Nothing is allocated between the fault and the throw, and no lock is taken: the memory may be what is damaged, and
// the failing code may hold the lock. The fault is kept in the record of the thread, FaultState.
#include "base/fault_signals.h"
#include "base/former_action.h"
#include "base/lifecycle.h"
#include "faults/fault.h"
#include "faults/fault_frame.h"
#include "faults/fault_record.h"
#include "faults/fault_report.h"
#include "faults/fault_stack.h"
#include "faults/guarded.h"
#include "faults/handler_search.h"
#include "faults/host.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <new>
#include <pthread.h>

#include <cxxabi.h>

#ifdef __x86_64__
#define STACK_REGISTER REG_RSP
#else
#define STACK_REGISTER REG_ESP
#endif

using layer::Fault;
using layer::Prospect;

namespace {

/// The addresses of a stack.
struct Stack {
    std::uintptr_t Low = 0;
    std::uintptr_t High = 0;

    bool Contains(std::uintptr_t address) const { return address >= Low && address < High; }
};

/// The record of a thread that has had a translator.
struct FaultState {
    _se_translator_function Translator = nullptr;
    bool Raising = false;         // from a fault until its translator has thrown; also after it has left by `longjmp`
    Stack Own;                    // the thread's stack; empty if it is unknown
    std::uintptr_t Guard = 0;     // size of the guard below it
    void* SignalStack = nullptr;  // the alternate stack that the layer made, if any
    sigset_t Blocked{};           // the signals that the translator has unblocked
    Fault Current{};
};

// Of the initial-exec model: the signal handler reads it, and other models may call a function that allocates.
constinit thread_local FaultState* state __attribute__((tls_model("initial-exec"))) = nullptr;

// The type that one translator throws. Stored in this order, read in the other one.
std::atomic<const std::type_info*> statedType{nullptr};
std::atomic<_se_translator_function> statedTranslator{nullptr};

const std::type_info* ThrownType(_se_translator_function translator)
{
    return statedTranslator.load(std::memory_order_acquire) == translator ? statedType.load(std::memory_order_relaxed)
                                                                          : nullptr;
}

// The stack that the raising code needs: for the translator and the unwinder, with a reserve.
constexpr std::uintptr_t RaisingBytes = 24UL * 1024;

// An access to the guard below a stack is an overflow. Below the main thread's stack the kernel keeps a gap of 256
// pages, which the C library does not report.
constexpr std::uintptr_t PageBytes = 4096;
constexpr std::uintptr_t KernelGuard = 256 * PageBytes;

/// Finds the stack of the calling thread. This may allocate and read files, so it is done before any fault.
void FindOwnStack(FaultState& thread)
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    void* low = nullptr;
    std::size_t bytes = 0;
    std::size_t guard = 0;
    if (pthread_attr_getstack(&attributes, &low, &bytes) == 0 && pthread_attr_getguardsize(&attributes, &guard) == 0) {
        thread.Own.Low = reinterpret_cast<std::uintptr_t>(low);
        thread.Own.High = thread.Own.Low + bytes;
        thread.Guard = std::max(std::uintptr_t{guard}, KernelGuard);
    }
    pthread_attr_destroy(&attributes);
}

/// Releases the record of the calling thread. At unload those of other threads cannot be reached and are lost.
void ReleaseState()
{
    const std::unique_ptr<FaultState> released(state);
    state = nullptr;
    if (released)
        layer::FreeSignalStack(released->SignalStack);
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = ReleaseState, .AtUnload = ReleaseState};

/// Makes the record of the calling thread. @return null if there is no memory
FaultState* MakeState()
{
    std::unique_ptr<FaultState> created(new (std::nothrow) FaultState);
    if (!created || !layer::WatchThreadEnd())
        return nullptr;
    layer::RegisterHooks(hooks);
    FindOwnStack(*created);
    created->SignalStack = layer::MakeSignalStack();
    sigemptyset(&created->Blocked);
    // The first use of the search, and of the runtime's record of exceptions, may allocate.
    layer::PrepareSearch();
    [[maybe_unused]] void* volatile globals = abi::__cxa_get_globals();  // not omitted
    return created.release();
}

/// Whether a signal reports a fault that a translator receives.
/// @param vector  the exception number in the context; it means something only if it fits the signal, since a signal
///                from a process leaves it as the last fault has set it
bool IsTranslatable(int signal, const siginfo_t& info, std::uintptr_t vector)
{
    if (info.si_code <= 0)  // sent by a process
        return false;
    switch (vector) {
        case layer::divideError:
        case layer::x87Error:
        case layer::simdError: return signal == SIGFPE;
        case layer::debug:
        case layer::breakpoint:
            return signal == SIGTRAP &&
                   (info.si_code <= TRAP_TRACE || info.si_code == TRAP_HWBKPT || info.si_code == SI_KERNEL);
        case layer::invalidOpcode: return signal == SIGILL;
        case layer::overflow:
        case layer::boundRange:
        case layer::generalProtection: return signal == SIGSEGV;
        case layer::segmentNotPresent:
        case layer::stackSegment:
        case layer::alignmentCheck: return signal == SIGBUS;
        // BUS_MCEERR_AO reports defective memory that no instruction has accessed.
        case layer::pageFault: return signal == SIGSEGV || (signal == SIGBUS && info.si_code != BUS_MCEERR_AO);
        default: return false;
    }
}

/// Whether a fault is an overflow of the thread's stack: an access to the guard by code whose stack is nearly full. The
/// lowest page of the stack counts as guard: the C library may report a stack that includes its guard page.
bool IsStackOverflow(const FaultState& thread, const Fault& fault)
{
    return fault.Number() == layer::pageFault && thread.Guard != 0 && fault.Address() < thread.Own.Low + PageBytes &&
           fault.Address() >= thread.Own.Low - thread.Guard && fault.Stack < thread.Own.Low + RaisingBytes &&
           fault.Stack >= thread.Own.Low - thread.Guard;
}

/// The stack pointer with which the raising code starts: that of the failing code, or the top of the alternate stack if
/// the thread's stack has too little room.
/// @return 0 if the alternate stack has too little room as well, or there is none
std::uintptr_t RaisingStack(const FaultState& thread, const Fault& fault, const ucontext_t& context)
{
    const auto low = reinterpret_cast<std::uintptr_t>(context.uc_stack.ss_sp);
    const Stack alternate{low, low + context.uc_stack.ss_size};
    const std::uintptr_t own = thread.Own.Low;
    const bool isFull = fault.StackOverflow || (thread.Own.Contains(fault.Stack) && fault.Stack - own < RaisingBytes);
    if (!isFull)
        return fault.Stack;
    // The failing code runs on the thread's own stack. So only this handler uses the alternate one, and it is about to
    // return.
    return alternate.High - alternate.Low >= RaisingBytes ? alternate.High : 0;
}

/// For a call of an address without code: the caller counts as the failing function, since the called one does not
/// exist. The call has pushed its return address; one byte less is inside the call instruction.
void StartUnwindingAtCaller(Fault& fault)
{
    std::uintptr_t returnAddress = 0;
    if (!layer::Guarded([&] { returnAddress = *reinterpret_cast<const std::uintptr_t*>(fault.Stack); }))
        return;
    fault.UnwindAt = returnAddress - 1;
    fault.Stack += sizeof returnAddress;
}

/// Resets FaultState::Raising when the translator throws or returns.
class Raising {
public:
    explicit Raising(FaultState& thread) : Thread(thread) {}
    Raising(const Raising&) = delete;
    Raising& operator=(const Raising&) = delete;
    ~Raising() { Thread.Raising = false; }

private:
    FaultState& Thread;
};

Fault FaultOf(const FaultState& thread, int signal, const ucontext_t& context)
{
    Fault fault{};
    fault.Signal = signal;
    fault.Registers = context.uc_mcontext;
    fault.Registers.fpregs = nullptr;  // points into the signal frame, which will be gone
    // A breakpoint or an overflow is reported with the address after its instruction.
    fault.UnwindAt = fault.Instruction() - (layer::FaultRecurs(&context) ? 0 : 1);
    fault.Stack = fault.Register(STACK_REGISTER);
    fault.StackOverflow = IsStackOverflow(thread, fault);
    return fault;
}

[[noreturn]] int RaiseFault(Fault* fault);

/// Makes the thread continue in RaiseFault. @return why that is not possible, or null
const char* Raise(FaultState& thread, const Fault& fault, ucontext_t& context)
{
    switch (layer::FindProspect(fault, ThrownType(thread.Translator), thread.Raising)) {
        case Prospect::caught: break;
        case Prospect::uncaught: return "no handler would catch it";
        case Prospect::refused: return "a function on the way to the handler must not throw";
        case Prospect::insideAllocator: return "it is inside the memory allocator";
        case Prospect::insideLoader: return "it is inside the dynamic linker or the unwinder";
        case Prospect::insideTranslator: return "an earlier fault is being translated";
    }
    const std::uintptr_t stack = RaisingStack(thread, fault, context);
    if (stack == 0)
        return "the stack has no room for the exception";
    thread.Current = fault;
    thread.Raising = true;
    layer::ContinueAtFault(context, thread.Current, RaiseFault, stack);
    return nullptr;
}

/// Steps 4 to 6 for a fault of the program's own code.
void DealWith(FaultState& thread, Fault& fault, const siginfo_t& info, ucontext_t& context)
{
    const char* reason = "it is in code of no loaded file";
    if (!layer::IsHostCode(fault)) {
        const bool hostFirst = layer::MayHostRepair(fault);
        if (hostFirst && layer::HostRepairs(fault, info, context))
            return;
        reason = Raise(thread, fault, context);
        if (reason == nullptr || (!hostFirst && layer::HostRepairs(fault, info, context)))
            return;
    } else if (layer::HasFormerHandler(fault.Signal)) {
        layer::ForwardFault(fault.Signal, info, &context);
        return;
    }
    layer::ReportFault(fault, context, reason);
    layer::EndBySignal(fault.Signal, layer::FaultRecurs(&context));
}

/// @return false if the fault does not belong to a translator
bool TranslateFault(int signal, const siginfo_t& info, void* context)
{
    auto& interrupted = *static_cast<ucontext_t*>(context);
    FaultState* const thread = state;
    if (!IsTranslatable(signal, info, static_cast<std::uintptr_t>(interrupted.uc_mcontext.gregs[REG_TRAPNO])))
        return false;
    layer::LeaveGuarded();
    if (thread == nullptr || thread->Translator == nullptr)
        return false;
    const int savedError = errno;
    Fault fault = FaultOf(*thread, signal, interrupted);
    if (fault.IsBadCall())
        StartUnwindingAtCaller(fault);
    DealWith(*thread, fault, info, interrupted);
    errno = savedError;
    return true;
}

/// Ends the process as the signal would have ended it without a handler.
[[noreturn]] void EndBy(int signal)
{
    layer::EndBySignal(signal, false);
    std::abort();
}

int RaiseFault(Fault* fault)
{
    EXCEPTION_RECORD record = layer::RecordOf(*fault, platform::ReadAndClearFloatFaults());
    EXCEPTION_POINTERS pointers{&record, reinterpret_cast<CONTEXT*>(&fault->Registers)};
    {
        const Raising raising(*state);
        state->Translator(record.ExceptionCode, &pointers);
    }
    // A translator that returns has not dealt with the fault. The instruction must not be repeated, so the process
    // ends.
    EndBy(fault->Signal);
}

constexpr std::initializer_list<int> FaultSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

/// The kernel ends a process that faults on a thread which blocks the signal, whatever its handler.
void UnblockSignals(FaultState& thread)
{
    sigset_t faults;
    sigset_t former;
    sigemptyset(&faults);
    for (const int signal : FaultSignals)
        sigaddset(&faults, signal);
    pthread_sigmask(SIG_UNBLOCK, &faults, &former);
    sigandset(&faults, &faults, &former);
    sigorset(&thread.Blocked, &thread.Blocked, &faults);
}

void BlockSignalsAgain(FaultState& thread)
{
    pthread_sigmask(SIG_BLOCK, &thread.Blocked, nullptr);
    sigemptyset(&thread.Blocked);
}

}  // namespace

void platform::SetThrownType(_se_translator_function translator, const std::type_info& type)
{
    statedType.store(&type, std::memory_order_relaxed);
    statedTranslator.store(translator, std::memory_order_release);
}

_se_translator_function _set_se_translator(_se_translator_function translator)
{
    if (translator != nullptr) {
        if (state == nullptr)
            state = MakeState();
        layer::HandleFaults(layer::FaultStage::translate, TranslateFault, FaultSignals);
    }
    if (state == nullptr)
        return nullptr;
    const _se_translator_function former = state->Translator;
    state->Translator = translator;
    if (translator != nullptr) {
        UnblockSignals(*state);
    } else {
        BlockSignalsAgain(*state);
        layer::StayLoadedIfReplaced();
    }
    return former;
}
