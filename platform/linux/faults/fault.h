// A fault of the processor: what the signal handler keeps of it for the code that raises the exception.
#pragma once

#include "system.h"

#include <csignal>
#include <cstdint>
#include <sys/ucontext.h>

namespace layer {

/// The unwind data of `layer_at_fault` access the first three fields by their offsets.
struct Fault {
    std::uintptr_t UnwindAt;  // where unwinding starts: an address inside the instruction that failed
    std::uintptr_t Stack;     // the stack pointer of the code that failed
    mcontext_t Registers;     // without the floating-point registers
    int Signal;
    bool StackOverflow;

    /// @param number  REG_RAX, REG_EAX and so on
    std::uintptr_t Register(int number) const { return static_cast<std::uintptr_t>(Registers.gregs[number]); }

    /// The processor's exception number, one of Vector.
    std::uintptr_t Number() const { return Register(REG_TRAPNO); }

    /// The instruction pointer.
    std::uintptr_t Instruction() const;

    /// The address that was accessed; valid for a page fault only.
    std::uintptr_t Address() const;

    /// Whether a page fault was a write.
    bool IsWrite() const;

    /// Whether the fault is the call of an address that has no code.
    bool IsBadCall() const;
};

}  // namespace layer
