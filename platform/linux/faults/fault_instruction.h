// Decodes the instruction that failed, where the exception number alone is ambiguous.
#pragma once

#include "faults/fault.h"

namespace layer {

/// Whether a divide error has a divisor other than zero, so that the quotient did not fit. False as well if the operand
/// cannot be determined.
bool DividesByNonZero(const Fault& fault);

/// Whether the fault came from an instruction that is reserved for the kernel.
bool IsPrivileged(const Fault& fault);

}  // namespace layer
