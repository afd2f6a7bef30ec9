// The translator of a thread, and how its faults get there. The handler of a signal cannot throw; it lets the thread
// go on in `layer_raise_fault` as if the failing instruction had called it, and what is thrown there is thrown by
// ordinary code.
#include "base/fault_signals.h"
#include "base/lifecycle.h"
#include "faults/fault.h"
#include "faults/fault_record.h"
#include "faults/fault_stack.h"

#include <algorithm>
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

// Entered with the fault as its argument and the stack pointer of the failing code, whose red zone may hold saved
// registers. The unwind data are those of a signal's frame: the address is the failing instruction's own.
#ifdef __x86_64__
__asm__(R"(
    .pushsection .text
    .hidden layer_enter_fault
    .globl layer_enter_fault
    .type layer_enter_fault, @function
layer_enter_fault:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x77, 8, 0x06      # the frame above starts at the word at rsp + 8
    .cfi_escape 0x10, 16, 2, 0x77, 0        # and runs at the address at rsp
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
    .cfi_escape 0x0f, 3, 0x74, 4, 0x06      # the frame above starts at the word at esp + 4
    .cfi_escape 0x10, 8, 2, 0x74, 0         # and runs at the address at esp
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

/// A stack as its thread may use it.
struct Stack {
    std::uintptr_t Low = 0;
    std::uintptr_t High = 0;

    bool Contains(std::uintptr_t address) const { return address >= Low && address < High; }
};

/// What a thread with a translator keeps. `Raising`: a fault is on its way to the translator, or inside it.
struct FaultState {
    _se_translator_function Translator = nullptr;
    bool Raising = false;
    Stack Own;
    std::uintptr_t Guard = 0;
    void* SignalStack = nullptr;
    Fault Current{};
};

// Of the initial-exec model: the handler may not call anything to get at it.
constinit thread_local FaultState* state __attribute__((tls_model("initial-exec"))) = nullptr;

// What the raising code needs of a stack, generously, and what the handler's caller leaves of an alternate one.
constexpr std::uintptr_t RaisingBytes = 24UL * 1024;

// Below a stack lies its guard; of a first thread it is the kernel's, of 256 pages.
constexpr std::uintptr_t PageBytes = 4096;
constexpr std::uintptr_t KernelGuard = 256 * PageBytes;

void FindOwnStack(FaultState& made)
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    void* low = nullptr;
    std::size_t bytes = 0;
    std::size_t guard = 0;
    if (pthread_attr_getstack(&attributes, &low, &bytes) == 0 && pthread_attr_getguardsize(&attributes, &guard) == 0) {
        made.Own.Low = reinterpret_cast<std::uintptr_t>(low);
        made.Own.High = made.Own.Low + bytes;
        made.Guard = std::max(std::uintptr_t{guard}, KernelGuard);
    }
    pthread_attr_destroy(&attributes);
}

/// Releases what the calling thread keeps for its translator.
void ReleaseState()
{
    const std::unique_ptr<FaultState> left(state);
    state = nullptr;
    if (left)
        layer::FreeSignalStack(left->SignalStack);
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = ReleaseState, .AtUnload = ReleaseState};

FaultState* MakeState()
{
    std::unique_ptr<FaultState> made(new (std::nothrow) FaultState);
    if (!made || !layer::WatchThreadEnd())
        return nullptr;
    layer::RegisterHooks(hooks);
    FindOwnStack(*made);
    made->SignalStack = layer::MakeSignalStack();
    return made.release();
}

bool IsTranslated(int signal, const siginfo_t& info, std::uintptr_t vector)
{
    if (info.si_code <= 0)
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
        // What the memory itself reports of its own accord has nothing to do with the instruction.
        case layer::pageFault: return signal == SIGSEGV || (signal == SIGBUS && info.si_code != BUS_MCEERR_AO);
        default: return false;
    }
}

