// The signals of the processor's faults. Families register handlers for those faults that they can deal with.
#pragma once

#include <csignal>
#include <cstdint>
#include <initializer_list>

namespace layer {

/// The order in which the handlers are called. A fault that can be repaired is no fault of the program, so repairs come
/// first.
enum class FaultStage { repair, translate };

/// Deals with a fault, in a signal handler: only async-signal-safe calls, `errno` unchanged.
/// @return false if the fault is not the family's.
using FaultHandler = bool (*)(int signal, const siginfo_t& info, void* context);

/// Sets the handler of a stage, and installs the layer's signal handler for these signals where it is missing. Faults
/// that no handler deals with go to the signal handler that was installed before.
void HandleFaults(FaultStage stage, FaultHandler handler, std::initializer_list<int> signals);

/// The processor's exception numbers.
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

/// Whether the same fault occurs again after a return from the signal handler. False for those that the processor
/// reports after the instruction. @param context the handler's third argument
bool FaultComesAgain(const void* context);

}  // namespace layer
