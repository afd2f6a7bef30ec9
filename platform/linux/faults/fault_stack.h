// Alternate signal stacks: without one no handler could run on a thread whose own stack is full.
#pragma once

namespace layer {

/// Gives the calling thread an alternate signal stack. @return it, or null if the thread has one already or there is no
/// memory
void* MakeSignalStack();

/// Releases a stack that MakeSignalStack returned on the same thread. Null does nothing.
void FreeSignalStack(void* stack);

}  // namespace layer
