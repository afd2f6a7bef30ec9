// Translates faults of the processor into exceptions: the translator of each thread, and the way from a signal to it.
//
// A signal handler must not throw. It only changes the interrupted context: when it returns, the thread continues in
// `layer_enter_fault` as if the failing instruction had called it. That calls `layer_raise_fault`, and so the
// translator, as ordinary code. An exception that the translator throws unwinds from the failing instruction.
//
// Nothing is allocated between the fault and the throw: the memory may be what is damaged. The fault is kept in the
// record of the thread, FaultState.
#include "../../x86/flags.h"
#include "base/fault_signals.h"
#include "base/lifecycle.h"
#include "faults/fault.h"
#include "faults/fault_record.h"
#include "faults/fault_stack.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <pthread.h>

#ifdef __x86_64__
#define STACK_REGISTER REG_RSP
#define INSTRUCTION_REGISTER REG_RIP
#define ARGUMENT_REGISTER REG_RDI
#else
#define STACK_REGISTER REG_ESP
#define INSTRUCTION_REGISTER REG_EIP
#define ARGUMENT_REGISTER REG_EAX
#endif

using layer::Fault;

extern "C" {
[[gnu::visibility("hidden")]] void layer_enter_fault();
#ifdef __i386__
[[gnu::regparm(1)]]
#endif
[[noreturn, gnu::visibility("hidden"), gnu::used]] void
layer_raise_fault(Fault* fault);
}

// The handler makes the thread continue here, with the fault as the argument (rdi, eax) and on the stack from
// RaisingStack. The code below skips the red zone of the failing code (x86-64), aligns the stack and pushes the first
// two fields of the fault, from which the unwinder continues in the failing function:
//   cfi_signal_frame  the address is that of the failing instruction itself, not of one after a call
//   cfi_escape 0x0f   DW_CFA_def_cfa_expression: the frame above starts at Fault::Stack, the first word pushed
//   cfi_escape 0x10   DW_CFA_expression: its return address is Fault::UnwindAt, the last word pushed
// All other registers still have the values of the failing function, so they need no unwind data.
#ifdef __x86_64__
__asm__(R"(
    .pushsection .text
    .hidden layer_enter_fault
    .globl layer_enter_fault
    .type layer_enter_fault, @function
layer_enter_fault:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x77, 8, 0x06
    .cfi_escape 0x10, 16, 2, 0x77, 0
    leaq -128(%rsp), %rsp
    andq $-16, %rsp
    pushq 8(%rdi)
    pushq (%rdi)
    call layer_raise_fault
    ud2
    .cfi_endproc
    .size layer_enter_fault, . - layer_enter_fault
    .popsection
)");
#else
__asm__(R"(
    .pushsection .text
    .hidden layer_enter_fault
    .globl layer_enter_fault
    .type layer_enter_fault, @function
layer_enter_fault:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x74, 4, 0x06
    .cfi_escape 0x10, 8, 2, 0x74, 0
    andl $-16, %esp
    subl $8, %esp
    pushl 4(%eax)
    pushl (%eax)
    call layer_raise_fault
    ud2
    .cfi_endproc
    .size layer_enter_fault, . - layer_enter_fault
    .popsection
)");
#endif

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
    bool Raising = false;         // from a fault until its translator has thrown or returned
    Stack Own;                    // the thread's stack; empty if it is unknown
    std::uintptr_t Guard = 0;     // size of the guard below it
    void* SignalStack = nullptr;  // the alternate stack that the layer made, if any
    Fault Current{};
};

// Of the initial-exec model: the signal handler reads it, and other models may call a function that allocates.
constinit thread_local FaultState* state __attribute__((tls_model("initial-exec"))) = nullptr;

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
    if (fault.Number() != layer::pageFault || fault.Address() != fault.Instruction())
        return;
    fault.UnwindAt = *reinterpret_cast<const std::uintptr_t*>(fault.Stack) - 1;
    fault.Stack += sizeof fault.UnwindAt;
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

/// Makes the thread continue in its translator when the signal handler returns. A fault while the translator runs is
/// not translated: the record of the thread has room for one fault.
/// @return false, with the context unchanged, if the fault is not translated
bool TranslateFault(int signal, const siginfo_t& info, void* context)
{
    FaultState* const thread = state;
    auto& interrupted = *static_cast<ucontext_t*>(context);
    greg_t* const registers = interrupted.uc_mcontext.gregs;
    if (thread == nullptr || thread->Translator == nullptr || thread->Raising ||
        !IsTranslatable(signal, info, static_cast<std::uintptr_t>(registers[REG_TRAPNO])))
        return false;
    Fault& fault = thread->Current;
    fault.Signal = signal;
    fault.Registers = interrupted.uc_mcontext;
    fault.Registers.fpregs = nullptr;  // points into the signal frame, which will be gone
    // A breakpoint or an overflow is reported with the address after its instruction.
    fault.UnwindAt = fault.Instruction() - (layer::FaultRecurs(context) ? 0 : 1);
    fault.Stack = fault.Register(STACK_REGISTER);
    fault.StackOverflow = IsStackOverflow(*thread, fault);
    const std::uintptr_t stack = RaisingStack(*thread, fault, interrupted);
    if (stack == 0)
        return false;
    StartUnwindingAtCaller(fault);
    thread->Raising = true;
    registers[STACK_REGISTER] = static_cast<greg_t>(stack);
    registers[ARGUMENT_REGISTER] = reinterpret_cast<greg_t>(&fault);
    registers[INSTRUCTION_REGISTER] = reinterpret_cast<greg_t>(&layer_enter_fault);
    platform::ResetFlags(registers[REG_EFL]);
    return true;
}

/// Ends the process as the signal would have ended it without a handler.
[[noreturn]] void EndBy(int signal)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    raise(signal);
    std::abort();
}

}  // namespace

void layer_raise_fault(Fault* fault)
{
    EXCEPTION_RECORD record = layer::RecordOf(*fault);
    EXCEPTION_POINTERS pointers{&record, reinterpret_cast<CONTEXT*>(&fault->Registers)};
    {
        const Raising raising(*state);
        state->Translator(record.ExceptionCode, &pointers);
    }
    // A translator that returns has not dealt with the fault. The instruction must not be repeated, so the process
    // ends.
    EndBy(fault->Signal);
}

_se_translator_function _set_se_translator(_se_translator_function translator)
{
    if (translator != nullptr) {
        if (state == nullptr)
            state = MakeState();
        layer::HandleFaults(layer::FaultStage::translate, TranslateFault, {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP});
    }
    if (state == nullptr)
        return nullptr;
    const _se_translator_function former = state->Translator;
    state->Translator = translator;
    return former;
}
