// Translates structured exceptions into C++ exceptions: the translator of each thread, and the way from a fault to it.
//
// The `_set_se_translator` of the system's runtime works with exceptions of another compiler only. Here a vectored
// handler changes the context of the fault: when it returns, the thread continues in `platform_enter_fault` as if the
// failing instruction had called it. That calls `platform_raise_fault`, and so the translator, as ordinary code. An
// exception that the translator throws unwinds from the failing instruction.
#include "system.h"

#include "../x86/flags.h"
#include "../x86/float_state.h"

#include <atomic>
#include <memory>
#include <new>

#ifdef __x86_64__
#define STACK_REGISTER Rsp
#define INSTRUCTION_REGISTER Rip
#define ARGUMENT_REGISTER Rcx
#else
#define STACK_REGISTER Esp
#define INSTRUCTION_REGISTER Eip
#define ARGUMENT_REGISTER Eax
#endif

namespace platform {

/// What the handler keeps of a fault. The assembly code that raises the exception accesses the first field by its
/// offset.
struct Fault {
    std::uintptr_t ReturnTo;  // the return address that unwinding continues at
    EXCEPTION_RECORD Record;
    CONTEXT Context;
};

}  // namespace platform

using platform::Fault;

extern "C" {
void platform_enter_fault();
#ifdef __i386__
[[gnu::regparm(1)]]
#endif
[[noreturn, gnu::used]] void
platform_raise_fault(Fault* fault);
#ifdef __i386__
const void* _Unwind_Find_FDE(void* address, void* bases);
#endif
}

// The handler makes the thread continue here, with the fault as the argument (rcx, eax) and the stack pointer of the
// failing code. The code below pushes the return address, as a call would have done, and aligns the stack.
#ifdef __x86_64__
// The unwind data are those of an ordinary function that the failing instruction called. The 32 bytes are the area that
// every called function may use.
__asm__(R"(
    .text
    .globl platform_enter_fault
    .def platform_enter_fault; .scl 2; .type 32; .endef
    .seh_proc platform_enter_fault
platform_enter_fault:
    pushq (%rcx)
    pushq %rbp
    .seh_pushreg %rbp
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    .seh_endprologue
    andq $-16, %rsp
    subq $32, %rsp
    call platform_raise_fault
    ud2
    .seh_endproc
)");
#else
// With .cfi_signal_frame the return address is that of the failing instruction itself, not of one after a call.
__asm__(R"(
    .text
    .globl _platform_enter_fault
    .def _platform_enter_fault; .scl 2; .type 32; .endef
_platform_enter_fault:
    .cfi_startproc
    .cfi_signal_frame
    pushl (%eax)
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset ebp, -8
    movl %esp, %ebp
    .cfi_def_cfa_register ebp
    andl $-16, %esp
    call _platform_raise_fault
    ud2
    .cfi_endproc
)");
#endif

namespace {

/// The record of a thread that has had a translator.
struct FaultState {
    _se_translator_function Translator = nullptr;
    bool Raising = false;  // from a fault until its translator has thrown or returned
    Fault Current{};
};

// The part of the stack that is kept free for the translator and the unwinder after a stack overflow.
constexpr ULONG OverflowReserve = 64 * 1024;

/// Called by the system for a thread that ends, and for each thread when the index is freed.
void NTAPI FreeState(void* state)
{
    delete static_cast<FaultState*>(state);
}

LONG NTAPI OnException(EXCEPTION_POINTERS* info);

// The index of fiber-local storage under which each thread keeps its record. It is not a thread_local: with this
// toolchain the first access to one may allocate memory, which the handler must not do.
std::atomic<DWORD> stateIndex{FLS_OUT_OF_INDEXES};

/// The record of the calling thread, or null.
FaultState* State()
{
    const DWORD index = stateIndex.load(std::memory_order_acquire);
    return index != FLS_OUT_OF_INDEXES ? static_cast<FaultState*>(FlsGetValue(index)) : nullptr;
}

/// The handler of the library. It is installed with the first translator of the process and removed at unload.
struct VectoredHandler {
    /// The handler goes to the end of the chain: a handler of the host program that repairs a fault comes first.
    VectoredHandler() : Handler(nullptr)
    {
        stateIndex = FlsAlloc(FreeState);
        if (stateIndex != FLS_OUT_OF_INDEXES)
            Handler = AddVectoredExceptionHandler(FALSE, OnException);
    }
    VectoredHandler(const VectoredHandler&) = delete;
    VectoredHandler& operator=(const VectoredHandler&) = delete;
    ~VectoredHandler()
    {
        if (Handler != nullptr)
            RemoveVectoredExceptionHandler(Handler);
        if (const DWORD index = stateIndex.exchange(FLS_OUT_OF_INDEXES); index != FLS_OUT_OF_INDEXES)
            FlsFree(index);
    }

