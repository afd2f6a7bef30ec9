// Makes the exception record of a fault.
//
// The code follows from the processor's exception number. If that is ambiguous, the instruction that failed is decoded.
#include "faults/fault_record.h"

#include "base/fault_signals.h"
#include "faults/fault_instruction.h"

#include <cstring>

namespace {

using layer::Fault;

constexpr std::uintptr_t UnknownAddress = ~std::uintptr_t{0};

// A bit of the processor's error code for a page fault.
constexpr std::uintptr_t ErrorOnFetch = 16;

/// Sets the parameters of an access violation.
/// @param kind  as published: 0 for a read, 1 for a write, 8 for an execution
void SetAccess(EXCEPTION_RECORD& record, ULONG_PTR kind, std::uintptr_t address)
{
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = kind;
    record.ExceptionInformation[1] = address;
}

ULONG_PTR AccessKind(const Fault& fault)
{
    if ((fault.Register(REG_ERR) & ErrorOnFetch) != 0)
        return 8;
    return fault.IsWrite() ? 1 : 0;
}

/// The code for floating-point exceptions. Several may have occurred; the first one in the processor's order of
/// detection counts.
/// @param faults  the bits of FloatFaults
DWORD FloatCode(unsigned int faults, bool stackCheck)
{
    constexpr struct {
        unsigned int Bit;
        DWORD Code;
    } kinds[] = {
        {1, EXCEPTION_FLT_INVALID_OPERATION}, {4, EXCEPTION_FLT_DIVIDE_BY_ZERO}, {2, EXCEPTION_FLT_DENORMAL_OPERAND},
        {8, EXCEPTION_FLT_OVERFLOW},          {16, EXCEPTION_FLT_UNDERFLOW},     {32, EXCEPTION_FLT_INEXACT_RESULT},
    };
    if (stackCheck && (faults & 1) != 0)
        return EXCEPTION_FLT_STACK_CHECK;
    for (const auto& kind : kinds) {
        if ((faults & kind.Bit) != 0)
            return kind.Code;
    }
    return EXCEPTION_FLT_INVALID_OPERATION;
}

/// The processor has one number for a division by zero and for a quotient that does not fit.
DWORD DivideCode(const Fault& fault)
{
    return layer::DividesByNonZero(fault) ? EXCEPTION_INT_OVERFLOW : EXCEPTION_INT_DIVIDE_BY_ZERO;
}

/// The code for a general protection fault and the like. Apart from privileged instructions these are accesses to
/// addresses that are not canonical; the processor does not report the address.
DWORD ProtectionCode(const Fault& fault, EXCEPTION_RECORD& record)
{
    if (layer::IsPrivileged(fault))
        return EXCEPTION_PRIV_INSTRUCTION;
    SetAccess(record, 0, UnknownAddress);
    return EXCEPTION_ACCESS_VIOLATION;
}

DWORD PageFaultCode(const Fault& fault, EXCEPTION_RECORD& record)
{
    SetAccess(record, AccessKind(fault), fault.Address());
    return fault.StackOverflow ? EXCEPTION_STACK_OVERFLOW : EXCEPTION_ACCESS_VIOLATION;
}

}  // namespace

platform::FloatFaults layer::FloatFaultsIn(const ucontext_t& context)
{
    const fpregset_t units = context.uc_mcontext.fpregs;
    unsigned int sse = 0x1F80;  // all exceptions are masked
    if (units == nullptr)
        return platform::PendingFloatFaults(0, 0, sse);
#ifdef __x86_64__
    return platform::PendingFloatFaults(units->swd, units->cwd, units->mxcsr);
#else
    // The kernel appends the state of the SSE unit, with six words before it, unless the upper half of the status is
    // 0xFFFF.
    if (units->status >> 16 != 0xFFFF)
        std::memcpy(&sse, reinterpret_cast<const char*>(units) + sizeof *units + 6 * sizeof sse, sizeof sse);
    return platform::PendingFloatFaults(static_cast<unsigned int>(units->sw), static_cast<unsigned int>(units->cw),
                                        sse);
#endif
}

EXCEPTION_RECORD layer::RecordOf(const Fault& fault, const platform::FloatFaults& floats)
{
    EXCEPTION_RECORD record{};
    std::uintptr_t address = fault.Instruction();
    switch (fault.Number()) {
        case divideError: record.ExceptionCode = DivideCode(fault); break;
        case debug: record.ExceptionCode = EXCEPTION_SINGLE_STEP; break;
        case breakpoint:
            record.ExceptionCode = EXCEPTION_BREAKPOINT;
            --address;  // the processor reports the byte after the instruction, the record has the instruction itself
            break;
        case overflow: record.ExceptionCode = EXCEPTION_INT_OVERFLOW; break;
        case boundRange: record.ExceptionCode = EXCEPTION_ARRAY_BOUNDS_EXCEEDED; break;
        case invalidOpcode: record.ExceptionCode = EXCEPTION_ILLEGAL_INSTRUCTION; break;
        case pageFault: record.ExceptionCode = PageFaultCode(fault, record); break;
        case alignmentCheck: record.ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT; break;
        case x87Error: record.ExceptionCode = FloatCode(floats.X87, floats.StackCheck); break;
        case simdError: record.ExceptionCode = FloatCode(floats.Sse, false); break;
        default: record.ExceptionCode = ProtectionCode(fault, record); break;
    }
    record.ExceptionAddress = reinterpret_cast<PVOID>(address);
    return record;
}
