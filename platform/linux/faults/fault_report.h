// The last words about a fault that ends the process.
#pragma once

#include "faults/fault.h"

namespace layer {

/// Writes the text of the fault and the reason why it is not thrown to standard error, in one line. Runs in the signal
/// handler. It never waits longer than a second, and it causes no other signal.
/// @param reason  a part of a sentence, in English
void ReportFault(const Fault& fault, const ucontext_t& context, const char* reason);

}  // namespace layer
