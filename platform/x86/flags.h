// The flags register of x86 when a function starts.
#pragma once

namespace platform {

/// Sets the flags as a called function expects them: strings are processed forward. It also ends single steps and
/// alignment checks, which the failing program may have switched on for itself, but not for the code that handles its
/// fault.
template <class Flags>
void ResetFlags(Flags& flags)
{
    constexpr Flags trap = 0x100;
    constexpr Flags direction = 0x400;
    constexpr Flags alignmentCheck = 0x40000;
    flags &= ~(trap | direction | alignmentCheck);
}

}  // namespace platform
