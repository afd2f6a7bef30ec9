// The translator of a thread. The toolchain's libraries have it for another compiler's exceptions alone. Here a
// vectored handler lets the thread go on in `platform_raise_fault` as if the failing instruction had called it, and
// what is thrown there is thrown by ordinary code.
#include "system.h"

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

/// A fault as the handler found it. The raising code knows the first field by its place.
struct Fault {
    std::uintptr_t ReturnTo;
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

// Entered with the fault as its argument and the stack pointer of the failing code.
#ifdef __x86_64__
// Its frame looks like that of a function which the failing instruction called.
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
// The unwind data are those of a signal's frame: the address is the failing instruction's own.
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

/// What a thread with a translator keeps. `Raising`: a fault is on its way to the translator, or inside it.
struct FaultState {
    _se_translator_function Translator = nullptr;
    bool Raising = false;
    Fault Current{};
};

// What is left of a full stack for a translator and for the unwinder.
constexpr ULONG OverflowBytes = 64 * 1024;

void NTAPI FreeState(void* state)
{
    delete static_cast<FaultState*>(state);
}

LONG NTAPI OnException(EXCEPTION_POINTERS* info);

// The place of each thread's state. Not a thread_local: that of this toolchain may need memory, and the handler may
// not.
std::atomic<DWORD> place{FLS_OUT_OF_INDEXES};

FaultState* State()
{
    const DWORD known = place.load(std::memory_order_acquire);
    return known != FLS_OUT_OF_INDEXES ? static_cast<FaultState*>(FlsGetValue(known)) : nullptr;
}

/// The library's handler, from the first translator of a process to the end of the library.
struct Watch {
    Watch() : Handler(nullptr)
    {
        place = FlsAlloc(FreeState);
        if (place != FLS_OUT_OF_INDEXES)
            Handler = AddVectoredExceptionHandler(FALSE, OnException);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch()
    {
        if (Handler != nullptr)
            RemoveVectoredExceptionHandler(Handler);
        if (const DWORD known = place.exchange(FLS_OUT_OF_INDEXES); known != FLS_OUT_OF_INDEXES)
            FlsFree(known);
    }

    void* Handler;
};

/// What the processor reports. Other codes are those of programs, and what noncontinuable ones are for nobody to go
/// on from.
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

/// A call of an address where there is no code.
bool IsFetch(const EXCEPTION_RECORD& record)
{
    return record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2 &&
           record.ExceptionInformation[1] == reinterpret_cast<ULONG_PTR>(record.ExceptionAddress);
}

/// Where the failing instruction is for the unwinder: for a call of nowhere the call, which has put its return address
/// on the stack.
std::uintptr_t FailingInstruction(const EXCEPTION_POINTERS& info)
{
    if (IsFetch(*info.ExceptionRecord))
        return *reinterpret_cast<const std::uintptr_t*>(info.ContextRecord->STACK_REGISTER) - 1;
    return reinterpret_cast<std::uintptr_t>(info.ExceptionRecord->ExceptionAddress);
}

/// What the unwinder takes for the return address: it looks for the frame of the byte before on x86-64.
std::uintptr_t ReturnAddress(std::uintptr_t instruction)
{
#ifdef __x86_64__
    return instruction + 1;
#else
    return instruction;
#endif
}

/// On x86-64 every frame has unwind data, or needs none. On x86-32 those of the system have none, and its own handlers
/// may expect a fault there.
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

/// As a function finds them: direction forward; and neither single steps nor alignment checks for code that is no
/// part of the failing program.
void ResetFlags(DWORD& flags)
{
    constexpr DWORD trap = 0x100;
    constexpr DWORD direction = 0x400;
    constexpr DWORD alignmentCheck = 0x40000;
    flags &= ~(trap | direction | alignmentCheck);
}

bool Translate(FaultState* state, EXCEPTION_POINTERS& info)
{
    if (state == nullptr || state->Translator == nullptr || state->Raising)
        return false;
    state->Raising = true;
    const std::uintptr_t instruction = FailingInstruction(info);
    if (!CanUnwind(instruction)) {
        state->Raising = false;
        return false;
    }
    Fault& fault = state->Current;
    fault.ReturnTo = ReturnAddress(instruction);
    fault.Record = *info.ExceptionRecord;
    fault.Record.ExceptionRecord = nullptr;
    fault.Context = *info.ContextRecord;
    CONTEXT& context = *info.ContextRecord;
    if (IsFetch(fault.Record))
        context.STACK_REGISTER += sizeof(std::uintptr_t);
    context.INSTRUCTION_REGISTER = reinterpret_cast<std::uintptr_t>(&platform_enter_fault);
    context.ARGUMENT_REGISTER = reinterpret_cast<std::uintptr_t>(&fault);
    ResetFlags(context.EFlags);
    return true;
}

LONG NTAPI OnException(EXCEPTION_POINTERS* info)
{
    if (!IsFault(*info->ExceptionRecord))
        return EXCEPTION_CONTINUE_SEARCH;
    const DWORD lastError = GetLastError();
    const bool translated = Translate(State(), *info);
    SetLastError(lastError);
    return translated ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
}

/// Null where the platform has no more room or no memory.
FaultState* MakeState()
{
    static const Watch watch;
    const DWORD known = place.load(std::memory_order_acquire);
    if (known == FLS_OUT_OF_INDEXES)
        return nullptr;
    std::unique_ptr<FaultState> made(new (std::nothrow) FaultState);
    if (!made || !FlsSetValue(known, made.get()))
        return nullptr;
    ULONG bytes = OverflowBytes;
    SetThreadStackGuarantee(&bytes);
    return made.release();
}

/// Ends with the raising of a fault, however that ends.
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
    static_cast<void>(platform::TakeFloatFaults());
    EXCEPTION_POINTERS pointers{&fault->Record, &fault->Context};
    {
        FaultState& state = *State();
        const Raising raising(state);
        state.Translator(fault->Record.ExceptionCode, &pointers);
    }
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
    const _se_translator_function before = state->Translator;
    state->Translator = translator;
    return before;
}
