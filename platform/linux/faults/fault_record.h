// The exception record of a fault.
#pragma once

#include "faults/fault.h"

namespace layer {

/// The record that a translator receives. Clears the pending exceptions of the floating-point units.
EXCEPTION_RECORD RecordOf(const Fault& fault);

}  // namespace layer