bool IsStackOverflow(const FaultState& thread, const Fault& fault)
{
    // The lowest page may belong to the guard, depending on who counts.
    return fault.Number() == layer::pageFault && thread.Guard != 0 && fault.Address() < thread.Own.Low + PageBytes &&
           fault.Address() >= thread.Own.Low - thread.Guard && fault.Stack < thread.Own.Low + RaisingBytes &&
           fault.Stack >= thread.Own.Low - thread.Guard;
}

/// Where the raising code starts: below the failing code, or at the top of the alternate stack where there is no room.
/// 0 where there is none either.
std::uintptr_t RaisingStack(const FaultState& thread, const Fault& fault, const ucontext_t& context)
{
    const auto low = reinterpret_cast<std::uintptr_t>(context.uc_stack.ss_sp);
    const Stack alternate{low, low + context.uc_stack.ss_size};
    const std::uintptr_t own = thread.Own.Low;
    const bool isFull = fault.StackOverflow || (thread.Own.Contains(fault.Stack) && fault.Stack - own < RaisingBytes);
    if (!isFull)
        return fault.Stack;
    // The failing code is not on the alternate stack, so nothing that lies there is needed any more.
    return alternate.High - alternate.Low >= RaisingBytes ? alternate.High : 0;
}

/// A call of an address where there is no code has put its return address on the stack: the caller failed.
void ReturnFromNowhere(Fault& fault)
{
    if (fault.Number() != layer::pageFault || fault.Address() != fault.Instruction())
        return;
    fault.UnwindAt = *reinterpret_cast<const std::uintptr_t*>(fault.Stack) - 1;
    fault.Stack += sizeof fault.UnwindAt;
}

/// As a function finds them: direction forward; and neither single steps nor alignment checks for code that is no
/// part of the failing program.
void ResetFlags(greg_t& flags)
{
    constexpr greg_t trap = 0x100;
    constexpr greg_t direction = 0x400;
    constexpr greg_t alignmentCheck = 0x40000;
    flags &= ~(trap | direction | alignmentCheck);
}

/// Ends with the raising of a fault, however that ends.
class Raising {
public:
    explicit Raising(FaultState& thread) : Thread(thread) {}
    Raising(const Raising&) = delete;
    Raising& operator=(const Raising&) = delete;
    ~Raising() { Thread.Raising = false; }

private:
    FaultState& Thread;
};

/// Lets the thread continue in its translator when the signal handler returns. @return false, with nothing changed, if
/// the fault is not to be translated
bool TranslateFault(int signal, const siginfo_t& info, void* context)
{
    FaultState* const thread = state;
    auto& interrupted = *static_cast<ucontext_t*>(context);
    greg_t* const registers = interrupted.uc_mcontext.gregs;
    if (thread == nullptr || thread->Translator == nullptr || thread->Raising ||
        !IsTranslated(signal, info, static_cast<std::uintptr_t>(registers[REG_TRAPNO])))
        return false;
    Fault& fault = thread->Current;
    fault.Signal = signal;
    fault.Registers = interrupted.uc_mcontext;
    fault.Registers.fpregs = nullptr;
    // The address of a breakpoint or an overflow is one behind its instruction.
    fault.UnwindAt = fault.Instruction() - (layer::FaultRecurs(context) ? 0 : 1);
    fault.Stack = fault.Register(STACK_REGISTER);
    fault.StackOverflow = IsStackOverflow(*thread, fault);
    const std::uintptr_t stack = RaisingStack(*thread, fault, interrupted);
    if (stack == 0)
        return false;
    ReturnFromNowhere(fault);
    thread->Raising = true;
    registers[STACK_REGISTER] = static_cast<greg_t>(stack);
    registers[ARGUMENT_REGISTER] = reinterpret_cast<greg_t>(&fault);
    registers[INSTRUCTION_REGISTER] = reinterpret_cast<greg_t>(&layer_enter_fault);
    ResetFlags(registers[REG_EFL]);
    return true;
}

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
    const _se_translator_function before = state->Translator;
    state->Translator = translator;
    return before;
}
