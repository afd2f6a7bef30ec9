// A frame that the unwinder takes for one that the failing instruction has called.
#pragma once

#include "faults/fault.h"

namespace layer {

/// A function that runs in such a frame.
using FaultFunction = int(Fault* fault);

extern "C" {

/// Calls the function and returns its result. Below the function, the unwinder continues in the code that failed, with
/// the registers of the fault.
#ifdef __i386__
[[gnu::regparm(2)]]  // so that the signal handler need not write to the stack
#endif
[[gnu::visibility("hidden")]] int
layer_at_fault(Fault* fault, FaultFunction* function);
}

/// Makes an interrupted thread continue in `layer_at_fault` when the signal handler returns.
/// @param function  does not return
/// @param stack     the upper end of the stack to use
void ContinueAtFault(ucontext_t& context, Fault& fault, FaultFunction* function, std::uintptr_t stack);

}  // namespace layer
