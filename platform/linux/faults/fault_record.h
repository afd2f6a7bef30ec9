// Makes the exception record of a fault.
#pragma once

#include "../../x86/float_state.h"
#include "faults/fault.h"

namespace layer {

/// The record that a translator receives.
/// @param floats  the pending exceptions of the floating-point units
EXCEPTION_RECORD RecordOf(const Fault& fault, const platform::FloatFaults& floats);

/// The pending exceptions in the context of a signal handler. In the handler itself the units are in their initial
/// state.
platform::FloatFaults FloatFaultsIn(const ucontext_t& context);

}  // namespace layer
