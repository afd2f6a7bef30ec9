// Alternate signal stacks, which let a signal handler run on a thread whose own stack is full.
#pragma once

namespace layer {

/// Gives the calling thread an alternate signal stack.
/// @return the stack, or null if the thread already has one or there is no memory
void* MakeSignalStack();

/// Releases a stack that MakeSignalStack returned on the same thread. Null does nothing.
void FreeSignalStack(void* stack);

}  // namespace layer
