// The floating-point units of x86 at a fault.
#pragma once

#include <cstdint>

namespace platform {

/// Exceptions that have happened and are not masked: the bits of the status words, IE, DE, ZE, OE, UE and PE.
struct FloatFaults {
    unsigned int X87;
    unsigned int Sse;
    bool StackCheck;
};

constexpr unsigned int FloatFaultBits = 0x3F;

/// Reads them and leaves both units as a called function has to find them: nothing pending, which would fault again
/// at once, and no register of the old unit in use. The masks stay.
inline FloatFaults TakeFloatFaults()
{
    std::uint16_t status = 0;
    std::uint16_t control = 0;
    asm volatile("fnstsw %0\n\tfnstcw %1\n\tfnclex\n\temms" : "=m"(status), "=m"(control) : : "memory");
    std::uint32_t sse = 0x1F80;
    if (__builtin_cpu_supports("sse")) {
        asm volatile("stmxcsr %0" : "=m"(sse));
        const std::uint32_t cleared = sse & ~FloatFaultBits;
        asm volatile("ldmxcsr %0" : : "m"(cleared));
    }
    return {status & ~static_cast<unsigned int>(control) & FloatFaultBits, sse & ~(sse >> 7) & FloatFaultBits,
            (status & 0x41) == 0x41};
}

}  // namespace platform
