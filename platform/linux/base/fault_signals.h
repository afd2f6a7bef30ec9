// Signals of processor faults. Families register handlers for the faults that they can deal with.
#pragma once

#include <csignal>
#include <cstdint>
#include <initializer_list>

namespace layer {

/// The order in which the handlers are called. Repairs come first: a fault that the layer itself provokes and repairs
/// must not be reported as a fault of the program.
enum class FaultStage { repair, translate };

/// Deals with a fault. Runs in a signal handler: it may make async-signal-safe calls only and must preserve `errno`.
/// @param context the third argument of the signal handler, a `ucontext_t`
/// @return false if the fault does not belong to this family
using FaultHandler = bool (*)(int signal, const siginfo_t& info, void* context);

/// Sets the handler of a stage and installs the layer's signal handler for these signals, unless it is installed
/// already. A handler that has replaced it since then becomes a former one, and may itself call the layer's handler.
/// Faults that no family deals with are forwarded to the signal handler that was installed before.
/// @param signals among SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGTRAP
void HandleFaults(FaultStage stage, FaultHandler handler, std::initializer_list<int> signals);

/// Whether the layer's handler of an installed signal is still in force.
bool HandlesSignal(int signal);

/// Whether a function was installed before the layer's handler.
bool HasFormerHandler(int signal);

/// Does what would have happened without the layer's handler: calls the former one, or makes the process end.
void ForwardFault(int signal, const siginfo_t& info, void* context);

/// Makes dlclose leave the library loaded if another handler has replaced the layer's: it may have kept its address.
void StayLoadedIfReplaced();

/// Exception vectors of the x86 processor.
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

/// Whether the fault occurs again when the signal handler returns. That is so for faults, which the processor reports
/// before the instruction takes effect, but not for traps, which it reports afterwards.
/// @param context the third argument of the signal handler
bool FaultRecurs(const void* context);

}  // namespace layer
