// The state of the floating-point units of x86 after a fault.
#pragma once

#include <cstdint>

namespace platform {

/// The exceptions that have occurred and are not masked, as bits of the status words: IE (1), DE (2), ZE (4), OE (8),
/// UE (16), PE (32).
struct FloatFaults {
    unsigned int X87;
    unsigned int Sse;
    bool StackCheck;  // the x87 register stack overflowed or underflowed
};

constexpr unsigned int FloatFaultBits = 0x3F;

/// The exceptions in the registers of both units. In the x87 control word, and in MXCSR from bit 7 on, a set bit masks
/// an exception. A stack fault sets SF (0x40) together with IE.
inline FloatFaults PendingFloatFaults(unsigned int status, unsigned int control, unsigned int sse)
{
    return {status & ~control & FloatFaultBits, sse & ~(sse >> 7) & FloatFaultBits, (status & 0x41) == 0x41};
}

/// Reads the exceptions and prepares both units for ordinary code: no exception is pending, which would raise the fault
/// again at once, and no x87 register is in use. The masks stay as they are.
inline FloatFaults ReadAndClearFloatFaults()
{
    std::uint16_t status = 0;
    std::uint16_t control = 0;
    asm volatile("fnstsw %0\n\tfnstcw %1\n\tfnclex\n\temms" : "=m"(status), "=m"(control) : : "memory");
    std::uint32_t sse = 0x1F80;  // the initial value: nothing has occurred, all exceptions are masked
    if (__builtin_cpu_supports("sse")) {
        asm volatile("stmxcsr %0" : "=m"(sse));
        const std::uint32_t cleared = sse & ~FloatFaultBits;
        asm volatile("ldmxcsr %0" : : "m"(cleared));
    }
    return PendingFloatFaults(status, control, sse);
}

}  // namespace platform