    void* Handler;
};

/// Whether an exception is a fault of the processor. Programs raise other codes themselves. After a noncontinuable
/// exception the thread must not continue, so it is not translated either.
bool IsFault(const EXCEPTION_RECORD& record)
{
    constexpr DWORD floatMultipleFaults = 0xC00002B4;
    constexpr DWORD floatMultipleTraps = 0xC00002B5;
    if ((record.ExceptionFlags & EXCEPTION_NONCONTINUABLE) != 0)
        return false;
    switch (record.ExceptionCode) {
        case EXCEPTION_DATATYPE_MISALIGNMENT:
        case EXCEPTION_BREAKPOINT:
        case EXCEPTION_SINGLE_STEP:
        case EXCEPTION_ACCESS_VIOLATION:
        case EXCEPTION_IN_PAGE_ERROR:
        case EXCEPTION_ILLEGAL_INSTRUCTION:
        case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
        case EXCEPTION_FLT_DENORMAL_OPERAND:
        case EXCEPTION_FLT_DIVIDE_BY_ZERO:
        case EXCEPTION_FLT_INEXACT_RESULT:
        case EXCEPTION_FLT_INVALID_OPERATION:
        case EXCEPTION_FLT_OVERFLOW:
        case EXCEPTION_FLT_STACK_CHECK:
        case EXCEPTION_FLT_UNDERFLOW:
        case EXCEPTION_INT_DIVIDE_BY_ZERO:
        case EXCEPTION_INT_OVERFLOW:
        case EXCEPTION_PRIV_INSTRUCTION:
        case EXCEPTION_STACK_OVERFLOW:
        case floatMultipleFaults:
        case floatMultipleTraps: return true;
        default: return false;
    }
}

/// Whether the fault is a call of an address without code: the address of the access is that of the instruction.
bool IsBadCall(const EXCEPTION_RECORD& record)
{
    return record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2 &&
           record.ExceptionInformation[1] == reinterpret_cast<ULONG_PTR>(record.ExceptionAddress);
}

/// The address of the failing instruction for the unwinder. For a call of an address without code the caller counts as
/// the failing function: the call has pushed its return address, and one byte less is inside the call instruction.
std::uintptr_t FailingInstruction(const EXCEPTION_POINTERS& info)
{
    if (IsBadCall(*info.ExceptionRecord))
        return *reinterpret_cast<const std::uintptr_t*>(info.ContextRecord->STACK_REGISTER) - 1;
    return reinterpret_cast<std::uintptr_t>(info.ExceptionRecord->ExceptionAddress);
}

/// The return address from which the unwinder finds an instruction. On x86-64 it searches for the function of the byte
/// before the return address.
std::uintptr_t ReturnAddress(std::uintptr_t instruction)
{
#ifdef __x86_64__
    return instruction + 1;
#else
    return instruction;
#endif
}

/// Whether the unwinder can pass the frame of an instruction. On x86-64 every function has unwind data or needs none.
/// On x86-32 functions of the system have none; a fault there is left to the system, which may expect it.
bool CanUnwind(std::uintptr_t instruction)
{
#ifdef __x86_64__
    static_cast<void>(instruction);
    return true;
#else
    void* bases[3];
    return _Unwind_Find_FDE(reinterpret_cast<void*>(instruction), bases) != nullptr;
#endif
}

/// Changes the context of a fault so that the thread continues in its translator.
/// @return false, with the context unchanged, if the fault is not translated
bool Translate(FaultState* state, EXCEPTION_POINTERS& info)
{
    if (state == nullptr || state->Translator == nullptr || state->Raising)
        return false;
    // Set first: a fault in the functions below must not get here again.
    state->Raising = true;
    const std::uintptr_t instruction = FailingInstruction(info);
    if (!CanUnwind(instruction)) {
        state->Raising = false;
        return false;
    }
    Fault& fault = state->Current;
    fault.ReturnTo = ReturnAddress(instruction);
    fault.Record = *info.ExceptionRecord;
    fault.Record.ExceptionRecord = nullptr;  // may point to a stack that will be gone
    fault.Context = *info.ContextRecord;
    CONTEXT& context = *info.ContextRecord;
    if (IsBadCall(fault.Record))  // removes the return address that the call has pushed
        context.STACK_REGISTER += sizeof(std::uintptr_t);
    context.INSTRUCTION_REGISTER = reinterpret_cast<std::uintptr_t>(&platform_enter_fault);
    context.ARGUMENT_REGISTER = reinterpret_cast<std::uintptr_t>(&fault);
    platform::ResetFlags(context.EFlags);
    return true;
}

LONG NTAPI OnException(EXCEPTION_POINTERS* info)
{
    if (!IsFault(*info->ExceptionRecord))
        return EXCEPTION_CONTINUE_SEARCH;
    const DWORD lastError = GetLastError();  // FlsGetValue sets it, and the exception may be another handler's
    const bool translated = Translate(State(), *info);
    SetLastError(lastError);
    return translated ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
}

/// Makes the record of the calling thread. @return null if the system has no memory or no index for it
FaultState* MakeState()
{
    static const VectoredHandler vectoredHandler;
    const DWORD index = stateIndex.load(std::memory_order_acquire);
    if (index == FLS_OUT_OF_INDEXES)
        return nullptr;
    std::unique_ptr<FaultState> created(new (std::nothrow) FaultState);
    if (!created || !FlsSetValue(index, created.get()))
        return nullptr;
    ULONG bytes = OverflowReserve;
    SetThreadStackGuarantee(&bytes);
    return created.release();
}

/// Resets FaultState::Raising when the translator throws or returns.
class Raising {
public:
    explicit Raising(FaultState& state) : State(state) {}
    Raising(const Raising&) = delete;
    Raising& operator=(const Raising&) = delete;
    ~Raising() { State.Raising = false; }

private:
    FaultState& State;
};

}  // namespace

void platform_raise_fault(Fault* fault)
{
    static_cast<void>(platform::ReadAndClearFloatFaults());
    EXCEPTION_POINTERS pointers{&fault->Record, &fault->Context};
    {
        FaultState& state = *State();
        const Raising raising(state);
        state.Translator(fault->Record.ExceptionCode, &pointers);
    }
    // A translator that returns has not dealt with the fault. The instruction must not be repeated, so the process
    // ends.
    TerminateProcess(GetCurrentProcess(), fault->Record.ExceptionCode);
    __builtin_trap();
}

_se_translator_function _set_se_translator(_se_translator_function translator)
{
    FaultState* state = State();
    if (state == nullptr && translator != nullptr)
        state = MakeState();
    if (state == nullptr)
        return nullptr;
    const _se_translator_function former = state->Translator;
    state->Translator = translator;
    return former;
}
