// A fault of the processor, as the signal handler found it.
#pragma once

#include "system.h"

#include <csignal>
#include <sys/ucontext.h>

namespace layer {

/// The raising code and its unwind data access the first two fields by their offsets.
struct Fault {
    std::uintptr_t UnwindAt;  // an address inside the instruction that failed
    std::uintptr_t Stack;     // the stack pointer there
    int Signal;
    bool StackOverflow;
    mcontext_t Registers;  // without those of the floating-point unit

    std::uintptr_t Register(int number) const { return static_cast<std::uintptr_t>(Registers.gregs[number]); }

    /// The processor's exception number; the names are those of Vector.
    std::uintptr_t Number() const { return Register(REG_TRAPNO); }

    std::uintptr_t Instruction() const;

    /// The address of the data, for a page fault.
    std::uintptr_t Address() const;
};

}  // namespace layer
