// Makes the exception record of a fault.
#pragma once

#include "faults/fault.h"

namespace layer {

/// The record that a translator receives. Also clears the pending exceptions of the floating-point units, so it must be
/// called once, and before any floating-point code.
EXCEPTION_RECORD RecordOf(const Fault& fault);

}  // namespace layer
