// Faults of the processor on their way from the signal to the thread's translator.
#pragma once

#include "system.h"

#include <csignal>
#include <sys/ucontext.h>

namespace layer {

/// A fault as the handler found it. The raising code and its unwind data know the first two fields by their place.
struct Fault {
    std::uintptr_t UnwindAt;  // an address inside of the instruction that failed
    std::uintptr_t Stack;     // the stack pointer there
    int Signal;
    bool StackOverflow;
    mcontext_t Registers;  // without those of the floating-point unit

    std::uintptr_t Register(int number) const { return static_cast<std::uintptr_t>(Registers.gregs[number]); }
    std::uintptr_t Vector() const { return Register(REG_TRAPNO); }
    std::uintptr_t Instruction() const;
    std::uintptr_t Address() const;  // of the data, for a page fault
};

/// The processor's numbers for what the layer translates.
enum Vector : std::uintptr_t {
    divideError = 0,
    debug = 1,
    breakpoint = 3,
    overflow = 4,
    boundRange = 5,
    invalidOpcode = 6,
    segmentNotPresent = 11,
    stackSegment = 12,
    generalProtection = 13,
    pageFault = 14,
    x87Error = 16,
    alignmentCheck = 17,
    simdError = 19,
};

/// Leads the thread to its translator when the handler returns. False, and nothing is changed: the fault is not to be
/// translated. For signal handlers.
bool TranslateFault(int signal, const siginfo_t& info, void* context);

/// Whether a return from the handler meets the same fault once more.
bool FaultComesAgain(const void* context);

/// The record of a fault. Takes what is pending from the floating-point units.
EXCEPTION_RECORD RecordOf(const Fault& fault);

/// An alternate signal stack for the calling thread, or null if it has one already or there is no memory.
void* MakeSignalStack();
void FreeSignalStack(void* stack);

}  // namespace layer
