// Accesses that may fault inside the signal handler: through a stack pointer, unwind data or code that may be damaged.
#pragma once

#include <csetjmp>

namespace layer {

/// Runs a function. A SIGSEGV or SIGBUS in it ends it; it must own nothing that needs a destructor.
/// @return whether it ran to its end
bool RunGuarded(void (*work)(void*), void* argument);

template <class Work>
bool Guarded(Work work)
{
    return RunGuarded([](void* argument) { (*static_cast<Work*>(argument))(); }, &work);
}

/// Called first in the signal handler: ends the guarded function of this thread, if it is what has faulted, and does
/// not return then.
void LeaveGuarded();

}  // namespace layer
