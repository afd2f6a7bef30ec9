// Structured exceptions on Linux: the platform's published names, and the translator of a thread.
#pragma once

#include "tessmaru/platform.h"

using ULONG_PTR = std::uintptr_t;

constexpr DWORD EXCEPTION_DATATYPE_MISALIGNMENT = 0x80000002;
constexpr DWORD EXCEPTION_BREAKPOINT = 0x80000003;
constexpr DWORD EXCEPTION_SINGLE_STEP = 0x80000004;
constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
constexpr DWORD EXCEPTION_IN_PAGE_ERROR = 0xC0000006;
constexpr DWORD EXCEPTION_ILLEGAL_INSTRUCTION = 0xC000001D;
constexpr DWORD EXCEPTION_NONCONTINUABLE_EXCEPTION = 0xC0000025;
constexpr DWORD EXCEPTION_ARRAY_BOUNDS_EXCEEDED = 0xC000008C;
constexpr DWORD EXCEPTION_FLT_DENORMAL_OPERAND = 0xC000008D;
constexpr DWORD EXCEPTION_FLT_DIVIDE_BY_ZERO = 0xC000008E;
constexpr DWORD EXCEPTION_FLT_INEXACT_RESULT = 0xC000008F;
constexpr DWORD EXCEPTION_FLT_INVALID_OPERATION = 0xC0000090;
constexpr DWORD EXCEPTION_FLT_OVERFLOW = 0xC0000091;
constexpr DWORD EXCEPTION_FLT_STACK_CHECK = 0xC0000092;
constexpr DWORD EXCEPTION_FLT_UNDERFLOW = 0xC0000093;
constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094;
constexpr DWORD EXCEPTION_INT_OVERFLOW = 0xC0000095;
constexpr DWORD EXCEPTION_PRIV_INSTRUCTION = 0xC0000096;
constexpr DWORD EXCEPTION_STACK_OVERFLOW = 0xC00000FD;

constexpr DWORD EXCEPTION_NONCONTINUABLE = 1;
constexpr DWORD EXCEPTION_MAXIMUM_PARAMETERS = 15;

/// What happened and at which instruction. For an access violation and a stack overflow, the first word of
/// ExceptionInformation is 0 for a read, 1 for a write and 8 for a jump. The second word is the address of the data, or
/// all bits set if the processor does not report it.
struct EXCEPTION_RECORD {
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    EXCEPTION_RECORD* ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};
using PEXCEPTION_RECORD = EXCEPTION_RECORD*;

/// The registers at the fault: the system's own `mcontext_t`, without those of the floating-point unit.
using CONTEXT = struct CONTEXT__;
using PCONTEXT = CONTEXT*;

struct EXCEPTION_POINTERS {
    EXCEPTION_RECORD* ExceptionRecord;
    CONTEXT* ContextRecord;
};
using PEXCEPTION_POINTERS = EXCEPTION_POINTERS*;
using LPEXCEPTION_POINTERS = EXCEPTION_POINTERS*;

using _se_translator_function = void (*)(unsigned int code, EXCEPTION_POINTERS* info);

extern "C" {

/// Sets the translator of the calling thread; null removes it. The translator is called on the thread at each of its
/// faults. An exception that it throws starts at the faulting instruction. It may also leave by `longjmp`. If it
/// returns, the fault is not handled and the process ends by the signal of the fault.
///
/// The translator is not called where its exception would not reach a handler, for a fault of the translator itself,
/// and for faults of the allocator and the dynamic linker: the process ends by the signal, after a description on
/// standard error. Nor is it called for faults of generated code and for those that an earlier handler repairs.
///
/// Each call with a translator installs handlers for SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGTRAP, unless they are
/// installed already. They pass signals that they do not translate to the earlier handlers, also to those that have
/// replaced them meanwhile. It also unblocks these signals for the thread, until the translator is removed. The first
/// call on a thread gives the thread an alternate signal stack if it has none.
///
/// @return the earlier translator of the thread, or null. If there is no memory for its record, the thread has no
///         translator.
TESSMARU_API _se_translator_function _set_se_translator(_se_translator_function translator);

}  // extern "C"
