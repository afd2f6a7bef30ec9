// What an instruction that failed was about to do.
#pragma once

#include "faults/fault.h"

namespace layer {

/// Whether a divide error came from a division whose divisor is not zero: the quotient did not fit. False as well
/// where that cannot be told.
bool DividesByOtherThanZero(const Fault& fault);

/// Whether it is one that only the kernel may use.
bool IsPrivileged(const Fault& fault);

}  // namespace layer
