// The host program's part in a fault: its generated code, and the signal handler that it installed before the layer's.
#pragma once

#include "faults/fault.h"

namespace layer {

/// Whether the code that failed belongs to no loaded file, so that the host program has generated it. A call of a bad
/// address belongs to the code that has called.
bool IsHostCode(const Fault& fault);

/// Whether the handler of the host program is called before the search for a C++ handler: it could repair the fault.
bool MayHostRepair(const Fault& fault);

/// Calls the handler of the host program, if there is one. @return whether the thread can continue
bool HostRepairs(const Fault& fault, const siginfo_t& info, ucontext_t& context);

}  // namespace layer
